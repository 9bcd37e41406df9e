#include "foundation/win/reg_options.h"

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"

namespace win {

namespace {

constexpr std::string_view option_failure = "Unable to retrieve registry option '%1'";

/// Reads one option by `read`, which tells whether the value is there.
template <typename Value, typename Read>
Value read_or_default(const reg_key_ptr& key, std::u16string_view name, Value default_value, std::string_view failure, Read read) {
    if (key == nullptr) {
        return default_value;
    }
    try {
        Value value{};
        return read(value) ? value : default_value;
    } catch (const std::exception& e) {
        g_libraryLog.LogError(failure, text::wide_to_utf8(name), e);
        return default_value;
    }
}

bool read_text(const win_reg_key_t& key, std::u16string_view name, std::string& value) {
    text::wide_string wide;
    if (!key.try_get_string(name, wide)) {
        return false;
    }
    value = text::wide_to_utf8(wide);
    return true;
}

}  // namespace

reg_key_ptr open_options_key(std::u16string_view path) {
    try {
        return open_reg_key(path, platform::registry_access::read_64);
    } catch (const std::exception& e) {
        g_libraryLog.LogError("Unable to open registry key with product options. Registry path: %1", text::wide_to_utf8(path), e);
        return {};
    }
}

std::string read_string_option(const reg_key_ptr& key, std::u16string_view name, std::string_view default_value) {
    return read_or_default(key, name, std::string(default_value),
                           "Unable to retrieve registry option value, option '%1', type 'string'.",
                           [&](std::string& value) { return read_text(*key, name, value); });
}

std::uint32_t read_option(const reg_key_ptr& key, std::u16string_view name, std::uint32_t default_value) {
    return read_or_default(key, name, default_value, option_failure,
                           [&](std::uint32_t& value) { return key->try_get_dword(name, value); });
}

bool read_option(const reg_key_ptr& key, std::u16string_view name, bool default_value) {
    return read_option(key, name, std::uint32_t{default_value ? 1U : 0U}) != 0;
}

std::uint64_t read_option(const reg_key_ptr& key, std::u16string_view name, std::uint64_t default_value) {
    return read_or_default(key, name, default_value, option_failure,
                           [&](std::uint64_t& value) { return key->try_get_qword(name, value); });
}

std::string read_option(const reg_key_ptr& key, std::u16string_view name, const std::string& default_value) {
    return read_or_default(key, name, default_value, option_failure,
                           [&](std::string& value) { return read_text(*key, name, value); });
}

}  // namespace win
