#pragma once

#include "platform/text_encoding.h"

namespace platform::linux_os {

/// Text is UTF-8 here whatever the locale says, so the ANSI code page is UTF-8, too.
class linux_text_encoding final : public text_encoding {
public:
    bool utf16_to_utf8(std::u16string_view text, std::string& converted) override;
    bool utf8_to_utf16(std::string_view text, std::u16string& converted) override;
    bool utf16_to_ansi(std::u16string_view text, std::string& converted) override;
    bool ansi_to_utf16(std::string_view text, std::u16string& converted) override;
    [[nodiscard]] char16_t fold_case(char16_t unit) override;
};

}  // namespace platform::linux_os
