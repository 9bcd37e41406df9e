#include "foundation/winxml/record_stream.h"

#include <charconv>

namespace winxml {

namespace {

enum byte_class : std::uint8_t { plain_byte = 0, escaped_byte = 1, high_byte = 2 };

constexpr std::array<std::uint8_t, 256> make_byte_classes() {
    std::array<std::uint8_t, 256> classes{};
    for (std::size_t code = 0; code < classes.size(); ++code) {
        classes[code] = code < 0x20 ? escaped_byte : code >= 0x80 ? high_byte : plain_byte;
    }
    for (const char special : {'&', '<', '>', '"', '\''}) {
        classes[static_cast<unsigned char>(special)] = escaped_byte;
    }
    return classes;
}

constexpr std::array<std::uint8_t, 256> byte_classes = make_byte_classes();

std::uint8_t class_of(char character) {
    return byte_classes[static_cast<unsigned char>(character)];
}

std::uint8_t classes_in(std::string_view text) {
    std::uint8_t seen = 0;
    for (const char character : text) {
        seen |= class_of(character);
    }
    return seen;
}

void append_special(std::string& out, char character) {
    static constexpr char digits[] = "0123456789ABCDEF";
    switch (character) {
        case '&':
            out.append("&amp;");
            break;
        case '<':
            out.append("&lt;");
            break;
        case '>':
            out.append("&gt;");
            break;
        case '"':
            out.append("&quot;");
            break;
        case '\'':
            out.append("&apos;");
            break;
        default: {
            const auto code = static_cast<unsigned char>(character);
            const char reference[] = {'&', '#', 'x', digits[code >> 4], digits[code & 0xF], ';'};
            out.append(reference, sizeof(reference));
            break;
        }
    }
}

std::string in_form(std::string_view text, record_form form) {
    std::string result;
    if (form == record_form::document) {
        result = text;
    } else {
        append_escaped_value(result, text);
    }
    return result;
}

}  // namespace

bool append_escaped_value(std::string& out, std::string_view value) {
    bool ascii = true;
    std::size_t run = 0;
    std::size_t at = 0;
    while (at < value.size()) {
        const std::uint8_t kind = class_of(value[at]);
        if (kind == escaped_byte) {
            out.append(value, run, at - run);
            append_special(out, value[at]);
            ++at;
            run = at;
        } else {
            ascii = ascii && kind == plain_byte;
            ++at;
        }
    }
    out.append(value, run, at - run);
    return ascii;
}

record_layout_t::record_layout_t(const record_shape& shape, record_form form) {
    std::string before;
    const auto open_element = [&](const element_shape& element) {
        before.append("<").append(element.name);
        for (const std::string_view attribute : element.attributes) {
            before.append(" ").append(attribute).append("=\"");
            openings_.push_back(in_form(before, form));
            before.clear();
        }
    };
    open_element(shape.element);
    for (std::size_t index = 0; index < shape.children.size(); ++index) {
        before = index == 0 ? ">" : " />";
        open_element(shape.children[index]);
    }
    before = " />";
    if (!shape.children.empty()) {
        before.append("</").append(shape.element.name).append(">");
    }
    end_ = in_form(before, form);
}

record_stream_t::record_stream_t(std::string_view root_name, record_form form)
    : root_name_(root_name),
      form_(form),
      quote_(form == record_form::document ? "\"" : "&quot;"),
      apostrophe_(form == record_form::document ? "'" : "&apos;") {}

void record_stream_t::begin_record(const record_layout_t& layout) {
    layout_ = &layout;
    next_value_ = 0;
}

void record_stream_t::value(std::string_view text) {
    records_.append(layout_->openings_[next_value_++]);
    if (classes_in(text) == plain_byte) {
        double_quote_ = true;
        records_.append(text).append(quote_);
        return;
    }
    records_.resize(records_.size() - quote_.size());
    append_quoted_value(records_, text);
}

void record_stream_t::value(std::uint32_t number) {
    append_number(number);
}

void record_stream_t::value(std::int32_t number) {
    append_number(number);
}

template <typename Number>
void record_stream_t::append_number(Number number) {
    records_.append(layout_->openings_[next_value_++]);
    double_quote_ = true;
    std::array<char, 11> digits;
    const std::to_chars_result result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    records_.append(digits.data(), static_cast<std::size_t>(result.ptr - digits.data())).append(quote_);
}

void record_stream_t::end_record() {
    records_.append(layout_->end_);
    if (expected_records_ != 0) {
        // The records of one list differ little in length; an eighth more spares all but odd lists a second growth.
        records_.reserve(records_.size() * expected_records_ / 8 * 9);
        expected_records_ = 0;
    }
}

void record_stream_t::root_attribute(std::string_view name, std::string_view value) {
    root_attributes_.append(" ").append(name).append("=");
    append_quoted_value(root_attributes_, value);
}

record_stream_t::text_pieces record_stream_t::pieces() const {
    const std::string name(root_name_);
    text_pieces result;
    result.opening = in_form("<" + name, form_) + root_attributes_ + in_form(records_.empty() ? " />" : ">", form_);
    result.records = records_;
    if (!records_.empty()) {
        result.end = in_form("</" + name + ">", form_);
    }
    return result;
}

std::string record_stream_t::text() const {
    const text_pieces all = pieces();
    std::string result;
    result.reserve(all.opening.size() + all.records.size() + all.end.size());
    result.append(all.opening).append(all.records).append(all.end);
    return result;
}

/// A value that holds a double quotation mark stands between apostrophes, as the document layer prints it.
void record_stream_t::append_quoted_value(std::string& out, std::string_view text) {
    const bool between_apostrophes = text.find('"') != std::string_view::npos;
    double_quote_ = double_quote_ || !between_apostrophes;
    out.append(between_apostrophes ? apostrophe_ : quote_);
    append_escaped(out, text);
    out.append(between_apostrophes ? apostrophe_ : quote_);
}

void record_stream_t::append_escaped(std::string& out, std::string_view text) {
    if (form_ == record_form::document) {
        ascii_ = append_escaped_value(out, text) && ascii_;
        return;
    }
    scratch_.clear();
    ascii_ = append_escaped_value(scratch_, text) && ascii_;
    append_escaped_value(out, scratch_);
}

}  // namespace winxml
