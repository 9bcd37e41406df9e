#include "platform/testing/fake_text_encoding.h"

#include "foundation/text/unicode.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace platform::testing {

bool fake_text_encoding::utf16_to_utf8(std::u16string_view text, std::string& converted) {
    if (failing_) {
        return refuse();
    }
    converted = text::unicode::encode_utf8(text);
    return true;
}

bool fake_text_encoding::utf8_to_utf16(std::string_view text, std::u16string& converted) {
    if (failing_ || !text::unicode::decode_utf8(text, converted)) {
        return refuse();
    }
    return true;
}

bool fake_text_encoding::utf16_to_ansi(std::u16string_view text, std::string& converted) {
    if (failing_) {
        return refuse();
    }
    if (page_ == ansi_page::utf8) {
        converted = text::unicode::encode_utf8(text);
        return true;
    }
    converted.clear();
    for (const char16_t unit : text) {
        const bool present = unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF);
        converted.push_back(present ? static_cast<char>(static_cast<unsigned char>(unit)) : '?');
    }
    return true;
}

bool fake_text_encoding::ansi_to_utf16(std::string_view text, std::u16string& converted) {
    if (failing_) {
        return refuse();
    }
    if (page_ == ansi_page::utf8) {
        return text::unicode::decode_utf8(text, converted) || refuse();
    }
    converted.clear();
    for (const char byte : text) {
        converted.push_back(static_cast<unsigned char>(byte));
    }
    return true;
}

char16_t fake_text_encoding::fold_case(char16_t unit) {
    return text::unicode::to_lower(unit);
}

bool fake_text_encoding::refuse() const {
    if (errors* const current = system().errors) {
        current->set_last_error(error::no_unicode_translation);
    }
    return false;
}

}  // namespace platform::testing
