#include "platform/conformance/implementations.h"

namespace {

using namespace platform;

template <typename Implementation>
using TextEncodingConformance = conformance::suite<Implementation>;
TYPED_TEST_SUITE(TextEncodingConformance, conformance::implementations, conformance::implementation_names);

TYPED_TEST(TextEncodingConformance, ConvertsEveryPlaneBothWays) {
    text_encoding& under_test = this->under_test_.text_encoding;
    const std::u16string wide = u"A\u00E4\u20AC\uFFFD\U0001F4FC";
    const std::string narrow = "A\xC3\xA4\xE2\x82\xAC\xEF\xBF\xBD\xF0\x9F\x93\xBC";
    std::string utf8;
    std::u16string utf16;
    EXPECT_TRUE(under_test.utf16_to_utf8(wide, utf8));
    EXPECT_EQ(utf8, narrow);
    EXPECT_TRUE(under_test.utf8_to_utf16(narrow, utf16));
    EXPECT_EQ(utf16, wide);
    EXPECT_TRUE(under_test.utf16_to_ansi(wide, utf8));
    EXPECT_EQ(utf8, narrow);
    EXPECT_TRUE(under_test.ansi_to_utf16(narrow, utf16));
    EXPECT_EQ(utf16, wide);
}

TYPED_TEST(TextEncodingConformance, MakesReplacementsOfLoneSurrogates) {
    std::string utf8;
    const std::u16string broken{u'a', 0xD800, u'b', 0xDC00, 0xD834};
    EXPECT_TRUE(this->under_test_.text_encoding.utf16_to_utf8(broken, utf8));
    EXPECT_EQ(utf8,
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD\xEF\xBF\xBD");
}

TYPED_TEST(TextEncodingConformance, RefusesIllFormedBytesWithTheReason) {
    const char* const broken[] = {
        "\x80", "\xC0\xAF", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xF4\x90\x80\x80", "abc\xFF", "\xE2\x82"};
    for (const char* bytes : broken) {
        std::u16string utf16;
        this->under_test_.errors.set_last_error(0);
        EXPECT_FALSE(this->under_test_.text_encoding.utf8_to_utf16(bytes, utf16)) << bytes;
        EXPECT_EQ(this->under_test_.errors.last_error(), error::no_unicode_translation);
        EXPECT_FALSE(this->under_test_.text_encoding.ansi_to_utf16(bytes, utf16)) << bytes;
    }
}

TYPED_TEST(TextEncodingConformance, FoldsCaseWhateverTheLocale) {
    text_encoding& under_test = this->under_test_.text_encoding;
    EXPECT_EQ(under_test.fold_case(u'A'), u'a');
    EXPECT_EQ(under_test.fold_case(u'z'), u'z');
    EXPECT_EQ(under_test.fold_case(u'\u00C4'), u'\u00E4');
    EXPECT_EQ(under_test.fold_case(u'\u0416'), u'\u0436');
    EXPECT_EQ(under_test.fold_case(u'\u03A3'), u'\u03C3');
    EXPECT_EQ(under_test.fold_case(u'7'), u'7');
    EXPECT_EQ(under_test.fold_case(char16_t{0xD800}), char16_t{0xD800});
}

}  // namespace
