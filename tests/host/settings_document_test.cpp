#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "foundation/text/conversion.h"
#include "foundation/util/product_options.h"
#include "platform/testing/fakes.h"
#include "support/source_folder.h"

namespace {

TEST(SettingsDocument, NamesEveryOption) {
    const platform::testing::test_system system;
    std::ifstream file(test_support::source_folder() / "docs" / "settings.md");
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    ASSERT_FALSE(text.empty());
    for (const product_option_row& row : product_option_rows()) {
        const std::string name = text::wide_to_utf8(row.name);
        EXPECT_NE(text.find('`' + name + '`'), std::string::npos) << name;
    }
}

}  // namespace
