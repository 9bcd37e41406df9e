#include "platform/linux/rpc/unicode.h"

#include <gtest/gtest.h>

#include "rpc/ntlm/ntlm_fixture.h"

namespace {

using namespace platform::linux_rpc;
using ntlm_testing::from_hex;

TEST(RpcUnicode, ConvertsEachPlaneBothWays) {
    const std::string narrow = "a\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E";
    std::u16string wide;
    std::string back;
    ASSERT_TRUE(utf8_to_utf16(narrow, wide));
    EXPECT_EQ(u"a\u00E4\u20AC\U0001D11E", wide);
    ASSERT_TRUE(utf16_to_utf8(wide, back));
    EXPECT_EQ(narrow, back);
}

TEST(RpcUnicode, RefusesMalformedUtf8) {
    std::u16string wide;
    for (const std::string_view wrong : {"\x80", "\xC3", "\xC3(", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE2\x82",
                                         "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
        EXPECT_FALSE(utf8_to_utf16(wrong, wide)) << wrong;
    }
}

TEST(RpcUnicode, RefusesLoneSurrogates) {
    std::string narrow;
    EXPECT_FALSE(utf16_to_utf8(std::u16string{u'a', char16_t{0xD800}}, narrow));
    EXPECT_FALSE(utf16_to_utf8(std::u16string{char16_t{0xD800}, u'a'}, narrow));
    EXPECT_FALSE(utf16_to_utf8(std::u16string{char16_t{0xDC00}}, narrow));
}

TEST(RpcUnicode, UpperCaseKeepsTheNumberOfUnits) {
    EXPECT_EQ(u"ABC-1", upper_case(u"aBc-1"));
    EXPECT_EQ(u"\u00C4\u00DF\u0178", upper_case(u"\u00E4\u00DF\u00FF"));
    EXPECT_EQ(u"\u0410\u03A3\u03A3", upper_case(u"\u0430\u03C3\u03C2"));
    EXPECT_EQ(u"\u0131\u017F\u00B5", upper_case(u"\u0131\u017F\u00B5"));
    EXPECT_EQ(u"\U00010428", upper_case(u"\U00010428"));
}

TEST(RpcUnicode, ComparesWithoutCase) {
    EXPECT_TRUE(equal_without_case("CORP\\J\xC3\xBCrgen", "corp\\J\xC3\x9CRGEN"));
    EXPECT_FALSE(equal_without_case("anna", "anne"));
    EXPECT_FALSE(equal_without_case("anna", "annab"));
    EXPECT_FALSE(equal_without_case("\xFF", "\xFF"));
}

TEST(RpcUnicode, WireTextIsEvenAndWithoutTerminators) {
    EXPECT_EQ(from_hex("6100ac20"), to_utf16le(u"a\u20AC"));
    std::u16string text;
    ASSERT_TRUE(from_utf16le(from_hex("6100ac20"), text));
    EXPECT_EQ(u"a\u20AC", text);
    EXPECT_TRUE(from_utf16le({}, text));
    EXPECT_EQ(u"", text);
    EXPECT_FALSE(from_utf16le(from_hex("610062"), text));
    EXPECT_FALSE(from_utf16le(from_hex("61000000"), text));
    EXPECT_FALSE(from_utf16le(from_hex("00d8"), text));
}

}  // namespace
