#include "foundation/logging/log_scope.h"

#include "foundation/logging/quietly.h"
#include "foundation/text/format_message.h"

namespace logging {

log_indent_t::log_indent_t(const log_writer_t& writer) : writer_(writer) {
    writer_.log().raise_indent();
}

log_indent_t::~log_indent_t() {
    done();
}

void log_indent_t::done() {
    if (!finished_) {
        finished_ = true;
        writer_.log().lower_indent();
    }
}

log_scope_t::log_scope_t(const log_writer_t& writer, std::string_view text) : writer_(writer), text_(text), activity_(text) {
    writer_.LogMessage(text_);
    writer_.log().raise_indent();
}

log_scope_t::log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1)
    : log_scope_t(writer, text::format_message(pattern, a1)) {}

log_scope_t::log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1, std::string_view a2)
    : log_scope_t(writer, text::format_message(pattern, a1, a2)) {}

log_scope_t::log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1, std::string_view a2,
                         std::string_view a3)
    : log_scope_t(writer, text::format_message(pattern, a1, a2, a3)) {}

log_scope_t::log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1, std::string_view a2,
                         std::string_view a3, std::string_view a4)
    : log_scope_t(writer, text::format_message(pattern, a1, a2, a3, a4)) {}

log_scope_t::~log_scope_t() {
    activity_.end();
    quietly([this] { fail(); });
}

bool log_scope_t::finish() {
    if (finished_) {
        return false;
    }
    finished_ = true;
    writer_.log().lower_indent();
    return true;
}

void log_scope_t::ok() {
    if (finish()) {
        writer_.LogMessage(text_ + " ok.");
    }
}

void log_scope_t::ok(std::string_view line) {
    if (finish()) {
        writer_.LogMessage(line);
    }
}

void log_scope_t::quiet_end() {
    finish();
}

void log_scope_t::fail() {
    if (finish()) {
        writer_.LogInfo(text_ + " Failed.");
    }
}

}  // namespace logging
