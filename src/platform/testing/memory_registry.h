#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace platform::testing {

/// A registry in memory. Keys and values keep the case they were made with and are found in any; subkeys are enumerated in
/// the order of their upper-case names, as the real registry does. Rights are checked: a key opened for reading refuses
/// writes and the other way round.
class memory_registry final : public registry {
public:
    memory_registry();

    std::uint32_t open_key(const std::u16string& path, std::uint32_t access, registry_key& key) override;
    std::uint32_t create_key(const std::u16string& path, std::uint32_t access, registry_key& key) override;
    void close_key(registry_key key) override;
    std::uint32_t query_value(registry_key key, const std::u16string& name, std::uint32_t& type,
                              std::vector<std::uint8_t>& data) override;
    std::uint32_t set_value(registry_key key, const std::u16string& name, std::uint32_t type,
                            const std::vector<std::uint8_t>& data) override;
    std::uint32_t longest_subkey(registry_key key, std::size_t& units) override;
    std::uint32_t enumerate_subkey(registry_key key, std::uint32_t index, std::u16string& name) override;

    /// The test's own hand: no rights, no failures, UTF-8 paths and names; keys come into being on the way.
    void add_key(std::string_view path);
    void set_dword(std::string_view path, std::string_view name, std::uint32_t value);
    void set_qword(std::string_view path, std::string_view name, std::uint64_t value);
    void set_string(std::string_view path, std::string_view name, std::string_view value);
    void set_expand_string(std::string_view path, std::string_view name, std::string_view value);
    void set_raw(std::string_view path, std::string_view name, std::uint32_t type, std::vector<std::uint8_t> data);
    void remove_value(std::string_view path, std::string_view name);
    /// With everything below it.
    void remove_key(std::string_view path);
    /// Nothing when it is absent or of another type.
    [[nodiscard]] std::optional<std::string> string_at(std::string_view path, std::string_view name);
    [[nodiscard]] bool has_key(std::string_view path);
    [[nodiscard]] std::size_t open_keys() const;

    /// Writing answers 5 from now on.
    void set_read_only(bool read_only);
    /// The named kind of operation answers this error from now on; 0 lets it work again.
    void fail_open(std::uint32_t error);
    void fail_create(std::uint32_t error);
    void fail_query(std::uint32_t error);
    void fail_set(std::uint32_t error);
    void fail_enumerate(std::uint32_t error);

private:
    struct typed_value {
        std::uint32_t type = 0;
        std::vector<std::uint8_t> data;
    };
    struct upper_case_order {
        bool operator()(const std::u16string& left, const std::u16string& right) const;
    };
    struct node {
        std::map<std::u16string, std::shared_ptr<node>, upper_case_order> children;
        std::map<std::u16string, typed_value, upper_case_order> values;
        bool removed = false;
    };
    struct open_handle {
        std::shared_ptr<node> target;
        std::uint32_t access = 0;
    };

    [[nodiscard]] std::shared_ptr<node> find(const std::u16string& path, bool make);
    std::uint32_t take_handle(std::shared_ptr<node> target, std::uint32_t access, registry_key& key);
    std::uint32_t check(registry_key key, std::uint32_t right, open_handle& handle);

    mutable std::mutex mutex_;
    std::shared_ptr<node> root_;
    std::map<registry_key, open_handle> handles_;
    registry_key next_ = 0x100;
    bool read_only_ = false;
    std::uint32_t open_error_ = 0;
    std::uint32_t create_error_ = 0;
    std::uint32_t query_error_ = 0;
    std::uint32_t set_error_ = 0;
    std::uint32_t enumerate_error_ = 0;
};

}  // namespace platform::testing
