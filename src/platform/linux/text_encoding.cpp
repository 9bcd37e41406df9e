#include "platform/linux/text_encoding.h"

#include "foundation/text/unicode.h"
#include "platform/linux/errors.h"

namespace platform::linux_os {

bool linux_text_encoding::utf16_to_utf8(std::u16string_view text, std::string& converted) {
    converted = text::unicode::encode_utf8(text);
    return true;
}

bool linux_text_encoding::utf8_to_utf16(std::string_view text, std::u16string& converted) {
    if (text::unicode::decode_utf8(text, converted)) {
        return true;
    }
    linux_errors{}.set_last_error(error::no_unicode_translation);
    return false;
}

bool linux_text_encoding::utf16_to_ansi(std::u16string_view text, std::string& converted) {
    return utf16_to_utf8(text, converted);
}

bool linux_text_encoding::ansi_to_utf16(std::string_view text, std::u16string& converted) {
    return utf8_to_utf16(text, converted);
}

char16_t linux_text_encoding::fold_case(char16_t unit) {
    return text::unicode::to_lower(unit);
}

}  // namespace platform::linux_os
