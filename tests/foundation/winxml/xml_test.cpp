#include "foundation/winxml/xml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/exc/exceptions.h"
#include "platform/testing/fakes.h"
#include "support/failure_text.h"

namespace {

using test_support::failure_of;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Xml : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

winxml::node_t root_of(const winxml::document_t& document) {
    return winxml::child_elements(winxml::document_node(document)).at(0);
}

TEST_F(Xml, BuildsAndPrintsWithoutWhiteSpace) {
    const auto document = winxml::create_document();
    const auto root = winxml::add_element(winxml::document_node(document), "OutputArguments");
    EXPECT_EQ(winxml::serialize_xml(document), "<OutputArguments />");
    const auto child = winxml::add_element(root, "OwnerName");
    winxml::set_attribute(child, "value", "HOST1");
    winxml::set_attribute(child, "number", std::int32_t{-5});
    winxml::set_attribute(child, "yes", true);
    winxml::set_attribute(child, "no", false);
    winxml::set_text(winxml::add_element(root, "Name"), "a & b");
    EXPECT_EQ(winxml::serialize_xml(document),
              "<OutputArguments><OwnerName value=\"HOST1\" number=\"-5\" yes=\"true\" no=\"false\" />"
              "<Name>a &amp; b</Name></OutputArguments>");
    EXPECT_EQ(winxml::serialize_xml(child), "<OwnerName value=\"HOST1\" number=\"-5\" yes=\"true\" no=\"false\" />");
    EXPECT_EQ(winxml::element_name(child), "OwnerName");
    EXPECT_EQ(winxml::get_text(winxml::get_element(root, "Name")), "a & b");
    EXPECT_EQ(winxml::get_text(child), "");
}

TEST_F(Xml, SettingAnAttributeAgainReplacesIt) {
    const auto document = winxml::create_document();
    const auto root = winxml::add_element(winxml::document_node(document), "a");
    winxml::set_attribute(root, "x", "1");
    winxml::set_attribute(root, "x", std::string_view("2\0cut", 5));
    EXPECT_EQ(winxml::serialize_xml(document), "<a x=\"2\" />");
}

TEST_F(Xml, EmptyTextFailsToParse) {
    EXPECT_EQ(failure_of([] { (void)winxml::parse_xml(u""); }),
              "XML error: [Error document empty.]. Error code: [12].\n--tr:Failed to parse XML content. Source content: [].");
}

TEST_F(Xml, FailureIsTheBaseOfTheFamily) {
    try {
        (void)winxml::parse_xml(u"<a><b></a>");
        FAIL();
    } catch (const exc::runtime_exc_t&) {
        FAIL();
    } catch (const exc::exc_base_t& e) {
        EXPECT_STREQ(e.what(),
                     "XML error: [Error reading end tag.]. Error code: [8].\n"
                     "--tr:Failed to parse XML content. Source content: [<a><b></a>].");
    }
}

TEST_F(Xml, QuotedSourceIsCutBehind128Bytes) {
    EXPECT_EQ(winxml::cut_for_message(std::string(128, 'x')), std::string(128, 'x'));
    EXPECT_EQ(winxml::cut_for_message(std::string(129, 'x')), std::string(128, 'x') + "..., length: 129");
    const std::u16string source = u"<a>" + std::u16string(126, u'x');
    EXPECT_THAT(failure_of([&] { (void)winxml::parse_xml(source); }),
                HasSubstr("Source content: [<a>" + std::string(125, 'x') + "..., length: 129]."));
}

TEST_F(Xml, ChildIsFoundInAnyCaseWithAWarning) {
    const auto document = winxml::parse_xml(u"<r><name i='1'/><x/></r>");
    const auto found = winxml::find_element(root_of(document), "Name");
    ASSERT_TRUE(found);
    EXPECT_EQ(winxml::element_name(found), "name");
    EXPECT_THAT(
        system_.log.lines(),
        ElementsAre("WARN|[winxml] Found XML element with case-insensitive search, this is deprecated and will stop working "
                    "in the future. Expected name: [Name], got [name] instead."));
}

TEST_F(Xml, ExactChildIsPreferredWithoutAWarning) {
    const auto document = winxml::parse_xml(u"<r>text<!-- c --><name i='1'/><Name i='2'/><Name i='3'/></r>");
    EXPECT_EQ(winxml::get_attribute(winxml::find_element(root_of(document), "Name"), "i"), "2");
    EXPECT_TRUE(system_.log.entries().empty());
}

TEST_F(Xml, MissingChildIsAbsent) {
    const auto document = winxml::parse_xml(u"<r>text<a/></r>");
    EXPECT_FALSE(winxml::find_element(root_of(document), "b"));
    EXPECT_EQ(failure_of([&] { (void)winxml::get_element(root_of(document), "b"); }),
              "Failed to retrieve XML element [b]. Element doesn't exist.");
}

TEST_F(Xml, OperationsOnAbsentNodesFail) {
    const winxml::node_t absent;
    EXPECT_EQ(failure_of([&] { (void)winxml::find_element(absent, "a"); }),
              "Failed to retrieve XML element [a]. Parent node is not specified.");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_element(absent, "a"); }),
              "Failed to retrieve XML element [a]. Parent node is not specified.");
    EXPECT_EQ(failure_of([&] { winxml::add_element(absent, "a"); }),
              "Failed to create XML element [a]. Parent node is not specified.");
    EXPECT_EQ(failure_of([&] { winxml::set_attribute(absent, "n", "v"); }),
              "XML node is not specified.\nFailed to set attribute value. Attribute: [n]. Value: [v].");
    EXPECT_EQ(failure_of([&] { winxml::set_attribute(absent, "n", true); }),
              "XML node is not specified.\nFailed to set attribute value. Attribute: [n]. Value: [true].");
    EXPECT_EQ(failure_of([&] { winxml::set_attribute(absent, "n", std::int32_t{-7}); }),
              "XML node is not specified.\nFailed to set attribute value. Attribute: [n]. Value: [-7].");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_attribute(absent, "n"); }), "Attribute value is not specified. Attribute: [n].");
    EXPECT_EQ(failure_of([&] { winxml::set_text(absent, "n"); }), "XML node is not specified.");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_text(absent); }), "XML node is not specified.");
    EXPECT_EQ(failure_of([&] { (void)winxml::serialize_xml(absent); }),
              "XML node is not specified.\n--tr:Failed to serialize XML document.");
    EXPECT_EQ(failure_of([&] { (void)winxml::document_node({}); }), "Failed to convert document to node");
    EXPECT_EQ(failure_of([&] { (void)winxml::serialize_xml(winxml::document_t()); }),
              "XML node is not specified.\n--tr:Failed to serialize XML document.");
}

