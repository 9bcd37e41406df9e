#include "foundation/text/unicode.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <wctype.h>

namespace {

using namespace text::unicode;

TEST(Unicode, CarriesEveryCharacterThereAndBack) {
    for (char32_t point = 0; point <= 0x10FFFF; point += point < 0x3000 ? 1 : 97) {
        if (point >= 0xD800 && point <= 0xDFFF) {
            continue;
        }
        std::u16string wide;
        if (point < 0x10000) {
            wide.push_back(static_cast<char16_t>(point));
        } else {
            wide.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            wide.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        }
        std::u16string back;
        ASSERT_TRUE(decode_utf8(encode_utf8(wide), back)) << static_cast<std::uint32_t>(point);
        ASSERT_EQ(back, wide);
    }
}

TEST(Unicode, RefusesExactlyTheIllFormedPairs) {
    // Every two-byte text: well-formed are two ASCII characters, or a lead of C2 to DF with a continuation.
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const bool well_formed = (first < 0x80 && second < 0x80) || (first >= 0xC2 && first <= 0xDF && (second & 0xC0) == 0x80);
            const std::string bytes{static_cast<char>(first), static_cast<char>(second)};
            std::u16string wide;
            ASSERT_EQ(decode_utf8(bytes, wide), well_formed) << first << " " << second;
        }
    }
}

TEST(Unicode, ReplacesEachLongestStartOfABrokenSequence) {
    EXPECT_EQ(decode_utf8_lenient("a\xF1\x80\x80\xE1\x80\xC2"
                                  "b\x80"
                                  "c\x80\xBF"
                                  "d"),
              u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd");
    EXPECT_EQ(decode_utf8_lenient("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82"
                                  "A"),
              u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA");
    EXPECT_EQ(decode_utf8_lenient(""), u"");
    EXPECT_EQ(decode_utf8_lenient("\xF0\x9F\x93\xBC"), u"\U0001F4FC");
}

TEST(Unicode, LowersCaseAsTheCLibraryDoes) {
    const locale_t neutral = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    ASSERT_NE(neutral, nullptr);
    for (std::uint32_t unit = 0; unit < 0x10000; ++unit) {
        if (unit < 0xD800 || unit > 0xDFFF) {
            ASSERT_EQ(std::uint32_t{to_lower(static_cast<char16_t>(unit))}, towlower_l(unit, neutral)) << unit;
        }
    }
    freelocale(neutral);
}

}  // namespace
