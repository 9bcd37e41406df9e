#include "foundation/win/win_reg_key.h"

#include <boost/make_shared.hpp>
#include <optional>

#include "foundation/exc/exceptions.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace win {

namespace {

struct typed_value {
    std::uint32_t type = 0;
    std::vector<std::uint8_t> data;
};

platform::registry& registry() {
    return *platform::system().registry;
}

bool is_missing(std::uint32_t code) {
    return code == platform::error::file_not_found || code == platform::error::path_not_found;
}

/// Reads a value; its error number is 0, one of the two that mean that the value is missing, or any other.
std::uint32_t query(platform::registry_key key, std::u16string_view name, typed_value& value) {
    return registry().query_value(key, std::u16string(name), value.type, value.data);
}

void require_type(const typed_value& value, std::uint32_t type) {
    if (value.type != type) {
        throw exc::runtime_exc_t("Unexpected registry type: [%1].", text::to_string(value.type));
    }
}

/// The text of a string value. It may lack its terminator, and an odd last byte is completed with zero.
text::wide_string text_of(const typed_value& value) {
    text::wide_string result;
    for (std::size_t at = 0; at < value.data.size(); at += 2) {
        const auto unit = static_cast<char16_t>(util::load_u8(value.data, at) | (util::load_u8(value.data, at + 1) << 8));
        if (unit == u'\0') {
            break;
        }
        result += unit;
    }
    return result;
}

std::uint64_t number_of(const typed_value& value, std::size_t width) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < width; ++i) {
        number |= std::uint64_t{util::load_u8(value.data, i)} << (8 * i);
    }
    return number;
}

/// The registry answers by its results alone and leaves the last error to others: a value that may be missing must not show in
/// messages about something else. Where it must not be missing, that is the failure.
[[noreturn]] void throw_missing() {
    platform::system().errors->set_last_error(platform::error::file_not_found);
    throw exc::win_sys_exc_t(exc::last_error());
}

bool try_get_number(platform::registry_key key, std::u16string_view name, std::uint32_t type, std::size_t width,
                    std::uint64_t& number) {
    typed_value value;
    const std::uint32_t code = query(key, name, value);
    if (is_missing(code)) {
        return false;
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t(code);
    }
    require_type(value, type);
    number = number_of(value, width);
    return true;
}

}  // namespace

win_reg_key_t::~win_reg_key_t() {
    if (key_ != 0) {
        registry().close_key(key_);
    }
}

void win_reg_key_t::require_open() const {
    if (key_ == 0) {
        throw exc::runtime_exc_t("Registry key object is not initialized.");
    }
}

bool win_reg_key_t::try_get_string(std::string_view name, std::string& value) const {
    text::wide_string wide;
    if (!try_get_string(text::ansi_to_wide(name), wide)) {
        return false;
    }
    value = text::wide_to_ansi(wide);
    return true;
}

bool win_reg_key_t::try_get_string(std::u16string_view name, text::wide_string& value) const {
    require_open();
    typed_value read;
    const std::uint32_t code = query(key_, name, read);
    if (is_missing(code)) {
        return false;
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Cannot retrieve a registry value. Value name: [%1].", text::wide_to_utf8(name), code);
    }
    if (read.type != platform::registry_type::expand_string) {
        require_type(read, platform::registry_type::string);
    }
    value = text_of(read);
    return true;
}

bool win_reg_key_t::try_get_dword(std::string_view name, std::uint32_t& value) const {
    return try_get_dword(text::ansi_to_wide(name), value);
}

bool win_reg_key_t::try_get_dword(std::u16string_view name, std::uint32_t& value) const {
    require_open();
    std::uint64_t number = 0;
    if (!try_get_number(key_, name, platform::registry_type::dword, sizeof(value), number)) {
        return false;
    }
    value = static_cast<std::uint32_t>(number);
    return true;
}

bool win_reg_key_t::try_get_qword(std::u16string_view name, std::uint64_t& value) const {
    require_open();
    return try_get_number(key_, name, platform::registry_type::qword, sizeof(value), value);
}

std::string win_reg_key_t::get_string(std::string_view name) const {
    std::string value;
    if (!try_get_string(name, value)) {
        throw_missing();
    }
    return value;
}

std::uint32_t win_reg_key_t::get_dword(std::string_view name) const {
    std::uint32_t value = 0;
    if (!try_get_dword(name, value)) {
        throw_missing();
    }
    return value;
}

void win_reg_key_t::set_string(std::u16string_view name, std::u16string_view value) const {
    try {
        require_open();
        std::vector<std::uint8_t> data;
        data.reserve(2 * value.size() + 2);
        for (const char16_t unit : value) {
            data.push_back(static_cast<std::uint8_t>(unit & 0xFF));
            data.push_back(static_cast<std::uint8_t>(unit >> 8));
        }
        data.insert(data.end(), 2, 0);
        const std::uint32_t code = registry().set_value(key_, std::u16string(name), platform::registry_type::string, data);
        if (code != platform::error::success) {
            throw exc::win_sys_exc_t(code);
        }
    } catch (std::exception& e) {
        exc::rethrow_with_message("Failed to store string value [%1]. Specified data: [%2].", text::wide_to_utf8(name),
                                  text::wide_to_utf8(value), e);
    }
}

std::vector<std::string> win_reg_key_t::subkeys() const {
    try {
        require_open();
        std::size_t longest = 0;
        if (const std::uint32_t code = registry().longest_subkey(key_, longest)) {
            throw exc::win_sys_exc_t("RegQueryInfoEx() function call failed.", code);
        }
        std::vector<std::string> names;
        std::u16string name;
        name.reserve(longest);
        for (std::uint32_t index = 0;; ++index) {
            const std::uint32_t code = registry().enumerate_subkey(key_, index, name);
            if (code == platform::error::no_more_items) {
                return names;
            }
            if (code != platform::error::success) {
                throw exc::win_sys_exc_t("RegEnumKey() function call failed. Index: [%1].", text::to_string(index), code);
            }
            names.push_back(text::wide_to_ansi(name));
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to enumerate subkeys of the registry key", e);
    }
}

platform::registry_key* win_reg_key_t::operator&() {
    if (key_ != 0) {
        throw exc::runtime_exc_t("operator& cannot be called because registry key already initialized.");
    }
    return &key_;
}

reg_key_ptr open_reg_key(std::u16string_view path, std::uint32_t access) {
    platform::registry_key key = 0;
    const std::uint32_t code = registry().open_key(std::u16string(path), access, key);
    if (is_missing(code)) {
        return {};
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to open subkey. Path: [%1].", text::wide_to_utf8(path), code);
    }
    return boost::make_shared<win_reg_key_t>(key);
}

reg_key_ptr open_reg_key(std::string_view path) {
    return open_reg_key(text::utf8_to_wide(path), platform::registry_access::read);
}

reg_key_ptr create_reg_key(std::u16string_view path) {
    platform::registry_key key = 0;
    const std::uint32_t code = registry().create_key(std::u16string(path), platform::registry_access::write, key);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to create subkey [%1].", text::wide_to_utf8(path), code);
    }
    return boost::make_shared<win_reg_key_t>(key);
}

}  // namespace win
