#include "foundation/winxml/nesting_scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <limits>
#include <random>

#include "foundation/exc/exceptions.h"
#include "foundation/winxml/xml.h"
#include "platform/testing/fakes.h"
#include "support/parsed_shape.h"

namespace {

using test_support::most_attributes;
using test_support::parsed_depth;

constexpr std::size_t any_number = std::numeric_limits<std::size_t>::max();

bool nests_deeper_than(const std::string& text, std::size_t depth) {
    return winxml::first_excess(text, {depth, any_number}) == winxml::excess::depth;
}

bool has_more_attributes_than(const std::string& text, std::size_t attributes) {
    return winxml::first_excess(text, {any_number, attributes}) == winxml::excess::attributes;
}

std::string repeated(std::string_view piece, std::size_t count) {
    std::string result;
    result.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        result += piece;
    }
    return result;
}

/// The scan against the parser itself, for every limit around the true depth and number of attributes.
void expect_agreement(const std::string& text) {
    TiXmlDocument document;
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    const std::size_t depth = parsed_depth(document);
    for (std::size_t limit = 0; limit <= depth + 1; ++limit) {
        ASSERT_EQ(nests_deeper_than(text, limit), depth > limit) << "limit " << limit << ", text: " << text;
    }
    const std::size_t attributes = most_attributes(document);
    for (std::size_t limit = 0; limit <= attributes + 1; ++limit) {
        ASSERT_EQ(has_more_attributes_than(text, limit), attributes > limit) << "limit " << limit << ", text: " << text;
    }
}

TEST(NestingScan, AgreesWithTheParserOnChosenTexts) {
    const std::vector<std::string> texts{
        "",
        "   ",
        "text",
        "<a/>",
        "<a><b><c/></b></a>",
        "<a/><b><c/></b><d/>",
        "<a><!-- <b><c> --><d/></a>",
        "<!-- <b> --><a/>",
        "<!-- <b>",
        "<a><![CDATA[<b><c><d>]]><e/></a>",
        "<![CDATA[<b>]]><a><b/></a>",
        "<a><![CDATA[<b><c><d>",
        "<a v='<b><c>' w=\"'<d>\"/>",
        "<a v='<b><c>'><d/></a>",
        "<a v=<b><c></c></a>",
        "<a v=x/y><b/></a>",
        "<a v=x'y><b/></a>",
        "<a v><b/></a>",
        "<a v =  'x'  w='y' ><b/></a >",
        "<a ='x'><b/></a>",
        "<a v='1' w='2'><b x=1 y=2 z=3/><c/></a>",
        "<a><!-- <b x='1' y='2'> --><c x='1'/></a>",
        "<a v=' x=1 y=2 '/>",
        "<a v='1' w='2",
        "<a v='1' w",
        "<a v='1' v='2'><b/></a>",
        "<a v='1' V='2' w='3' v",
        "<a v='1'><b v='1' w='2' w='2'><c/></b></a>",
        "<?xml version='1.0'?><a><b/></a>",
        "<?XML version='1.0' encoding='UTF-8' standalone='>'?><a><b/></a>",
        "<?xml version='<a>' <b> junk ?><a><b><c/></b></a>",
        "<?xml version=?><a><b/></a>",
        "<?pi <a><b> ?><a/>",
        "<!DOCTYPE a [ <!ENTITY b '<c>'> ]><a><b/></a>",
        "<!DOCTYPE a><a><b/></a>",
        "<a>text < b <c/></a>",
        "<a>&lt;b&gt;<c/>&#60;d&#62;</a>",
        "<a>&#x3c;b<c/></a>",
        "<a>&#x <b><c><d> x41;</a>",
        "<a v='&#x ' w='<b>x41;'><c/></a>",
        "<a>&# <b><c> #65;<d/></a>",
        "<a>&#;<b/></a>",
        "<a>&#x;<b/></a>",
        "<a>&#x<b/></a>",
        "<a>&#</a>",
        "<a>&#65<b/></a>",
        "<a>&#q;<b/></a>",
        "<a>& <b/></a>",
        "<a><b></c></a>",
        "<a><b></b ></a\n>",
        "<a></a x><b/>",
        "<a></ab><c/>",
        "<ab></a><c/>",
        "</a><b><c/></b>",
        "<a><b",
        "<a><b ",
        "<a><b x",
        "<a><b x=",
        "<a><b x='",
        "<a><b x='1'",
        "<a><b/",
        "<a><b/x>",
        "<a",
        "<",
        "<a><",
        "<a>text<",
        "<1><a/></1>",
        "< a><b/></ a>",
        "<_a:b-c.d><x/></_a:b-c.d>",
        "<a\x7F><b/></a\x7F>",
        "\xEF\xBB\xBF<a>\xEF\xBB\xBF<b/></a>",
        "\xEF\xBB\xBF<\xEF\xBB\xBF"
        "a><\xEF\xBB\xBF"
        "b></b></a>",
        "<\xEF\xBB\xBF"
        "a><\xEF\xBB\xBF"
        "b></b></a>",
        "<?xml version='1.0'?><\xEF\xBB\xBF"
        "a><\xEF\xBF\xBE"
        "b></b></a>",
        "<?xml encoding='u'?><\xEF\xBB\xBF"
        "a><\xEF\xBB\xBF"
        "b></b></a>",
        "<?xml encoding='&#x55;TF-8'?><\xEF\xBB\xBF"
        "a><\xEF\xBB\xBF"
        "b></b></a>",
        "<?xml encoding='latin'?><?xml encoding='UTF-8'?><\xEF\xBB\xBF"
        "a><\xEF\xBB\xBF"
        "b></b></a>",
        "<?xml?><\xC3\xA9><\xF0\x9F\x93\xBC>\xE2\x82\xAC</\xF0\x9F\x93\xBC></\xC3\xA9>",
        "<a><?xml encoding='x'?><b/></a>",
        std::string("<a><b>\0</b></a>", 15),
    };
    for (const std::string& text : texts) {
        expect_agreement(text);
    }
}

