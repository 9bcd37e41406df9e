#pragma once

#include <tinyxml.h>

#include <string>
#include <string_view>

namespace winxml {

/// Prints nodes as TiXmlPrinter does with an empty indentation and an empty line break, to the byte, but in time that only the
/// text's length decides: runs of ordinary characters are copied at once, and nothing is built twice.
class xml_printer_t : public TiXmlVisitor {
public:
    /// Appends to `output`, which has to outlive the printer.
    explicit xml_printer_t(std::string& output) : output_(&output) {}

    bool VisitEnter(const TiXmlDocument& document) override;
    bool VisitExit(const TiXmlDocument& document) override;
    bool VisitEnter(const TiXmlElement& element, const TiXmlAttribute* first_attribute) override;
    bool VisitExit(const TiXmlElement& element) override;
    bool Visit(const TiXmlDeclaration& declaration) override;
    bool Visit(const TiXmlText& text) override;
    bool Visit(const TiXmlComment& comment) override;
    bool Visit(const TiXmlUnknown& unknown) override;

private:
    void print_attribute(const TiXmlAttribute& attribute);
    void print_escaped(std::string_view value);

    std::string* output_;
};

}  // namespace winxml
