#include "foundation/text/ascii.h"

#include <gtest/gtest.h>

namespace {

std::string sample(std::size_t length) {
    std::string text(length, ' ');
    for (std::size_t index = 0; index < length; ++index) {
        text[index] = static_cast<char>(index % 128);
    }
    return text;
}

TEST(Ascii, WidensEveryLength) {
    for (const std::size_t length : {0u, 1u, 63u, 64u, 65u, 2047u, 2048u, 2049u, 5000u}) {
        const std::string text = sample(length);
        std::u16string wide = u"x";
        text::append_widened_ascii(wide, text);
        EXPECT_EQ(wide, u"x" + std::u16string(text.begin(), text.end())) << length;
    }
}

TEST(Ascii, NarrowsEveryLength) {
    for (const std::size_t length : {0u, 1u, 63u, 64u, 65u, 2047u, 2048u, 2049u, 5000u}) {
        const std::string text = sample(length);
        std::string narrow = "x";
        EXPECT_EQ(text::append_narrowed_ascii(narrow, std::u16string(text.begin(), text.end())), length);
        EXPECT_EQ(narrow, "x" + text) << length;
    }
}

TEST(Ascii, NarrowingStopsAtTheFirstOtherUnit) {
    for (const std::size_t length : {1u, 64u, 130u, 2048u, 4100u}) {
        for (std::size_t at = 0; at < length; at += 1 + length / 50) {
            for (const char16_t other : {u'\x80', u'\u0141', u'\u4100'}) {
                std::u16string text(length, u'a');
                text[at] = other;
                std::string narrow;
                EXPECT_EQ(text::append_narrowed_ascii(narrow, text), at);
                EXPECT_EQ(narrow, std::string(at, 'a'));
            }
        }
    }
}

}  // namespace
