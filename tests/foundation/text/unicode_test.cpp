#include "foundation/text/unicode.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace text::unicode;

/// One character in both forms.
const std::vector<std::pair<std::string, std::u16string>> characters = {{"\x7F", u"\u007F"},
                                                                        {"\xC2\x80", u"\u0080"},
                                                                        {"\xC3\xBC", u"\u00FC"},
                                                                        {"\xE2\x82\xAC", u"\u20AC"},
                                                                        {"\xF0\x9F\x93\xBC", u"\U0001F4FC"}};

/// ASCII is converted in runs of sixteen, and written in blocks of some thousand: a character may lie anywhere in them.
TEST(Unicode, ACharacterMayStandAnywhereInALongText) {
    for (const auto& [bytes, units] : characters) {
        for (const std::size_t length : {0, 1, 15, 16, 17, 40, 2047, 2048, 2049, 5000}) {
            for (std::size_t at = 0; at <= length; at += length > 100 ? 61 : 1) {
                std::string utf8(length, 'a');
                std::u16string utf16(length, u'a');
                utf8.insert(at, bytes);
                utf16.insert(at, units);
                EXPECT_EQ(encode_utf8(utf16), utf8) << at << " of " << length;
                std::u16string decoded;
                EXPECT_TRUE(decode_utf8(utf8, decoded));
                EXPECT_EQ(decoded, utf16) << at << " of " << length;
            }
        }
    }
}

TEST(Unicode, TextsWithoutAnAsciiCharacterAreConvertedToo) {
    for (const auto& [bytes, units] : characters) {
        std::string utf8;
        std::u16string utf16;
        for (int i = 0; i < 3000; ++i) {
            utf8 += bytes;
            utf16 += units;
        }
        EXPECT_EQ(encode_utf8(utf16), utf8);
        std::u16string decoded;
        EXPECT_TRUE(decode_utf8(utf8, decoded));
        EXPECT_EQ(decoded, utf16);
    }
}

/// Both kinds come in runs of any length, one behind the other.
TEST(Unicode, RunsOfAsciiAndOfOthersMayMeetAnywhere) {
    for (const auto& [bytes, units] : characters) {
        std::string utf8;
        std::u16string utf16;
        for (std::size_t others = 0; others < 36; ++others) {
            for (std::size_t plain = 0; plain < 36; ++plain) {
                for (std::size_t i = 0; i < others; ++i) {
                    utf8 += bytes;
                    utf16 += units;
                }
                utf8.append(plain, 'x');
                utf16.append(plain, u'x');
            }
        }
        EXPECT_EQ(encode_utf8(utf16), utf8);
        std::u16string decoded;
        EXPECT_TRUE(decode_utf8(utf8, decoded));
        EXPECT_EQ(decoded, utf16);
    }
}

/// Every first byte, with the longest start of a sequence that can still be completed, and what follows it.
TEST(Unicode, EachStartOfASequenceIsJudgedByItsOwnRules) {
    const std::u16string bad = u"\uFFFD";
    const std::vector<std::pair<std::string, std::u16string>> texts = {
        {"\xC1\x80", bad + bad},
        {"\xC2", bad},
        {"\xC2z", bad + u"z"},
        {"\xE0\x9F\x80", bad + bad + bad},
        {"\xE0\xA0", bad},
        {"\xE0\xA0z", bad + u"z"},
        {"\xED\x9F\xBF", u"\uD7FF"},
        {"\xED\xA0\x80", bad + bad + bad},
        {"\xF0\x8F\x80\x80", bad + bad + bad + bad},
        {"\xF0\x90\x80", bad},
        {"\xF0\x90\x80z", bad + u"z"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"\xF5\x80", bad + bad},
        {"\xFF", bad},
    };
    for (const auto& [bytes, expected] : texts) {
        for (const std::size_t before : {0, 15, 16, 40}) {
            const std::u16string lead(before, u'a');
            EXPECT_EQ(decode_utf8_lenient(std::string(before, 'a') + bytes), lead + expected) << before;
            EXPECT_EQ(decode_utf8_lenient(std::string(before, 'a') + bytes + std::string(20, 'b')),
                      lead + expected + std::u16string(20, u'b'))
                << before;
        }
    }
}

TEST(Unicode, WhatIsNotWellFormedIsFoundAnywhere) {
    for (const std::size_t length : {1, 16, 33, 2048, 2100}) {
        for (std::size_t at = 0; at<length; at += length> 100 ? 61 : 1) {
            std::string utf8(length, 'a');
            utf8[at] = '\x80';
            std::u16string decoded;
            EXPECT_FALSE(decode_utf8(utf8, decoded)) << at;
            std::u16string expected(length, u'a');
            expected[at] = u'\uFFFD';
            EXPECT_EQ(decode_utf8_lenient(utf8), expected);
            std::u16string lone(length, u'a');
            lone[at] = char16_t{0xD800};
            std::string replaced(length, 'a');
            replaced.replace(at, 1, "\xEF\xBF\xBD");
            EXPECT_EQ(encode_utf8(lone), replaced);
        }
    }
}

}  // namespace
