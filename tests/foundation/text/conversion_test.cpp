#include "foundation/text/conversion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using platform::testing::fake_text_encoding;
using test_support::failure_of;

class Conversion : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(Conversion, GoesBetweenTheForms) {
    EXPECT_EQ(text::wide_to_utf8(u"Band \u00e9 \u20ac \U0001F4FC"), "Band \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\xBC");
    EXPECT_EQ(text::utf8_to_wide("Band \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\xBC"), u"Band \u00e9 \u20ac \U0001F4FC");
    system_.text_encoding.set_ansi_page(fake_text_encoding::ansi_page::western);
    EXPECT_EQ(text::wide_to_ansi(u"\u00e9\u20ac"), "\xE9?");
    EXPECT_EQ(text::ansi_to_wide("\xE9"), u"\u00e9");
    EXPECT_EQ(text::ansi_to_utf8("\xE9"), "\xC3\xA9");
}

TEST_F(Conversion, OfNothingAsksNoPlatform) {
    system_.text_encoding.set_failing(true);
    EXPECT_EQ(text::wide_to_utf8(u""), "");
    EXPECT_EQ(text::utf8_to_wide(""), u"");
    EXPECT_EQ(text::wide_to_ansi(u""), "");
    EXPECT_EQ(text::ansi_to_wide(""), u"");
    EXPECT_EQ(text::ansi_to_utf8(""), "");
}

TEST_F(Conversion, EndsAtTheFirstTerminatorOfALongText) {
    for (const std::size_t at : {0, 1, 63, 64, 65, 127, 128, 500, 999}) {
        std::u16string text(1000, u'a');
        text[at] = u'\0';
        text[999] = u'\0';
        EXPECT_EQ(text::wide_to_utf8(text), std::string(at, 'a'));
    }
}

TEST_F(Conversion, EndsAtTheFirstTerminator) {
    EXPECT_EQ(text::wide_to_utf8(std::u16string_view(u"ab\0c", 4)), "ab");
    EXPECT_EQ(text::utf8_to_wide(std::string_view("ab\0\xFF", 4)), u"ab");
    EXPECT_EQ(text::wide_to_ansi(std::u16string_view(u"\0c", 2)), "");
    EXPECT_EQ(text::ansi_to_wide(std::string_view("ab\0c", 4)), u"ab");
}

TEST_F(Conversion, NothingInFrontOfTheTerminatorCannotFail) {
    system_.text_encoding.set_failing(true);
    EXPECT_EQ(text::wide_to_utf8(std::u16string_view(u"\0c", 2)), "");
}

TEST_F(Conversion, FailuresCarryTheirOwnWords) {
    system_.text_encoding.set_failing(true);
    const std::string system_text = exc::win_error_text(1113);
    const std::string code = "\n--tr:Error code: 0x00000459";
    EXPECT_EQ(failure_of([] { (void)text::wide_to_utf8(u"x"); }),
              system_text + "\nUnicode string cannot be converted to UTF8 string." + code);
    EXPECT_EQ(failure_of([] { (void)text::utf8_to_wide("x"); }),
              system_text + "\nMultibyte UTF8 string cannot be converted to unicode string. Source string: [x]." + code);
    EXPECT_EQ(failure_of([] { (void)text::wide_to_ansi(u"x"); }),
              system_text + "\nUnicode string cannot be converted to multibyte string." + code);
    EXPECT_EQ(failure_of([] { (void)text::ansi_to_wide("x"); }),
              system_text + "\nMultibyte string cannot be converted to unicode string. Source string: [x]." + code);
}

TEST_F(Conversion, OfIllFormedUtf8IsStrict) {
    EXPECT_THROW((void)text::utf8_to_wide("\xC3"), exc::win_sys_exc_t);
    EXPECT_THROW((void)text::utf8_to_wide("a\xFFz"), exc::win_sys_exc_t);
    EXPECT_THROW((void)text::utf8_to_wide("\xED\xA0\x80"), exc::win_sys_exc_t);
}

TEST_F(Conversion, OfALoneSurrogateDoesNotFail) {
    EXPECT_EQ(text::wide_to_utf8(std::u16string{u'a', char16_t{0xD800}, u'b'}),
              "a\xEF\xBF\xBD"
              "b");
}

TEST_F(Conversion, SafeFormsSayThatTheyFailed) {
    EXPECT_EQ(text::utf8_to_wide_safe("ok"), u"ok");
    EXPECT_EQ(text::utf8_to_wide_safe("a\xFFz"), u"UTF8 -> UTF16 failed. Raw: a\u00FFz");
    EXPECT_EQ(text::wide_to_ansi_safe(u"ok"), "ok");
    system_.text_encoding.set_failing(true);
    EXPECT_EQ(text::wide_to_ansi_safe(u"x"), "UNICODE->ANSI failed");
}

TEST_F(Conversion, LenientFormReplacesWhatIsIllFormed) {
    EXPECT_EQ(text::utf8_to_wide_lenient("HP \xC3\xA9"), u"HP \u00e9");
    EXPECT_EQ(text::utf8_to_wide_lenient("a\xFF\xC3z"), u"a\uFFFD\uFFFDz");
    EXPECT_EQ(text::utf8_to_wide_lenient("\xE2\x82"), u"\uFFFD");
    EXPECT_EQ(text::utf8_to_wide_lenient(std::string_view("a\0\xFF", 3)), u"a");
}

