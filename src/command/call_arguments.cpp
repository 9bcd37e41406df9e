#include "command/call_arguments.h"

#include "foundation/exc/exceptions.h"
#include "foundation/text/ascii.h"
#include "foundation/text/conversion.h"

namespace {

constexpr std::string_view output_root = "OutputArguments";

void append_record_text(std::u16string& out, std::string_view text, bool ascii) {
    if (ascii) {
        text::append_widened_ascii(out, text);
    } else {
        out.append(text::utf8_to_wide_lenient(text));
    }
}

}  // namespace

CInputArguments::CInputArguments(std::u16string_view text) : document_(winxml::parse_xml(text)) {}

std::u16string CInputArguments::get_wstring_argument(std::string_view name) const {
    return winxml::get_wstring_argument(document_, name);
}

std::string CInputArguments::get_string_argument(std::string_view name) const {
    return winxml::get_string_argument(document_, name);
}

std::int32_t CInputArguments::get_int_argument(std::string_view name) const {
    return winxml::get_int_argument(document_, name);
}

bool CInputArguments::get_bool_argument(std::string_view name) const {
    return winxml::get_bool_argument(document_, name);
}

std::uint64_t CInputArguments::get_uint64_argument(std::string_view name) const {
    return winxml::get_uint64_argument(document_, name);
}

winxml::node_t CInputArguments::find_argument(std::string_view name) const {
    return winxml::find_argument(document_, name);
}

COutputArguments::COutputArguments()
    : document_(winxml::create_document()), root_(winxml::add_element(winxml::document_node(document_), output_root)) {}

winxml::node_t COutputArguments::add_child(std::string_view name) {
    winxml::node_t child = winxml::add_element(root_, name);
    ++children_;
    return child;
}

void COutputArguments::Set(std::string_view name, std::u16string_view value) {
    winxml::set_attribute(add_child(name), "value", text::wide_to_utf8(value));
}

void COutputArguments::Set(std::string_view name, std::string_view value) {
    Set(name, text::utf8_to_wide(value));
}

void COutputArguments::Set(std::string_view name, std::int32_t value) {
    winxml::set_attribute(add_child(name), "value", value);
}

void COutputArguments::Set(std::string_view name, bool value) {
    winxml::set_attribute(add_child(name), "value", value);
}

void COutputArguments::SetDeviceText(std::string_view name, std::string_view text) {
    Set(name, text::utf8_to_wide_lenient(text));
}

void COutputArguments::SetRecord(std::string_view name, const winxml::document_t& record) {
    SetDeviceText(name, winxml::serialize_xml(record));
}

void COutputArguments::SetRecord(std::string_view name, winxml::record_stream_t&& record) {
    add_child(name);
    streams_.push_back({children_ - 1, std::string(name), std::move(record)});
}

winxml::node_t COutputArguments::AddElement(std::string_view name) {
    return add_child(name);
}

std::u16string COutputArguments::TakeText() {
    try {
        return streams_.empty() ? text::utf8_to_wide(winxml::serialize_xml(document_)) : take_text_with_streams();
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to serialize XML document.", e);
    }
}

std::u16string COutputArguments::take_text_with_streams() {
    std::u16string out;
    const std::vector<winxml::node_t> children = winxml::child_elements(root_);
    std::size_t next_stream = 0;
    text::append_widened_ascii(out, "<OutputArguments>");
    for (std::size_t position = 0; position < children.size(); ++position) {
        if (next_stream == streams_.size() || streams_[next_stream].position != position) {
            out.append(text::utf8_to_wide(winxml::serialize_xml(children[position])));
            continue;
        }
        const streamed_child child = std::move(streams_[next_stream++]);
        const winxml::record_stream_t::text_pieces pieces = child.record.pieces();
        // The printer puts a value that holds a double quotation mark between apostrophes.
        const std::string_view quote = child.record.has_double_quote() ? "'" : "\"";
        out.reserve(out.size() + child.name.size() + pieces.opening.size() + pieces.records.size() + pieces.end.size() + 64);
        text::append_widened_ascii(out, "<" + child.name + " value=" + std::string(quote));
        append_record_text(out, pieces.opening, child.record.is_ascii());
        append_record_text(out, pieces.records, child.record.is_ascii());
        text::append_widened_ascii(out, pieces.end);
        text::append_widened_ascii(out, std::string(quote) + " />");
    }
    text::append_widened_ascii(out, "</OutputArguments>");
    return out;
}

void WriteJobList(const winxml::node_t& parent, const job_lock_set& jobs) {
    try {
        for (const auto& [console, job] : jobs) {
            const winxml::node_t item = winxml::add_element(parent, "item");
            winxml::set_attribute(item, "BackupConsole", text::wide_to_utf8(console));
            winxml::set_attribute(item, "JobName", text::wide_to_utf8(job));
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to serialize list of jobs.", e);
    }
}
