#pragma once

#include "platform/text_encoding.h"

namespace platform::testing {

/// Strict Unicode conversions. The ANSI code page is UTF-8 until a test chooses a western one (code page 1252's Latin letters),
/// which lacks most characters as the real ones do.
class fake_text_encoding final : public text_encoding {
public:
    enum class ansi_page { utf8, western };

    bool utf16_to_utf8(std::u16string_view text, std::string& converted) override;
    bool utf8_to_utf16(std::string_view text, std::u16string& converted) override;
    bool utf16_to_ansi(std::u16string_view text, std::string& converted) override;
    bool ansi_to_utf16(std::string_view text, std::u16string& converted) override;
    [[nodiscard]] char16_t fold_case(char16_t unit) override;

    void set_ansi_page(ansi_page page) { page_ = page; }
    /// Makes every conversion fail with 1113, for the paths that real text rarely reaches.
    void set_failing(bool failing) { failing_ = failing; }

private:
    [[nodiscard]] bool refuse() const;

    ansi_page page_ = ansi_page::utf8;
    bool failing_ = false;
};

}  // namespace platform::testing
