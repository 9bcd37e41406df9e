#include "foundation/winxml/xml_printer.h"

#include <array>

namespace winxml {

namespace {

/// Bytes that don't stand for themselves on output.
constexpr std::array<bool, 256> special_bytes = [] {
    std::array<bool, 256> table{};
    for (std::size_t i = 0; i < 32; ++i) {
        table[i] = true;
    }
    for (const char c : {'&', '<', '>', '"', '\''}) {
        table[static_cast<unsigned char>(c)] = true;
    }
    return table;
}();

std::string_view entity_of(char c) {
    switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&apos;";
        default:
            return {};
    }
}

}  // namespace

bool xml_printer_t::VisitEnter(const TiXmlDocument& /*document*/) {
    return true;
}

bool xml_printer_t::VisitExit(const TiXmlDocument& /*document*/) {
    return true;
}

bool xml_printer_t::VisitEnter(const TiXmlElement& element, const TiXmlAttribute* first_attribute) {
    *output_ += '<';
    *output_ += element.Value();
    for (const TiXmlAttribute* attribute = first_attribute; attribute != nullptr; attribute = attribute->Next()) {
        *output_ += ' ';
        print_attribute(*attribute);
    }
    *output_ += element.FirstChild() == nullptr ? " />" : ">";
    return true;
}

bool xml_printer_t::VisitExit(const TiXmlElement& element) {
    if (element.FirstChild() != nullptr) {
        *output_ += "</";
        *output_ += element.Value();
        *output_ += '>';
    }
    return true;
}

bool xml_printer_t::Visit(const TiXmlDeclaration& declaration) {
    // Rare and short: the library's own form.
    declaration.Print(nullptr, 0, output_);
    return true;
}

bool xml_printer_t::Visit(const TiXmlText& text) {
    if (text.CDATA()) {
        *output_ += "<![CDATA[";
        *output_ += text.Value();
        *output_ += "]]>";
    } else {
        print_escaped(text.ValueStr());
    }
    return true;
}

bool xml_printer_t::Visit(const TiXmlComment& comment) {
    *output_ += "<!--";
    *output_ += comment.Value();
    *output_ += "-->";
    return true;
}

bool xml_printer_t::Visit(const TiXmlUnknown& unknown) {
    *output_ += '<';
    *output_ += unknown.Value();
    *output_ += '>';
    return true;
}

void xml_printer_t::print_attribute(const TiXmlAttribute& attribute) {
    const std::string& value = attribute.ValueStr();
    // A value that holds a quotation mark stands in apostrophes.
    const char quote = value.find('"') == std::string::npos ? '"' : '\'';
    print_escaped(attribute.NameTStr());
    *output_ += '=';
    *output_ += quote;
    print_escaped(value);
    *output_ += quote;
}

void xml_printer_t::print_escaped(std::string_view value) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::size_t at = 0;
    while (at < value.size()) {
        std::size_t run = at;
        while (run < value.size() && !special_bytes[static_cast<unsigned char>(value[run])]) {
            ++run;
        }
        output_->append(value.substr(at, run - at));
        at = run;
        if (at == value.size()) {
            return;
        }
        const char c = value[at];
        if (static_cast<unsigned char>(c) < 32) {
            *output_ += "&#x";
            *output_ += digits[static_cast<std::size_t>(c) >> 4];
            *output_ += digits[static_cast<std::size_t>(c) & 0xF];
            *output_ += ';';
        } else {
            *output_ += entity_of(c);
        }
        ++at;
    }
}

}  // namespace winxml
