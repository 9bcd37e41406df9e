#include "foundation/winxml/list_child.h"

#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"

namespace {

constexpr std::string_view attributes[] = {"Name"};
constexpr winxml::record_shape item{{"Item", attributes}, {}};

class ListChild : public testing::Test {
protected:
    static winxml::record_stream_t list_of(const std::vector<std::string>& values) {
        winxml::record_stream_t list("Items", winxml::record_form::document);
        const winxml::record_layout_t layout(item, winxml::record_form::document);
        for (const std::string& value : values) {
            list.begin_record(layout);
            list.value(value);
            list.end_record();
        }
        return list;
    }

    platform::testing::test_system system_;
    winxml::document_t document_ = winxml::create_document();
    winxml::node_t root_ = winxml::add_element(winxml::document_node(document_), "Root");
};

TEST_F(ListChild, StandsAmongTheOtherChildrenAsItsTextIs) {
    winxml::add_element(root_, "Before");
    winxml::add_list(root_, list_of({"a<b", "\xFF\x01", "\"'"}));
    winxml::add_element(root_, "Behind");
    EXPECT_EQ(winxml::serialize_xml(document_),
              "<Root><Before /><Items><Item Name=\"a&lt;b\" /><Item Name=\"\xFF&#x01;\" /><Item Name='&quot;&apos;' /></Items>"
              "<Behind /></Root>");
}

TEST_F(ListChild, AnEmptyListIsAnEmptyElement) {
    winxml::record_stream_t list = list_of({});
    winxml::add_list(root_, list);
    list.root_attribute("Key", "1");
    winxml::add_list(root_, list);
    EXPECT_EQ(winxml::serialize_xml(document_), "<Root><Items /><Items Key=\"1\" /></Root>");
}

TEST_F(ListChild, TheTreeDoesNotKnowItsElements) {
    winxml::add_list(root_, list_of({"a"}));
    EXPECT_FALSE(winxml::find_element(root_, "Items"));
}

TEST_F(ListChild, NeedsAParent) {
    try {
        winxml::add_list({}, list_of({}));
        FAIL();
    } catch (const exc::runtime_exc_t& e) {
        EXPECT_EQ(std::string(e.what()), "Failed to create XML element [<Items />]. Parent node is not specified.");
    }
}

}  // namespace
