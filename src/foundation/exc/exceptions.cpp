#include "foundation/exc/exceptions.h"

#include <boost/make_shared.hpp>

#include "foundation/logging/log_writer.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/system.h"

namespace exc {

namespace {

constexpr std::int32_t first_event = 1;
constexpr std::int32_t last_event = 7;

/// 0 before a system is installed: an exception can be born that early.
std::uint32_t current_thread() {
    platform::process* process = platform::system().process;
    return process == nullptr ? 0 : process->current_thread_id();
}

trace_info_t load_trace_info(CBufReader& reader) {
    trace_info_t info;
    const std::int32_t parameters = reader.read_int32();
    for (std::int32_t i = 0; i < parameters; ++i) {
        std::string key = reader.read_string();
        info.parameters.emplace(std::move(key), reader.read_string());
    }
    const std::int32_t events = reader.read_int32();
    for (std::int32_t i = 0; i < events; ++i) {
        trace_event_t event;
        event.event = reader.read_int32();
        event.info = reader.read_string();
        if (event.event < first_event || event.event > last_event) {
            g_libraryLog.LogWarning("Unexpected trace event: [%1]. Info: %2.", text::to_string(event.event), event.info);
            continue;
        }
        info.events.push_back(std::move(event));
    }
    return info;
}

std::string escape_value(std::string value) {
    value = text::replace_all(std::move(value), "&", "&amp;");
    value = text::replace_all(std::move(value), "<", "&lt;");
    value = text::replace_all(std::move(value), "'", "&#39;");
    value = text::replace_all(std::move(value), "\"", "&#34;");
    return text::replace_all(std::move(value), ">", "&gt;");
}

std::string xml_element(std::string_view name, std::string_view value) {
    return text::format_message("<%1>%2</%1>", name, escape_value(std::string(value)));
}

}  // namespace

void trace_info_t::merge(const trace_info_t& other) {
    parameters.insert(other.parameters.begin(), other.parameters.end());
    events.insert(events.end(), other.events.begin(), other.events.end());
}

exc_base_t::exc_base_t() : thread_id_(current_thread()) {}

exc_base_t::exc_base_t(std::string_view text) : thread_id_(current_thread()) {
    add_message(text);
}

boost::shared_ptr<exc_base_t> exc_base_t::clone() const {
    return boost::make_shared<exc_base_t>(*this);
}

void exc_base_t::rethrow() const {
    throw exc_base_t(*this);
}

void exc_base_t::load(CBufReader& reader) {
    std::vector<message_t> loaded;
    const std::int32_t records = reader.read_int32();
    for (std::int32_t i = 0; i < records; ++i) {
        message_t record;
        record.text = reader.read_string();
        record.trace = reader.read_bool();
        loaded.push_back(std::move(record));
    }
    trace_info_ = load_trace_info(reader);
    messages_.insert(messages_.end(), loaded.begin(), loaded.end());
    render();
}

void exc_base_t::save(CBufWriter& writer) const {
    writer.write_int32(static_cast<std::int32_t>(messages_.size()));
    for (const message_t& record : messages_) {
        writer.write_string(record.text);
        writer.write_bool(record.trace);
    }
    writer.write_int32(static_cast<std::int32_t>(trace_info_.parameters.size()));
    for (const auto& [key, value] : trace_info_.parameters) {
        writer.write_string(key);
        writer.write_string(value);
    }
    writer.write_int32(static_cast<std::int32_t>(trace_info_.events.size()));
    for (const trace_event_t& event : trace_info_.events) {
        writer.write_int32(event.event);
        writer.write_string(event.info);
    }
}

void exc_base_t::translate(translator_t& translator) {
    for (message_t& record : messages_) {
        record.text = translator.translate(record.text);
    }
    render();
}

void exc_base_t::add_message(std::string_view text) {
    append({std::string(text), false});
}

void exc_base_t::add_trace_message(std::string_view text) {
    append({std::string(text), true});
}

void exc_base_t::append(message_t message) {
    messages_.push_back(std::move(message));
    render_record(messages_.size() - 1);
}

void exc_base_t::render() {
    what_text_.clear();
    plain_text_.clear();
    for (std::size_t i = 0; i < messages_.size(); ++i) {
        render_record(i);
    }
}

void exc_base_t::render_record(std::size_t index) {
    if (index != 0) {
        what_text_ += '\n';
        plain_text_ += '\n';
    }
    if (messages_[index].trace) {
        what_text_ += "--tr:";
    }
    what_text_ += messages_[index].text;
    plain_text_ += messages_[index].text;
}

runtime_exc_t::runtime_exc_t(std::string_view text) : exc_base_t(text) {}

boost::shared_ptr<exc_base_t> runtime_exc_t::clone() const {
    return boost::make_shared<runtime_exc_t>(*this);
}

void runtime_exc_t::rethrow() const {
    throw runtime_exc_t(*this);
}

void runtime_exc_t::load(CBufReader& reader) {
    exc_base_t::load(reader);
    code_ = reader.read_int32();
}

void runtime_exc_t::save(CBufWriter& writer) const {
    exc_base_t::save(writer);
    writer.write_int32(code_);
}

win_sys_exc_t::win_sys_exc_t(std::uint32_t code) : exc_base_t(win_error_text(code)), code_(code) {
    add_trace_message("Error code: " + text::format_hex(code));
}

win_sys_exc_t::win_sys_exc_t(std::string_view text, std::uint32_t code) : exc_base_t(win_error_text(code)), code_(code) {
    add_message(text);
    add_trace_message("Error code: " + text::format_hex(code));
}

win_sys_exc_t::win_sys_exc_t(std::string_view pattern, std::string_view a1, std::uint32_t code)
    : win_sys_exc_t(text::format_message(pattern, a1), code) {}

win_sys_exc_t::win_sys_exc_t(std::string_view pattern, std::string_view a1, std::string_view a2, std::uint32_t code)
    : win_sys_exc_t(text::format_message(pattern, a1, a2), code) {}

win_sys_exc_t::win_sys_exc_t(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                             std::uint32_t code)
    : win_sys_exc_t(text::format_message(pattern, a1, a2, a3), code) {}

boost::shared_ptr<exc_base_t> win_sys_exc_t::clone() const {
    return boost::make_shared<win_sys_exc_t>(*this);
}

void win_sys_exc_t::rethrow() const {
    throw win_sys_exc_t(*this);
}

void win_sys_exc_t::load(CBufReader& reader) {
    exc_base_t::load(reader);
    code_ = static_cast<std::uint32_t>(reader.read_int32());
}

void win_sys_exc_t::save(CBufWriter& writer) const {
    exc_base_t::save(writer);
    writer.write_int32(static_cast<std::int32_t>(code_));
}

com_exc_t::com_exc_t(std::uint32_t hr, std::string_view text) : exc_base_t(com_error_text(hr)), hr_(hr) {
    // The text above has usually taken the description along; a second object can pend behind it.
    if (const auto description = platform::system().errors->take_com_description()) {
        add_message(*description);
    }
    add_message(text);
}

boost::shared_ptr<exc_base_t> com_exc_t::clone() const {
    return boost::make_shared<com_exc_t>(*this);
}

void com_exc_t::rethrow() const {
    throw com_exc_t(*this);
}

void com_exc_t::load(CBufReader& reader) {
    exc_base_t::load(reader);
    hr_ = static_cast<std::uint32_t>(reader.read_int32());
}

void com_exc_t::save(CBufWriter& writer) const {
    exc_base_t::save(writer);
    writer.write_int32(static_cast<std::int32_t>(hr_));
}

xml_type_exc_t::xml_type_exc_t(std::string_view api_name, std::string_view service_message)
    : xml_type_exc_t(api_name, service_message, last_error()) {}

xml_type_exc_t::xml_type_exc_t(std::string_view api_name, std::string_view service_message, std::uint32_t code)
    : exc_base_t(win_error_text(code)) {
    xml_ = "<Error>" + xml_element("ApiFunctionName", api_name) + xml_element("ServiceMessage", service_message) +
           xml_element("ApiCode", text::to_string(code)) + xml_element("ApiMessage", plain_text()) + "</Error>";
    platform::system().errors->set_last_error(code);
}

file_locked_exc_t::file_locked_exc_t(std::string_view path)
    : exc_base_t(text::format_message("File [%1] is locked.", path)), path_(path) {}

boost::shared_ptr<exc_base_t> file_locked_exc_t::clone() const {
    return boost::make_shared<file_locked_exc_t>(*this);
}

void check_array_bound(std::size_t index, std::size_t size) {
    if (index >= size) {
        throw runtime_exc_t("Out of the array bound. Index of the requested array element: [%1]. Array size: [%2].",
                            text::to_string(std::uint64_t{index}), text::to_string(std::uint64_t{size}));
    }
}

std::uint16_t narrow_to_u16(std::uint32_t value) {
    if (value > 0xFFFF) {
        throw runtime_exc_t("Unable to cast value from [%1] to [%2].", std::string_view("unsigned long"),
                            std::string_view("unsigned short"));
    }
    return static_cast<std::uint16_t>(value);
}

}  // namespace exc
