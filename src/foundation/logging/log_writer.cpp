#include "foundation/logging/log_writer.h"

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"

namespace logging {

namespace {

constexpr std::string_view default_prefix = "     ";
constexpr std::string_view no_message = "Exception message is not available.";

std::string_view message_of(const std::exception& e) {
    const char* what = e.what();
    return what == nullptr ? no_message : std::string_view(what);
}

std::string thread_line(const std::exception& e) {
    const auto* own = dynamic_cast<const exc::exc_base_t*>(&e);
    const std::uint32_t id = own == nullptr ? 0 : own->thread_id();
    return text::format_message("\nAn exception was thrown from thread [%1].", id == 0 ? std::string("n/a") : text::to_string(id));
}

}  // namespace

log_writer_t::log_writer_t()
    : log_(log_t::process_log()),
      format_(boost::make_shared<format::line_format_t>(format::line_format_t::literal(default_prefix))) {}

log_writer_t::log_writer_t(std::string_view name) : log_writer_t(name, log_t::process_log()) {}

log_writer_t::log_writer_t(std::string_view name, boost::shared_ptr<log_t> log)
    : log_(std::move(log)), format_(boost::make_shared<format::line_format_t>(name)) {}

void log_writer_t::write(level entry_level, std::string_view text) const {
    const bool indented = entry_level == level::message || entry_level == level::info;
    log_->write(entry_level, indented ? log_->indent() : 0, format_.get(), text);
}

void log_writer_t::LogMessage(std::string_view text) const {
    write(level::message, text);
}

void log_writer_t::LogMessage(std::string_view pattern, std::string_view a1) const {
    if (log_->takes_entries()) {
        write(level::message, text::format_message(pattern, a1));
    }
}

void log_writer_t::LogMessage(std::string_view pattern, std::string_view a1, std::string_view a2) const {
    if (log_->takes_entries()) {
        write(level::message, text::format_message(pattern, a1, a2));
    }
}

void log_writer_t::LogMessage(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3) const {
    if (log_->takes_entries()) {
        write(level::message, text::format_message(pattern, a1, a2, a3));
    }
}

void log_writer_t::LogInfo(std::string_view text) const {
    write(level::info, text);
}

void log_writer_t::LogInfo(std::string_view pattern, std::string_view a1) const {
    if (log_->takes_entries()) {
        write(level::info, text::format_message(pattern, a1));
    }
}

void log_writer_t::LogInfo(std::string_view pattern, std::string_view a1, std::string_view a2) const {
    if (log_->takes_entries()) {
        write(level::info, text::format_message(pattern, a1, a2));
    }
}

void log_writer_t::LogInfo(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3) const {
    if (log_->takes_entries()) {
        write(level::info, text::format_message(pattern, a1, a2, a3));
    }
}

void log_writer_t::LogInfo(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                           std::string_view a4) const {
    if (log_->takes_entries()) {
        write(level::info, text::format_message(pattern, a1, a2, a3, a4));
    }
}

void log_writer_t::LogWarning(std::string_view text) const {
    write(level::warning, text);
}

void log_writer_t::LogWarning(std::string_view pattern, std::string_view a1) const {
    if (log_->takes_entries()) {
        write(level::warning, text::format_message(pattern, a1));
    }
}

void log_writer_t::LogWarning(std::string_view pattern, std::string_view a1, std::string_view a2) const {
    if (log_->takes_entries()) {
        write(level::warning, text::format_message(pattern, a1, a2));
    }
}

void log_writer_t::LogWarning(const std::exception& e) const {
    write(level::warning, message_of(e));
}

void log_writer_t::LogWarning(std::string_view text, const std::exception& e) const {
    write(level::warning, text::format_message("%1\n%2", text, message_of(e)));
}

void log_writer_t::LogError(std::string_view text) const {
    write(level::error, text);
}

void log_writer_t::LogError(std::string_view pattern, std::string_view a1) const {
    if (log_->takes_entries()) {
        write(level::error, text::format_message(pattern, a1));
    }
}

void log_writer_t::LogError(std::string_view pattern, std::string_view a1, std::string_view a2) const {
    if (log_->takes_entries()) {
        write(level::error, text::format_message(pattern, a1, a2));
    }
}

void log_writer_t::LogError(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3) const {
    if (log_->takes_entries()) {
        write(level::error, text::format_message(pattern, a1, a2, a3));
    }
}

void log_writer_t::LogError(const std::exception& e) const {
    write(level::error, text::format_message("%1%2", message_of(e), thread_line(e)));
}

void log_writer_t::LogError(std::string_view text, const std::exception& e) const {
    std::string entry(text);
    if (const char* what = e.what()) {
        entry += '\n';
        entry += what;
    }
    write(level::error, entry + thread_line(e));
}

void log_writer_t::LogError(std::string_view pattern, std::string_view a1, const std::exception& e) const {
    LogError(text::format_message(pattern, a1), e);
}

void log_writer_t::LogError(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                            std::string_view a4, const std::exception& e) const {
    LogError(text::format_message(pattern, a1, a2, a3, a4), e);
}

}  // namespace logging
