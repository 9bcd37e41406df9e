#include "foundation/winxml/xml_printer.h"

#include <gtest/gtest.h>

#include <random>

namespace {

std::string reference(const TiXmlDocument& document) {
    TiXmlPrinter printer;
    printer.SetIndent("");
    printer.SetLineBreak("");
    document.Accept(&printer);
    return printer.Str();
}

std::string printed(const TiXmlDocument& document) {
    std::string output;
    winxml::xml_printer_t printer(output);
    document.Accept(&printer);
    return output;
}

std::string with_value(const std::string& value) {
    TiXmlDocument document;
    auto* root = new TiXmlElement("r");
    root->SetAttribute(std::string("v"), value);
    root->SetAttribute(value, std::string("n"));
    auto* child = new TiXmlElement("c");
    child->LinkEndChild(new TiXmlText(value));
    root->LinkEndChild(child);
    document.LinkEndChild(root);
    EXPECT_EQ(printed(document), reference(document));
    return printed(document);
}

TEST(XmlPrinter, PrintsEveryKindOfNode) {
    const std::vector<std::string> texts{
        "<a/>",
        "<a></a>",
        "<a>text</a>",
        "<a>text<b/>more</a>",
        "<a><b/>more</a>",
        "<a><![CDATA[<x> & ]]></a>",
        "<a><![CDATA[1]]>text</a>",
        "<a>text<![CDATA[1]]></a>",
        "<a><!-- c --></a>",
        "<?xml version='1.0' encoding=\"UTF-8\" standalone='yes'?><!DOCTYPE a><!-- c --><a/><b x='1' y='2'>t</b>",
        "<?xml?><a/>",
        "<a v='say \"x\"' w=\"it's\"/>",
        "<a><b><c>1</c><c>2</c></b></a>",
    };
    for (const std::string& text : texts) {
        TiXmlDocument document;
        document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
        ASSERT_FALSE(document.Error()) << text;
        EXPECT_EQ(printed(document), reference(document)) << text;
    }
}

TEST(XmlPrinter, EscapesAsTheLibraryDoes) {
    EXPECT_EQ(with_value("<&>'\"\x01\x1F\x7F\xC3\xA9"),
              "<r v='&lt;&amp;&gt;&apos;&quot;&#x01;&#x1F;\x7F\xC3\xA9' &lt;&amp;&gt;&apos;&quot;&#x01;&#x1F;\x7F\xC3\xA9=\"n\">"
              "<c>&lt;&amp;&gt;&apos;&quot;&#x01;&#x1F;\x7F\xC3\xA9</c></r>");
    EXPECT_EQ(with_value(""), "<r v=\"\" =\"n\"><c></c></r>");
}

TEST(XmlPrinter, EscapesWhatLooksLikeAReferenceToo) {
    for (const char* value : {"&#x", "&#xA9;", "&#xA9", "&#x<b>;<", "&#x<b>", "&#x;", "a&#x41;&#x<", "&#x&", "&#65;", "&#", "&",
                              "x&#x\x01;\x01", "&#x&#x41;&", "&#x41;"}) {
        (void)with_value(value);
    }
    EXPECT_EQ(with_value("&#xA9;&"), "<r v=\"&amp;#xA9;&amp;\" &amp;#xA9;&amp;=\"n\"><c>&amp;#xA9;&amp;</c></r>");
}

TEST(XmlPrinter, AgreesWithTheLibraryOnTextsPutTogetherAtRandom) {
    const std::vector<std::string> pieces{"&", "#", "x", "&#x", ";", "<", ">", "'", "\"", "a", "4", "\n", "\x01", "\xC3\xA9", " "};
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<std::size_t> length(0, 12);
    for (int round = 0; round < 20'000; ++round) {
        std::string value;
        for (std::size_t i = length(random); i > 0; --i) {
            value += pieces[pick(random)];
        }
        (void)with_value(value);
        ASSERT_FALSE(HasFailure()) << value;
    }
}

}  // namespace
