#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "foundation/text/conversion.h"
#include "foundation/util/product_options.h"
#include "platform/testing/fakes.h"
#include "support/source_folder.h"

namespace {

std::string document() {
    std::ifstream file(test_support::source_folder() / "docs" / "settings.md");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A row's type and default as a table has them, and as a list does.
struct told {
    std::string in_table;
    std::string in_list;
};

told told_of(const product_option_row& row) {
    const product_options_t defaults;
    return std::visit(
        [&](auto member) -> told {
            using value_t = std::remove_cvref_t<decltype(defaults.*member)>;
            if constexpr (std::is_same_v<value_t, std::string>) {
                return {(defaults.*member).empty() ? "string, empty" : "string, `" + defaults.*member + '`', ""};
            } else {
                const std::string number = std::to_string(static_cast<std::uint64_t>(defaults.*member) / row.unit);
                const bool wide = std::is_same_v<value_t, std::uint64_t>;
                return {(wide ? "DWORD or QWORD, " : "DWORD, ") + number, " (" + number + ")"};
            }
        },
        row.member);
}

TEST(SettingsDocument, NamesEveryOptionWithItsTypeAndDefault) {
    const platform::testing::test_system system;
    const std::string text = document();
    ASSERT_FALSE(text.empty());
    for (const product_option_row& row : product_option_rows()) {
        const std::string name = '`' + text::wide_to_utf8(row.name) + '`';
        const told wanted = told_of(row);
        if (text.find("\n| " + name + " | ") != std::string::npos) {
            EXPECT_NE(text.find("\n| " + name + " | " + wanted.in_table + " |"), std::string::npos) << name << wanted.in_table;
        } else {
            const std::size_t place = text.find(' ' + name + wanted.in_list);
            ASSERT_NE(place, std::string::npos) << name << wanted.in_list;
            const std::string item = text.substr(0, place).substr(text.rfind("\n- ", place));
            EXPECT_TRUE(item.starts_with(wanted.in_table.substr(0, wanted.in_table.find(',')) == "string" ? "\n- String, empty"
                                                                                                          : "\n- DWORD"))
                << name;
        }
    }
}

}  // namespace