TEST_F(Conversion, UnsignedNumbersReadAsTheCLibraryDoes) {
    EXPECT_EQ(text::to_uint("12ab"), 12U);
    EXPECT_EQ(text::to_uint(" \t+7"), 7U);
    EXPECT_EQ(text::to_uint("-1"), 4294967295U);
    EXPECT_EQ(text::to_uint("4294967295"), 4294967295U);
    EXPECT_EQ(text::to_uint("4294967296"), 4294967295U);
    EXPECT_EQ(text::to_uint("99999999999999999999999"), 4294967295U);
    EXPECT_EQ(failure_of([] { (void)text::to_uint(""); }), "Cannot convert string value to unsigned integer. Given string: [].");
    EXPECT_EQ(failure_of([] { (void)text::to_uint("-x"); }),
              "Cannot convert string value to unsigned integer. Given string: [-x].");
}

TEST_F(Conversion, SignedNumbersReadAsTheCLibraryDoes) {
    EXPECT_EQ(text::to_int("-12.5"), -12);
    EXPECT_EQ(text::to_int("2147483648"), 2147483647);
    EXPECT_EQ(text::to_int("-2147483649"), -2147483647 - 1);
    EXPECT_EQ(text::to_int("-99999999999999999999999"), -2147483647 - 1);
    EXPECT_EQ(failure_of([] { (void)text::to_int("abc"); }), "Cannot convert string value to signed integer. Given string: [abc].");
}

TEST_F(Conversion, NumbersOf64BitsReadAsTheCLibraryDoes) {
    EXPECT_EQ(text::to_uint64("18446744073709551615"), 18446744073709551615ULL);
    EXPECT_EQ(text::to_uint64("18446744073709551616"), 18446744073709551615ULL);
    EXPECT_EQ(text::to_uint64("-1"), 18446744073709551615ULL);
    EXPECT_EQ(text::to_uint64("4294967296 bytes"), 4294967296ULL);
    EXPECT_EQ(failure_of([] { (void)text::to_uint64("?"); }),
              "Cannot convert string value to unsigned integer. Given string: [?].");
}

TEST_F(Conversion, BooleansNeverFail) {
    EXPECT_TRUE(text::to_bool("TRUE"));
    EXPECT_FALSE(text::to_bool("False"));
    EXPECT_FALSE(text::to_bool("0"));
    EXPECT_TRUE(text::to_bool("no"));
    EXPECT_TRUE(text::to_bool("00"));
    EXPECT_TRUE(text::to_bool(""));
}

TEST_F(Conversion, NumbersBecomeText) {
    EXPECT_EQ(text::to_string(std::int32_t{-5}), "-5");
    EXPECT_EQ(text::to_string(std::uint32_t{4294967295U}), "4294967295");
    EXPECT_EQ(text::to_string(std::int64_t{-9223372036854775807LL - 1}), "-9223372036854775808");
    EXPECT_EQ(text::to_wstring(std::uint64_t{18446744073709551615ULL}), u"18446744073709551615");
    EXPECT_EQ(text::to_wstring(std::int32_t{-5}), u"-5");
    EXPECT_EQ(text::to_wstring(std::uint32_t{5}), u"5");
    EXPECT_EQ(text::to_wstring(std::int64_t{-5}), u"-5");
    EXPECT_EQ(text::format_hex(5), "0x00000005");
    EXPECT_EQ(text::format_hex(0xFEDCBA98U), "0xfedcba98");
}

TEST_F(Conversion, TextsCompareWithoutRegardToCase) {
    EXPECT_EQ(text::compare_no_case("SlotNum", "slotnum"), 0);
    EXPECT_LT(text::compare_no_case("a", "B"), 0);
    EXPECT_GT(text::compare_no_case("ab", "A"), 0);
    EXPECT_LT(text::compare_no_case("[", "a"), 0);
    EXPECT_GT(text::compare_no_case("\xC3", "z"), 0);
    EXPECT_EQ(text::compare_no_case(u"-LOG", u"-log"), 0);
    EXPECT_NE(text::compare_no_case(u"\u00C9", u"\u00E9"), 0);
}

TEST_F(Conversion, SmallHelpersKeepTheirRules) {
    EXPECT_TRUE(text::starts_with("Changer0", "CHANGER"));
    EXPECT_FALSE(text::starts_with("Ch", "Changer"));
    EXPECT_TRUE(text::starts_with(u"Tape0", u"tape"));
    EXPECT_TRUE(text::ends_with("a.LOG", ".log"));
    EXPECT_TRUE(text::ends_with(u"a.LOG", u".log"));
    EXPECT_FALSE(text::ends_with(u"og", u".log"));
    EXPECT_EQ(text::find_substring(u"abcabc", u"ca"), 2);
    EXPECT_EQ(text::find_substring(u"abc", u"CA"), -1);

    std::string left = "l";
    std::string right = "r";
    EXPECT_FALSE(text::split_at("abc", ';', left, right));
    EXPECT_EQ(left + right, "lr");
    EXPECT_TRUE(text::split_at("a;b;c", ';', left, right));
    EXPECT_EQ(left, "a");
    EXPECT_EQ(right, "b;c");
    EXPECT_TRUE(text::split_at("abc;", ';', left, right));
    EXPECT_EQ(right, "");

    EXPECT_EQ(text::replace_all("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(text::replace_all("aXbX", "X", ""), "ab");
    EXPECT_EQ(text::replace_all("abc", "", "x"), "abc");
}

}  // namespace