TEST(NestingScan, AgreesWithTheParserOnTextsPutTogetherAtRandom) {
    const std::vector<std::string> pieces{"<a>",
                                          "<b>",
                                          "</a>",
                                          "</b>",
                                          "<a/>",
                                          "<!--",
                                          "-->",
                                          "<![CDATA[",
                                          "]]>",
                                          "<?xml",
                                          "?>",
                                          ">",
                                          "<",
                                          "/",
                                          "'",
                                          "\"",
                                          " v='",
                                          " w=\"",
                                          "=",
                                          "&#x",
                                          "x41;",
                                          "&#6;",
                                          ";",
                                          "&lt;",
                                          "text",
                                          " ",
                                          "\n",
                                          "<!X",
                                          "<? ",
                                          "a",
                                          "\xEF\xBB\xBF",
                                          "\xC3\xA9",
                                          " encoding='utf-8'",
                                          "#",
                                          "<_",
                                          "</",
                                          "<a x='1'",
                                          " y=\"<b>\"",
                                          " z=4",
                                          "<b>"};
    std::mt19937 random(20261116);
    std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<std::size_t> length(1, 24);
    std::size_t deep_texts = 0;
    std::size_t texts_with_attributes = 0;
    for (int round = 0; round < 60'000; ++round) {
        std::string text;
        for (std::size_t i = length(random); i > 0; --i) {
            text += pieces[pick(random)];
        }
        TiXmlDocument document;
        document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
        const std::size_t depth = parsed_depth(document);
        ASSERT_FALSE(nests_deeper_than(text, depth)) << text << " seems deeper than " << depth;
        if (depth > 0) {
            ASSERT_TRUE(nests_deeper_than(text, depth - 1)) << text << " seems flatter than " << depth;
        }
        const std::size_t attributes = most_attributes(document);
        if (attributes > 0) {
            ASSERT_TRUE(has_more_attributes_than(text, attributes - 1)) << text << " seems to have fewer than " << attributes;
        }
        ASSERT_FALSE(has_more_attributes_than(text, attributes)) << text << " seems to have more than " << attributes;
        deep_texts += depth > 2 ? 1 : 0;
        texts_with_attributes += attributes > 1 ? 1 : 0;
    }
    EXPECT_GT(deep_texts, 100U) << "the texts no longer nest";
    EXPECT_GT(texts_with_attributes, 100U) << "the texts no longer have attributes";
}

