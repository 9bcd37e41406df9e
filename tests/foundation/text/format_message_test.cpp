#include "foundation/text/format_message.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using text::format_message;

TEST(FormatMessage, UsesAnArgumentAsOftenAsItIsNamed) {
    EXPECT_EQ(format_message("%1 and %1", "x"), "x and x");
    EXPECT_EQ(format_message("%2%1%4%3", "a", "b", "c", "d"), "badc");
    EXPECT_EQ(format_message("nothing", "x"), "nothing");
    EXPECT_EQ(format_message("", "x"), "");
}

TEST(FormatMessage, KeepsAPercentSignWithoutANumber) {
    EXPECT_EQ(format_message("100%", "x"), "100%");
    EXPECT_EQ(format_message("%%", "x"), "%%");
    EXPECT_EQ(format_message("%%1", "x"), "%x");
    EXPECT_EQ(format_message("50 % of", "x"), "50 % of");
    EXPECT_EQ(format_message("%- 1", "x"), "%- 1");
}

TEST(FormatMessage, KeepsANumberThatNamesNoArgument) {
    EXPECT_EQ(format_message("%2", "x"), "%2");
    EXPECT_EQ(format_message("%7", "x", "y"), "%7");
    EXPECT_EQ(format_message("%0", "x"), "%0");
    EXPECT_EQ(format_message("%-1", "x"), "%-1");
    EXPECT_EQ(format_message("%10", "x"), "%10");
    EXPECT_EQ(format_message("%007", "x"), "%7");
    EXPECT_EQ(format_message("%1"), "%1");
}

TEST(FormatMessage, AcceptsWhiteSpaceAndASignBeforeANumber) {
    EXPECT_EQ(format_message("% 1", "x"), "x");
    EXPECT_EQ(format_message("%\t\n+1.", "x"), "x.");
    EXPECT_EQ(format_message("% 5", "x"), "%5");
}

TEST(FormatMessage, BoundsANumberThatIsTooLarge) {
    EXPECT_EQ(format_message("%99999999999999999999", "x"), "%2147483647");
    EXPECT_EQ(format_message("%-99999999999999999999", "x"), "%-2147483648");
}

TEST(FormatMessage, DoesNotExpandAnArgumentAgain) {
    EXPECT_EQ(format_message("[%1] [%2]", "%2", "y"), "[%2] [y]");
    EXPECT_EQ(format_message("%1%2", "%", "1"), "%1");
}

}  // namespace
