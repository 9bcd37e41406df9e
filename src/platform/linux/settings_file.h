#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/linux/settings_tree.h"

namespace platform::linux_os {

/// A settings file that can't be used. `what()` is "FILE:LINE: reason", without the line when it isn't about one.
class settings_error : public std::runtime_error {
public:
    settings_error(std::string file, std::size_t line, std::string reason);

    [[nodiscard]] const std::string& file() const { return file_; }
    /// Counted from 1; 0: no line in particular.
    [[nodiscard]] std::size_t line() const { return line_; }
    [[nodiscard]] const std::string& reason() const { return reason_; }

private:
    std::string file_;
    std::size_t line_;
    std::string reason_;
};

/// Reads the text format of the Windows registry editor, version 5.00, so that one file serves both systems:
/// - UTF-8 with or without a byte order mark, or UTF-16LE with one; lines end in LF or CR LF;
/// - the first line is "Windows Registry Editor Version 5.00"; ';' starts a comment;
/// - `[HKEY_LOCAL_MACHINE\path]` names a key, `[-HKEY_LOCAL_MACHINE\path]` removes what the file said of it so far; other roots
///   are refused;
/// - `"name"=` or `@=` and a string in quotes (`\\` and `\"` are the escapes), `dword:` with up to eight hexadecimal digits,
///   `hex:` or `hex(TYPE):` with bytes, which go on behind a backslash at the line's end, or `-`, which removes the value.
/// Returns the local machine's tree. `file` is for the messages. Throws `settings_error`.
[[nodiscard]] settings_key parse_settings(std::string_view bytes, const std::string& file);

/// The tree in the same format, UTF-8 with CR LF. What it yields is read back as it was, byte for byte of every value.
[[nodiscard]] std::string format_settings(const settings_key& root);

}  // namespace platform::linux_os
