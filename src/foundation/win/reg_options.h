#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/win/win_reg_key.h"

namespace win {

/// Options that an administrator may set below a registry key. None of these throws: what can't be read is logged and the default
/// stands, so that one bad value doesn't keep the others from being read. A key may be null.

/// Opens the key for reading in the 64-bit view; null when it doesn't exist or can't be opened.
[[nodiscard]] reg_key_ptr open_options_key(std::u16string_view path);

[[nodiscard]] std::string read_string_option(const reg_key_ptr& key, std::u16string_view name, std::string_view default_value);

/// Numbers of 32 bits and booleans (true when not 0) are DWORD values, numbers of 64 bits QWORD values. Strings become UTF-8.
[[nodiscard]] std::uint32_t read_option(const reg_key_ptr& key, std::u16string_view name, std::uint32_t default_value);
[[nodiscard]] bool read_option(const reg_key_ptr& key, std::u16string_view name, bool default_value);
[[nodiscard]] std::uint64_t read_option(const reg_key_ptr& key, std::u16string_view name, std::uint64_t default_value);
[[nodiscard]] std::string read_option(const reg_key_ptr& key, std::u16string_view name, const std::string& default_value);
/// A literal would be taken for a boolean.
std::string read_option(const reg_key_ptr& key, std::u16string_view name, const char* default_value) = delete;

}  // namespace win