TEST_F(Xml, ChildElementsRefuseOtherNodes) {
    const auto document = winxml::parse_xml(u"<r><a/><b/></r>");
    const auto children = winxml::child_elements(root_of(document));
    ASSERT_EQ(children.size(), 2U);
    EXPECT_EQ(winxml::element_name(children[1]), "b");
    const auto mixed = winxml::parse_xml(u"<r><a/>text</r>");
    EXPECT_EQ(failure_of([&] { (void)winxml::child_elements(root_of(mixed)); }), "Failed to cast XML node to element");
}

TEST_F(Xml, AttributesAreReadAsTheyStand) {
    const auto document = winxml::parse_xml(u"<r e='' t='&lt;a&gt; \u00e9'/>");
    EXPECT_EQ(winxml::get_attribute(root_of(document), "e"), "");
    EXPECT_EQ(winxml::get_attribute(root_of(document), "t"), "<a> \xC3\xA9");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_attribute(root_of(document), "x"); }),
              "Attribute value is not specified. Attribute: [x].");
}

TEST_F(Xml, NodeOutlivesTheCallersDocument) {
    winxml::node_t node;
    {
        auto document = winxml::parse_xml(u"<r><a v='1'/></r>");
        node = winxml::get_element(root_of(document), "a");
    }
    EXPECT_EQ(winxml::get_attribute(node, "v"), "1");
    EXPECT_EQ(winxml::serialize_xml(node.document()), "<r><a v=\"1\" /></r>");
}

