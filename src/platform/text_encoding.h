#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The system's text conversions. Operations return false and set the last error (1113) when the text can't be converted;
/// the output is then unspecified. Callable from any thread.
class text_encoding {
public:
    virtual ~text_encoding() = default;

    /// Never fails for well-formed text; a lone surrogate becomes what the system makes of it (U+FFFD).
    virtual bool utf16_to_utf8(std::u16string_view text, std::string& converted) = 0;
    /// Fails on bytes that aren't well-formed UTF-8.
    virtual bool utf8_to_utf16(std::string_view text, std::u16string& converted) = 0;
    /// To the active ANSI code page (UTF-8 on systems without code pages). A character that the page lacks becomes its
    /// default character.
    virtual bool utf16_to_ansi(std::u16string_view text, std::string& converted) = 0;
    virtual bool ansi_to_utf16(std::string_view text, std::u16string& converted) = 0;
    /// The C library's wide lower-case mapping of one unit, the same in every locale.
    [[nodiscard]] virtual char16_t fold_case(char16_t unit) = 0;
};

}  // namespace platform
