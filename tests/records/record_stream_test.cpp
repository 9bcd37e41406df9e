#include "foundation/winxml/record_stream.h"

#include <gtest/gtest.h>

#include <random>

#include "foundation/winxml/xml.h"
#include "platform/testing/fakes.h"

namespace {

using winxml::element_shape;
using winxml::record_form;
using winxml::record_layout_t;
using winxml::record_shape;
using winxml::record_stream_t;

constexpr std::string_view outer_attributes[] = {"Name", "Number"};
constexpr std::string_view inner_attributes[] = {"Text"};
constexpr element_shape children[] = {{"First", inner_attributes}, {"Second", inner_attributes}};
constexpr record_shape with_children{{"Item", outer_attributes}, children};
constexpr record_shape flat{{"Item", outer_attributes}, {}};

class RecordStream : public testing::Test {
protected:
    /// The same list as the document layer prints it.
    static std::string printed(const std::vector<std::string>& values, std::string_view root_value) {
        const winxml::document_t document = winxml::create_document();
        const winxml::node_t root = winxml::add_element(winxml::document_node(document), "Items");
        for (const std::string& value : values) {
            const winxml::node_t item = winxml::add_element(root, "Item");
            winxml::set_attribute(item, "Name", value);
            winxml::set_attribute(item, "Number", std::int32_t{-7});
            winxml::set_attribute(winxml::add_element(item, "First"), "Text", value);
            winxml::set_attribute(winxml::add_element(item, "Second"), "Text", "4294967295");
        }
        winxml::set_attribute(root, "Root", root_value);
        return winxml::serialize_xml(document);
    }

    static record_stream_t streamed(const std::vector<std::string>& values, std::string_view root_value, record_form form) {
        record_stream_t stream("Items", form);
        const record_layout_t layout(with_children, form);
        stream.expect_records(values.size());
        for (const std::string& value : values) {
            stream.begin_record(layout);
            stream.value(value);
            stream.value(std::int32_t{-7});
            stream.value(value);
            stream.value(std::uint32_t{4294967295u});
            stream.end_record();
        }
        stream.root_attribute("Root", root_value);
        return stream;
    }

    static std::string as_attribute(std::string_view value) {
        const winxml::document_t document = winxml::create_document();
        winxml::set_attribute(winxml::add_element(winxml::document_node(document), "Out"), "value", value);
        const std::string text = winxml::serialize_xml(document);
        const std::size_t start = text.find('=') + 2;
        return text.substr(start, text.size() - start - 4);
    }

    platform::testing::test_system system_;
};

TEST_F(RecordStream, PrintsWhatTheDocumentLayerPrints) {
    const std::vector<std::string> values = {"plain",      "",           " blanks ", "<&>",
                                             "it's",       "say \"so\"", "\"'\"",    std::string("\x01\x1F", 2),
                                             "&amp;",      "&#x41;",     "&#65;",    "\xC3\xA4\xE2\x82\xAC",
                                             "tab\tline\n"};
    EXPECT_EQ(streamed(values, "root & \"more\"", record_form::document).text(), printed(values, "root & \"more\""));
}

TEST_F(RecordStream, TheAttributeFormIsTheDocumentFormEscapedOnceMore) {
    const std::vector<std::string> values = {"plain", "<&>", "it's", "say \"so\"", std::string("\x01", 1), "&#x41;", "&#65;"};
    const record_stream_t stream = streamed(values, "it's \"the\" root", record_form::attribute_value);
    EXPECT_EQ(stream.text(), as_attribute(printed(values, "it's \"the\" root")));
}

TEST_F(RecordStream, RandomTextMatchesInBothForms) {
    const std::string alphabet = "ax4#09 <>&\"'\x01\x09\x7F\xC3\xA4;";
    std::mt19937 random(20261116);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> values(1 + random() % 4);
        for (std::string& value : values) {
            for (std::size_t length = random() % 12; length != 0; --length) {
                value.push_back(alphabet[random() % alphabet.size()]);
            }
        }
        const std::string document = printed(values, values.front());
        ASSERT_EQ(streamed(values, values.front(), record_form::document).text(), document) << "round " << round;
        ASSERT_EQ(streamed(values, values.front(), record_form::attribute_value).text(), as_attribute(document))
            << "round " << round;
    }
}

TEST_F(RecordStream, WithoutRecordsTheRootIsEmpty) {
    const record_stream_t stream = streamed({}, "r", record_form::document);
    EXPECT_EQ(stream.text(), "<Items Root=\"r\" />");
    EXPECT_EQ(record_stream_t("Items", record_form::attribute_value).text(), "&lt;Items /&gt;");
}

TEST_F(RecordStream, ARecordWithoutChildrenClosesItself) {
    record_stream_t stream("Items", record_form::document);
    const record_layout_t layout(flat, record_form::document);
    stream.begin_record(layout);
    stream.value("a");
    stream.value(std::uint32_t{0});
    stream.end_record();
    EXPECT_EQ(stream.text(), "<Items><Item Name=\"a\" Number=\"0\" /></Items>");
}

TEST_F(RecordStream, AHalfWrittenCharacterReferenceCannotBreakTheList) {
    for (const std::string value : {"&#x", "&#x41", "&#xZZ;", "&#x;", "&#x<\">", "&#x41\"", "a&#x"}) {
        const record_stream_t stream = streamed({value, "next"}, "r", record_form::document);
        const winxml::document_t parsed = winxml::parse_xml(text::utf8_to_wide(stream.text()));
        const std::vector<winxml::node_t> items =
            winxml::child_elements(winxml::get_element(winxml::document_node(parsed), "Items"));
        ASSERT_EQ(items.size(), 2u) << value;
        EXPECT_EQ(winxml::get_attribute(items[0], "Name"), value);
        EXPECT_EQ(winxml::get_attribute(items[1], "Name"), "next");

        const record_stream_t escaped = streamed({value, "next"}, "r", record_form::attribute_value);
        const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide("<Out value='" + escaped.text() + "' />"));
        EXPECT_EQ(winxml::get_attribute(winxml::get_element(winxml::document_node(output), "Out"), "value"), stream.text())
            << value;
    }
}

TEST_F(RecordStream, TellsWhetherItIsAsciiAndHoldsAQuotationMark) {
    EXPECT_TRUE(streamed({"a"}, "r", record_form::document).is_ascii());
    EXPECT_FALSE(streamed({"\xC3\xA4"}, "r", record_form::attribute_value).is_ascii());
    EXPECT_TRUE(streamed({}, "r", record_form::attribute_value).has_double_quote());
    EXPECT_FALSE(record_stream_t("Items", record_form::attribute_value).has_double_quote());
    EXPECT_FALSE(streamed({}, "\"", record_form::attribute_value).has_double_quote());
}

}  // namespace
