#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/text/conversion.h"
#include "platform/registry.h"

namespace win {

/// An open registry key. A missing value is a normal outcome of the operations named `try_get_` and a failure of those
/// named `get_`; a value of another type is always a failure (`exc::runtime_exc_t`).
class win_reg_key_t {
public:
    win_reg_key_t() = default;
    explicit win_reg_key_t(platform::registry_key key) : key_(key) {}
    ~win_reg_key_t();
    win_reg_key_t(const win_reg_key_t&) = delete;
    win_reg_key_t& operator=(const win_reg_key_t&) = delete;

    /// Narrow names and texts are in the active code page, wide ones in UTF-16. Expandable strings come unexpanded. Outputs are
    /// left alone when the value is missing.
    [[nodiscard]] bool try_get_string(std::string_view name, std::string& value) const;
    [[nodiscard]] bool try_get_string(std::u16string_view name, text::wide_string& value) const;
    [[nodiscard]] bool try_get_dword(std::string_view name, std::uint32_t& value) const;
    [[nodiscard]] bool try_get_dword(std::u16string_view name, std::uint32_t& value) const;
    [[nodiscard]] bool try_get_qword(std::u16string_view name, std::uint64_t& value) const;
    /// These throw `exc::win_sys_exc_t` with the last error when the value is missing.
    [[nodiscard]] std::string get_string(std::string_view name) const;
    [[nodiscard]] std::uint32_t get_dword(std::string_view name) const;
    void set_string(std::u16string_view name, std::u16string_view value) const;
    /// Names of all subkeys, in the registry's order.
    [[nodiscard]] std::vector<std::string> subkeys() const;

    /// Address of the handle, for a platform call that fills it; only of an empty key.
    [[nodiscard]] platform::registry_key* operator&();

private:
    void require_open() const;

    platform::registry_key key_ = 0;
};

using reg_key_ptr = boost::shared_ptr<win_reg_key_t>;

/// Paths are below the local machine's root. Null when the key or its path doesn't exist; other failures throw
/// `exc::win_sys_exc_t`.
[[nodiscard]] reg_key_ptr open_reg_key(std::u16string_view path, std::uint32_t access);
/// The same for a UTF-8 path, opened for reading.
[[nodiscard]] reg_key_ptr open_reg_key(std::string_view path);
[[nodiscard]] reg_key_ptr create_reg_key(std::u16string_view path);

}  // namespace win
