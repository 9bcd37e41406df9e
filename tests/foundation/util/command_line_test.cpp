#include "foundation/util/command_line.h"

#include <gtest/gtest.h>

namespace {

const util::command_line_t words = {u"svc.exe", u"-Debug", u"-debug", u"-log", u"-PORT", u"-port"};

TEST(CommandLine, ASwitchIsTheFirstWordThatEqualsItInAnyCase) {
    EXPECT_EQ(util::find_switch(words, u"-DEBUG"), 1U);
    EXPECT_EQ(util::find_switch(words, u"-log"), 3U);
    EXPECT_EQ(util::find_switch(words, u"SVC.EXE"), 0U);
    EXPECT_EQ(util::find_switch(words, u"-lo"), std::nullopt);
    EXPECT_EQ(util::find_switch(words, u"-logs"), std::nullopt);
    EXPECT_EQ(util::find_switch({}, u"-log"), std::nullopt);
}

TEST(CommandLine, AValueIsTheNextWordWhateverItIs) {
    EXPECT_EQ(util::find_switch_value(words, u"-log"), u"-PORT");
    EXPECT_EQ(util::find_switch_value(words, u"-port"), u"-port");
    EXPECT_EQ(util::find_switch_value(words, u"-state"), std::nullopt);
    EXPECT_EQ(util::find_switch_value({u"svc.exe", u"-port"}, u"-port"), std::nullopt);
}

}  // namespace
