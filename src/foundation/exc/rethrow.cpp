#include <boost/make_shared.hpp>
#include <boost/system/system_error.hpp>

#include "foundation/exc/exceptions.h"

namespace exc {

namespace {

std::string text_of(const std::exception& e) {
    const char* text = e.what();
    return text == nullptr ? std::string() : std::string(text);
}

/// Boost's system errors carry the C library's text in the machine's code page. A text that isn't in that page stays as it is:
/// a failure in the middle of reporting one would hide it.
std::string from_code_page(const std::string& source) {
    try {
        return text::ansi_to_utf8(source);
    } catch (const exc_base_t&) {
        return source;
    }
}

/// A foreign exception as one of the family.
runtime_exc_t adopt(const std::exception& e) {
    const auto* system_error = dynamic_cast<const boost::system::system_error*>(&e);
    runtime_exc_t adopted(system_error == nullptr ? text_of(e) : from_code_page(text_of(e)));
    if (system_error != nullptr) {
        adopted.set_code(system_error->code().value());
    }
    return adopted;
}

void add_to(exc_base_t& target, const message_t& message, const trace_info_t& info) {
    if (message.trace) {
        target.add_trace_message(message.text);
    } else {
        target.add_message(message.text);
    }
    target.trace_info().merge(info);
}

}  // namespace

void rethrow_with(const message_t& message, const trace_info_t& info, std::exception& e) {
    if (auto* own = dynamic_cast<exc_base_t*>(&e)) {
        add_to(*own, message, info);
        throw;
    }
    runtime_exc_t adopted = adopt(e);
    add_to(adopted, message, info);
    throw adopted;
}

void rethrow_with_trace_text(const std::string& text, std::exception& e) {
    rethrow_with({text, true}, {}, e);
}

void rethrow_with_message_text(const std::string& text, std::exception& e) {
    rethrow_with({text, false}, {}, e);
}

boost::shared_ptr<exc_base_t> clone_current(const std::exception& e) {
    if (const auto* own = dynamic_cast<const exc_base_t*>(&e)) {
        return own->clone();
    }
    return boost::make_shared<runtime_exc_t>(text_of(e));
}

}  // namespace exc