TEST_F(Xml, DeclarationIsKept) {
    EXPECT_EQ(winxml::serialize_xml(winxml::parse_xml(u"<?xml version='1.0' encoding='UTF-8'?><r> a  b <!-- c --></r>")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" ?><r>a b<!-- c --></r>");
}

TEST_F(Xml, FileIsLoadedWhateverItsLineEnds) {
    system_.files.put("C:\\svc\\TapeAlerts.xml", "\xEF\xBB\xBF<r>\r\n<a v='x\r\ny\rz'/>\r\n</r>");
    const auto document = winxml::load_xml_file(u"C:\\svc\\TapeAlerts.xml");
    EXPECT_EQ(winxml::get_attribute(winxml::get_element(root_of(document), "a"), "v"), "x\ny\nz");
}

TEST_F(Xml, FileWithACutSequenceIsReadSafely) {
    system_.files.put("C:\\bad.xml", "<?xml version='1.0'?><a v='\xE9t\xE9'/>\xEF");
    const auto document = winxml::load_xml_file(u"C:\\bad.xml");
    const auto root = winxml::find_element(winxml::document_node(document), "a");
    EXPECT_EQ(winxml::get_attribute(root, "v"), "\xEF\xBF\xBDt\xEF\xBF\xBD");
}

TEST_F(Xml, FileThatCannotBeLoadedIsNamed) {
    EXPECT_EQ(failure_of([] { (void)winxml::load_xml_file(u"C:\\none.xml"); }), "Cannot load file 'C:\\none.xml'");
    system_.files.put("C:\\bad.xml", "<r>");
    EXPECT_EQ(failure_of([] { (void)winxml::load_xml_file(u"C:\\bad.xml"); }), "Cannot load file 'C:\\bad.xml'");
    std::string deep;
    for (int i = 0; i < 100'000; ++i) {
        deep += "<a>";
    }
    system_.files.put("C:\\deep.xml", deep);
    EXPECT_EQ(failure_of([] { (void)winxml::load_xml_file(u"C:\\deep.xml"); }), "Cannot load file 'C:\\deep.xml'");
}

class Arguments : public Xml {
protected:
    winxml::document_t document_ = winxml::parse_xml(
        u"<InputArguments><SymLinkName value='\\\\.\\Tape0'/><SlotNum value='12ab'/><Bad value='x'/><Empty value=''/>"
        u"<Big value='18446744073709551615'/><Yes value='TRUE'/><No value='False'/><Zero value='0'/><Word value='yes'/>"
        u"<NoValue/><Wide value='\u20ac'/></InputArguments>");
};

TEST_F(Arguments, GettersConvertTheValue) {
    EXPECT_EQ(winxml::get_wstring_argument(document_, "SymLinkName"), u"\\\\.\\Tape0");
    EXPECT_EQ(winxml::get_string_argument(document_, "Wide"), "\xE2\x82\xAC");
    EXPECT_EQ(winxml::get_int_argument(document_, "SlotNum"), 12);
    EXPECT_TRUE(winxml::get_bool_argument(document_, "Yes"));
    EXPECT_FALSE(winxml::get_bool_argument(document_, "No"));
    EXPECT_FALSE(winxml::get_bool_argument(document_, "Zero"));
    EXPECT_TRUE(winxml::get_bool_argument(document_, "Word"));
    EXPECT_EQ(winxml::get_uint64_argument(document_, "Big"), 18446744073709551615ULL);
    EXPECT_EQ(winxml::get_uint64_argument(document_, "SlotNum"), 12U);
    EXPECT_EQ(winxml::get_uint64_argument(document_, "Bad"), 0U);
    EXPECT_EQ(winxml::get_uint64_argument(document_, "Empty"), 0U);
}

TEST_F(Arguments, NameIsFoundInAnyCase) {
    EXPECT_EQ(winxml::get_int_argument(document_, "slotnum"), 12);
    EXPECT_TRUE(system_.log.has_line("Expected name: [slotnum], got [SlotNum] instead."));
}

TEST_F(Arguments, FailuresStackTheirSentences) {
    EXPECT_EQ(failure_of([&] { (void)winxml::get_int_argument(document_, "Bad"); }),
              "Cannot convert string value to signed integer. Given string: [x].\n"
              "--tr:Failed to retrieve value of the integer attribute 'Bad'.");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_wstring_argument(document_, "None"); }),
              "Value of the argument 'None' is not defined.\n--tr:Failed to retrieve value of the unicode attribute 'None'.");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_string_argument(document_, "NoValue"); }),
              "Attribute value is not specified. Attribute: [value].\n"
              "--tr:Failed to retrieve value of the multibyte attribute 'NoValue'.");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_bool_argument(document_, "None"); }),
              "Value of the argument 'None' is not defined.\n--tr:Failed to retrieve value of the boolean attribute 'None'.");
    EXPECT_EQ(failure_of([&] { (void)winxml::get_uint64_argument(document_, "None"); }),
              "Value of the argument 'None' is not defined.\n--tr:Failed to retrieve value of the UInt64 attribute 'None'.");
    EXPECT_EQ(failure_of([&] { (void)winxml::find_argument(winxml::parse_xml(u"<Other/>"), "A"); }),
              "Failed to retrieve XML element [InputArguments]. Element doesn't exist.\n--tr:Failed to find argument node 'A'.");
    EXPECT_EQ(failure_of([&] { (void)winxml::find_argument({}, "A"); }),
              "Failed to convert document to node\n--tr:Failed to find argument node 'A'.");
    EXPECT_FALSE(winxml::find_argument(document_, "None"));
}

}  // namespace
