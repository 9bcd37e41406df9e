#include "foundation/winxml/xml.h"

#include <tinyxml.h>

#include <boost/make_shared.hpp>
#include <memory>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/winxml/list_child.h"
#include "foundation/winxml/nesting_scan.h"
#include "foundation/winxml/xml_printer.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/system.h"

namespace winxml {

/// Makes and opens the handles; the rest of the system sees them closed.
struct node_access {
    static node_t element(const document_t& document, TiXmlElement* element) { return {document, element}; }

    static node_t document(const document_t& document) {
        node_t node(document, nullptr);
        node.is_document_ = true;
        return node;
    }

    static TiXmlElement* element_of(const node_t& node) { return node.element_; }

    /// Null when the node is absent.
    static TiXmlNode* parent_of(const node_t& node) {
        if (node.is_document_) {
            return node.document_.get();
        }
        return node.element_;
    }
};

namespace {

constexpr std::size_t longest_quoted = 128;
constexpr std::size_t read_block = std::size_t{64} * 1024;

/// TinyXML keeps its texts as terminated ones in part, so what stands behind a terminator is left out everywhere.
std::string terminated(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

[[noreturn]] void throw_parse_error(const char* description, int id) {
    const std::string code = text::to_string(std::int32_t{id});
    if (description == nullptr || *description == '\0') {
        throw exc::exc_base_t(text::format_message("XML error: [%1].", code));
    }
    throw exc::exc_base_t(text::format_message("XML error: [%1]. Error code: [%2].", std::string_view(description), code));
}

document_t parse_utf8(const std::string& content) {
    switch (first_excess(content, {max_depth, max_attributes})) {
        case excess::none:
            break;
        case excess::depth:
            throw_parse_error("Elements are nested too deeply.", TiXmlBase::TIXML_ERROR_PARSING_ELEMENT);
        case excess::attributes:
            throw_parse_error("An element has too many attributes.", TiXmlBase::TIXML_ERROR_READING_ATTRIBUTES);
    }
    auto document = boost::make_shared<TiXmlDocument>();
    document->Parse(content.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    if (document->Error()) {
        throw_parse_error(document->ErrorDesc(), document->ErrorId());
    }
    return document;
}

/// The whole file; false when it can't be read.
bool read_file(const text::wide_string& path, std::string& content) {
    std::unique_ptr<platform::file> file;
    if (platform::system().files->open_file(path, platform::file_access::read, platform::file_share::read,
                                            platform::file_open_mode::open_existing, file) != platform::error::success) {
        return false;
    }
    std::vector<std::uint8_t> block(read_block);
    for (;;) {
        std::size_t count = 0;
        if (file->read(block, count) != platform::error::success) {
            return false;
        }
        if (count == 0) {
            return true;
        }
        content.append(reinterpret_cast<const char*>(block.data()), count);
    }
}

/// Line ends of every kind become line feeds, and bytes that aren't UTF-8 become replacement characters: the parser reads on
/// behind the end of a text whose last sequence is cut off.
std::string normalise_file(std::string content) {
    content = text::replace_all(std::move(content), "\r\n", "\n");
    content = text::replace_all(std::move(content), "\r", "\n");
    return text::wide_to_utf8(text::utf8_to_wide_lenient(content));
}

std::string print(const TiXmlNode* node) {
    if (node == nullptr) {
        throw exc::runtime_exc_t("XML node is not specified.");
    }
    std::string output;
    xml_printer_t printer(output);
    node->Accept(&printer);
    return output;
}

void require_parent(const TiXmlNode* parent, std::string_view pattern, std::string_view name) {
    if (parent == nullptr) {
        throw exc::runtime_exc_t(pattern, name);
    }
}

}  // namespace

document_t create_document() {
    return boost::make_shared<TiXmlDocument>();
}

document_t parse_xml(std::u16string_view text) {
    const std::string content = text::wide_to_utf8(text);
    try {
        return parse_utf8(content);
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to parse XML content. Source content: [%1].", cut_for_message(content), e);
    }
}

document_t load_xml_file(const text::wide_string& path) {
    std::string content;
    if (read_file(path, content)) {
        try {
            return parse_utf8(normalise_file(std::move(content)));
        } catch (const exc::exc_base_t& e) {
            g_libraryLog.LogWarning(e);
        }
    }
    throw exc::runtime_exc_t("Cannot load file '%1'", text::wide_to_utf8(path));
}

std::string serialize_xml(const document_t& document) {
    try {
        return print(document.get());
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to serialize XML document.", e);
    }
}

std::string serialize_xml(const node_t& node) {
    try {
        return print(node_access::parent_of(node));
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to serialize XML document.", e);
    }
}

node_t document_node(const document_t& document) {
    if (document == nullptr) {
        throw exc::runtime_exc_t("Failed to convert document to node");
    }
    return node_access::document(document);
}

node_t add_element(const node_t& parent, std::string_view name) {
    const std::string own_name = terminated(name);
    TiXmlNode* parent_node = node_access::parent_of(parent);
    require_parent(parent_node, "Failed to create XML element [%1]. Parent node is not specified.", own_name);
    TiXmlNode* linked = parent_node->LinkEndChild(new TiXmlElement(own_name.c_str()));
    if (linked == nullptr) {
        throw exc::runtime_exc_t("Failed to link XML element to node");
    }
    TiXmlElement* element = linked->ToElement();
    if (element == nullptr) {
        throw exc::runtime_exc_t("Failed to cast new XML node to element");
    }
    return node_access::element(parent.document(), element);
}

void add_list(const node_t& parent, const record_stream_t& list) {
    const std::string text = list.text();
    TiXmlNode* parent_node = node_access::parent_of(parent);
    require_parent(parent_node, "Failed to create XML element [%1]. Parent node is not specified.", cut_for_message(text));
    // The library's node for markup that it doesn't read: it keeps what stands between the first and the last bracket.
    auto markup = std::make_unique<TiXmlUnknown>();
    markup->SetValue(text.substr(1, text.size() - 2));
    if (parent_node->LinkEndChild(markup.release()) == nullptr) {
        throw exc::runtime_exc_t("Failed to link XML element to node");
    }
}

node_t find_element(const node_t& parent, std::string_view name) {
    const std::string own_name = terminated(name);
    TiXmlNode* parent_node = node_access::parent_of(parent);
    require_parent(parent_node, "Failed to retrieve XML element [%1]. Parent node is not specified.", own_name);
    if (TiXmlElement* exact = parent_node->FirstChildElement(own_name.c_str())) {
        return node_access::element(parent.document(), exact);
    }
    for (TiXmlElement* child = parent_node->FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
        if (text::compare_no_case(std::string_view(child->Value()), own_name) == 0) {
            g_libraryLog.LogWarning(
                "[winxml] Found XML element with case-insensitive search, this is deprecated and will stop working in the future. "
                "Expected name: [%1], got [%2] instead.",
                own_name, child->Value());
            return node_access::element(parent.document(), child);
        }
    }
    return {};
}

node_t get_element(const node_t& parent, std::string_view name) {
    node_t found = find_element(parent, name);
    if (!found) {
        throw exc::runtime_exc_t("Failed to retrieve XML element [%1]. Element doesn't exist.", name);
    }
    return found;
}

std::vector<node_t> child_elements(const node_t& parent) {
    std::vector<node_t> children;
    TiXmlNode* parent_node = node_access::parent_of(parent);
    for (TiXmlNode* child = parent_node == nullptr ? nullptr : parent_node->FirstChild(); child != nullptr;
         child = child->NextSibling()) {
        TiXmlElement* element = child->ToElement();
        if (element == nullptr) {
            throw exc::runtime_exc_t("Failed to cast XML node to element");
        }
        children.push_back(node_access::element(parent.document(), element));
    }
    return children;
}

std::string element_name(const node_t& node) {
    const TiXmlElement* element = node_access::element_of(node);
    return element == nullptr ? std::string() : element->Value();
}

void set_text(const node_t& node, std::string_view value) {
    TiXmlElement* element = node_access::element_of(node);
    if (element == nullptr) {
        throw exc::runtime_exc_t("XML node is not specified.");
    }
    element->LinkEndChild(new TiXmlText(terminated(value)));
}

std::string get_text(const node_t& node) {
    const TiXmlElement* element = node_access::element_of(node);
    if (element == nullptr) {
        throw exc::runtime_exc_t("XML node is not specified.");
    }
    const char* text = element->GetText();
    return text == nullptr ? std::string() : text;
}

void set_attribute(const node_t& node, std::string_view name, std::string_view value) {
    try {
        TiXmlElement* element = node_access::element_of(node);
        if (element == nullptr) {
            throw exc::runtime_exc_t("XML node is not specified.");
        }
        element->SetAttribute(terminated(name), terminated(value));
    } catch (std::exception& e) {
        exc::rethrow_with_message("Failed to set attribute value. Attribute: [%1]. Value: [%2].", name, value, e);
    }
}

void set_attribute(const node_t& node, std::string_view name, const char* value) {
    set_attribute(node, name, std::string_view(value));
}

void set_attribute(const node_t& node, std::string_view name, bool value) {
    set_attribute(node, name, std::string_view(value ? "true" : "false"));
}

void set_attribute(const node_t& node, std::string_view name, std::int32_t value) {
    set_attribute(node, name, std::string_view(text::to_string(value)));
}

std::string get_attribute(const node_t& node, std::string_view name) {
    const std::string own_name = terminated(name);
    const TiXmlElement* element = node_access::element_of(node);
    const char* value = element == nullptr ? nullptr : element->Attribute(own_name.c_str());
    if (value == nullptr) {
        throw exc::runtime_exc_t("Attribute value is not specified. Attribute: [%1].", own_name);
    }
    return value;
}

std::string cut_for_message(std::string_view text) {
    if (text.size() <= longest_quoted) {
        return std::string(text);
    }
    return text::format_message("%1..., length: %2", text.substr(0, longest_quoted), text::to_string(std::uint64_t{text.size()}));
}

}  // namespace winxml