TEST(NestingScan, TellsWhatIsExceededFirst) {
    EXPECT_EQ(winxml::first_excess("<a x='1'><b/></a>", {1, 0}), winxml::excess::attributes);
    EXPECT_EQ(winxml::first_excess("<a><b x='1'/></a>", {1, 0}), winxml::excess::depth);
    EXPECT_EQ(winxml::first_excess("<a x='1'><b/></a>", {2, 1}), winxml::excess::none);
}

class Attributes : public ::testing::Test {
protected:
    static std::string element_with(std::size_t attributes) {
        std::string text = "<a";
        for (std::size_t i = 0; i < attributes; ++i) {
            text += " a" + std::to_string(i) + "=''";
        }
        return text + "/>";
    }

    platform::testing::test_system system_;
};

TEST_F(Attributes, UpToTheLimitParse) {
    EXPECT_NO_THROW((void)winxml::parse_xml(text::utf8_to_wide(element_with(winxml::max_attributes))));
}

TEST_F(Attributes, BeyondTheLimitAreAParseFailure) {
    for (const std::size_t attributes : {winxml::max_attributes + 1, std::size_t{200'000}}) {
        const std::string content = element_with(attributes);
        try {
            (void)winxml::parse_xml(text::utf8_to_wide(content));
            FAIL();
        } catch (const exc::exc_base_t& e) {
            EXPECT_EQ(e.what(), "XML error: [An element has too many attributes.]. Error code: [" +
                                    std::to_string(TiXmlBase::TIXML_ERROR_READING_ATTRIBUTES) +
                                    "].\n--tr:Failed to parse XML content. Source content: [" + winxml::cut_for_message(content) +
                                    "].");
        }
    }
}

class Depth : public ::testing::Test {
protected:
    static std::u16string nested(std::size_t depth) { return text::utf8_to_wide(repeated("<a>", depth) + repeated("</a>", depth)); }

    platform::testing::test_system system_;
};

TEST_F(Depth, UpToTheLimitParses) {
    EXPECT_NO_THROW((void)winxml::parse_xml(nested(winxml::max_depth)));
}

TEST_F(Depth, BeyondTheLimitIsAParseFailure) {
    for (const std::size_t depth : {winxml::max_depth + 1, std::size_t{100'000}}) {
        const std::string content = text::wide_to_utf8(nested(depth));
        try {
            (void)winxml::parse_xml(nested(depth));
            FAIL();
        } catch (const exc::exc_base_t& e) {
            EXPECT_EQ(e.what(),
                      "XML error: [Elements are nested too deeply.]. Error code: [3].\n"
                      "--tr:Failed to parse XML content. Source content: [" +
                          winxml::cut_for_message(content) + "].");
        }
    }
}

TEST_F(Depth, UnclosedElementsCountToo) {
    EXPECT_THROW((void)winxml::parse_xml(text::utf8_to_wide(repeated("<a x='1'>", 100'000))), exc::exc_base_t);
    EXPECT_THROW((void)winxml::parse_xml(text::utf8_to_wide(repeated("<a b=\"'\">", 100'000))), exc::exc_base_t);
    EXPECT_THROW((void)winxml::parse_xml(text::utf8_to_wide("<!-- a --><r>" + repeated("t<a>", 100'000))), exc::exc_base_t);
}

TEST_F(Depth, FlatTextsOfAnySizeParse) {
    EXPECT_NO_THROW((void)winxml::parse_xml(text::utf8_to_wide("<r>" + repeated("<a x='1'/>", 20'000) + "</r>")));
    EXPECT_NO_THROW((void)winxml::parse_xml(text::utf8_to_wide("<r><!--" + repeated("<a>", 20'000) + "--></r>")));
    EXPECT_NO_THROW((void)winxml::parse_xml(text::utf8_to_wide("<r><![CDATA[" + repeated("<a>", 20'000) + "]]></r>")));
    EXPECT_NO_THROW((void)winxml::parse_xml(text::utf8_to_wide("<r v='" + repeated("<a>", 20'000) + "'/>")));
    EXPECT_NO_THROW((void)winxml::parse_xml(text::utf8_to_wide("<r>" + repeated("&lt;a&gt;", 20'000) + "</r>")));
}

}  // namespace
