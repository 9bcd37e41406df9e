#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace winxml {

/// How a stream's text is to be used: as a document of its own, or as the escaped value of an attribute of another document.
enum class record_form : std::uint8_t { document, attribute_value };

/// One element of a record: its name and its attributes in order; at least one attribute.
struct element_shape {
    std::string_view name;
    std::span<const std::string_view> attributes;
};

/// A record: an element, and its children, which have none of their own.
struct record_shape {
    element_shape element;
    std::span<const element_shape> children;
};

/// The constant text between a record's values, made once for a list.
class record_layout_t {
public:
    record_layout_t(const record_shape& shape, record_form form);

private:
    friend class record_stream_t;

    std::vector<std::string> openings_;  ///< what stands before each value, its opening quote included
    std::string end_;
};

/// Writes a root element with a long list of equal records, as the same bytes that the document layer would print, in one
/// pass and without a tree. The root's attributes may be set after the records. Used by one thread.
class record_stream_t {
public:
    record_stream_t(std::string_view root_name, record_form form);

    /// Tells how many records are to come, so that the text grows once.
    void expect_records(std::size_t count) { expected_records_ = count; }

    /// Starts a record. Its values follow in the layout's order, all of them; then `end_record`.
    void begin_record(const record_layout_t& layout);
    void value(std::string_view text);
    void value(std::uint32_t number);
    void value(std::int32_t number);
    void end_record();

    void root_attribute(std::string_view name, std::string_view value);

    /// The text: the root's opening, the records, the root's end.
    struct text_pieces {
        std::string opening;
        std::string_view records;
        std::string end;
    };
    [[nodiscard]] text_pieces pieces() const;
    /// The whole text in one.
    [[nodiscard]] std::string text() const;

    [[nodiscard]] record_form form() const { return form_; }
    /// Whether every byte of the text is ASCII.
    [[nodiscard]] bool is_ascii() const { return ascii_; }
    /// Whether the document form of the text holds a double quotation mark.
    [[nodiscard]] bool has_double_quote() const { return double_quote_; }

private:
    template <typename Number>
    void append_number(Number number);
    void append_quoted_value(std::string& out, std::string_view text);
    void append_escaped(std::string& out, std::string_view text);

    std::string root_name_;
    record_form form_;
    std::string root_attributes_;
    std::string records_;
    std::string scratch_;
    std::string_view quote_;
    std::string_view apostrophe_;
    const record_layout_t* layout_ = nullptr;
    std::size_t next_value_ = 0;
    std::size_t expected_records_ = 0;
    bool ascii_ = true;
    bool double_quote_ = false;
};

/// Appends a value as the document layer escapes it. True when all bytes were ASCII.
bool append_escaped_value(std::string& out, std::string_view value);

}  // namespace winxml
