#include "foundation/logging/log.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>
#include <exception>

#include "foundation/exc/exceptions.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/system.h"

namespace logging {

namespace {

using lock_t = boost::lock_guard<boost::recursive_mutex>;

constexpr std::size_t thread_id_width = 6;
constexpr std::size_t brief_thread_id_width = 2;
constexpr std::uint32_t brief_thread_id_range = 100;
/// Time stamp, thread, tag and line ending of an ordinary line; only a reserve.
constexpr std::size_t typical_overhead = 64;
/// Entries that other threads may write between a look at the number of entries and the next entry.
constexpr std::int32_t entries_in_flight = 64;

/// Keeps the calling thread's last error over a scope.
class last_error_keeper {
public:
    last_error_keeper() : code_(platform::system().errors->last_error()) {}
    ~last_error_keeper() { platform::system().errors->set_last_error(code_); }
    last_error_keeper(const last_error_keeper&) = delete;
    last_error_keeper& operator=(const last_error_keeper&) = delete;

private:
    std::uint32_t code_;
};

/// Keeps a flag set over a scope.
class flag_over_scope {
public:
    explicit flag_over_scope(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
    ~flag_over_scope() { flag_ = false; }
    flag_over_scope(const flag_over_scope&) = delete;
    flag_over_scope& operator=(const flag_over_scope&) = delete;

private:
    std::atomic<bool>& flag_;
};

/// Two digits of a number below 100.
void append_two_digits(std::string& entry, int number) {
    entry += static_cast<char>('0' + number / 10 % 10);
    entry += static_cast<char>('0' + number % 10);
}

void append_time(std::string& entry) {
    const platform::local_time now = platform::system().clock->now_local();
    if (!now.valid) {
        entry += "TIME ---";
        return;
    }
    entry += '[';
    append_two_digits(entry, now.day);
    entry += '.';
    append_two_digits(entry, now.month);
    entry += '.';
    append_two_digits(entry, now.year / 100);
    append_two_digits(entry, now.year % 100);
    entry += ' ';
    append_two_digits(entry, now.hour);
    entry += ':';
    append_two_digits(entry, now.minute);
    entry += ':';
    append_two_digits(entry, now.second);
    entry += "] ";
}

void append_thread(std::string& entry, std::uint32_t thread_id, std::size_t width) {
    const std::string digits = std::to_string(thread_id);
    entry += '<';
    entry.append(width > digits.size() ? width - digits.size() : 0, ' ');
    entry += digits;
    entry += "> ";
}

std::string_view level_tag(level entry_level, std::size_t line_number) {
    if (entry_level != level::warning && entry_level != level::error) {
        return {};
    }
    if (line_number != 0) {
        return ">>  |";
    }
    return entry_level == level::warning ? "WARN|" : "ERR |";
}

std::string_view level_word(level entry_level) {
    switch (entry_level) {
        case level::warning:
            return "Warning  ";
        case level::error:
            return "Error    ";
        default:
            return "Info     ";
    }
}

}  // namespace

namespace format {

line_format_t::line_format_t(std::string_view name) : prefix_(name) {
    if (!name.empty()) {
        prefix_ += "| ";
    }
}

line_format_t line_format_t::literal(std::string_view prefix) {
    line_format_t result{std::string_view()};
    result.prefix_ = prefix;
    return result;
}

}  // namespace format

struct log_t::entry_form {
    level entry_level;
    std::int32_t indent;
    std::uint32_t thread_id;
    const std::string& prefix;
    const std::string& line_end;
};

log_t::log_t() = default;

void log_t::write(level entry_level, std::int32_t indent, const format::line_format_t* format, std::string_view text) {
    if (!takes_entries()) {
        return;
    }
    const lock_t lock(mutex_);
    if (muted_ || receiver_ == nullptr || format == nullptr) {
        return;
    }
    const last_error_keeper keeper;
    // The receiver is held: a size check that logs, or another thread's turn after it, may replace it.
    const boost::shared_ptr<receiver::log_file_t> receiver = receiver_;
    const entry_form form{entry_level, indent, platform::system().process->current_thread_id(), format->prefix(),
                          receiver->line_end()};
    receiver->write(build_entry(form, text));
    check_size_when_due();
}

std::string log_t::build_entry(const entry_form& form, std::string_view text) const {
    // Room for one line, which long texts are; counting the lines of many megabytes costs more than letting short ones grow.
    std::string entry;
    entry.reserve(text.size() + typical_overhead + form.prefix.size() + 2 * static_cast<std::size_t>(std::max(form.indent, 0)));

    std::size_t number = 0;
    std::size_t at = 0;
    do {
        const std::size_t feed = std::min(text.find('\n', at), text.size());
        append_line(entry, form, text.substr(at, feed - at), number);
        ++number;
        at = feed + 1;
    } while (at < text.size());
    return entry;
}

void log_t::append_line(std::string& entry, const entry_form& form, std::string_view line, std::size_t number) const {
    if (style_ != line_style::bare) {
        append_time(entry);
    }
    switch (style_) {
        case line_style::full:
            append_thread(entry, form.thread_id, thread_id_width);
            entry += form.prefix;
            entry += level_tag(form.entry_level, number);
            break;
        case line_style::brief:
            append_thread(entry, form.thread_id % brief_thread_id_range, brief_thread_id_width);
            entry += level_word(form.entry_level);
            break;
        case line_style::bare:
            entry += level_word(form.entry_level);
            break;
    }
    entry.append(2 * static_cast<std::size_t>(std::max(form.indent, 0)), ' ');
    if (transform_ != nullptr) {
        entry += transform_->transform(std::string(line));
    } else {
        entry += line;
    }
    entry += form.line_end;
}

void log_t::check_size_when_due() {
    // The check may log, and must not find itself due again.
    if (check_size_ == nullptr || ++entries_since_check_ < entries_between_checks || checks_size_) {
        return;
    }
    // Set back first: a failed check isn't repeated at every entry.
    entries_since_check_ = 0;
    const flag_over_scope checking(checks_size_);
    const boost::shared_ptr<size_check_t> check = check_size_;
    const boost::shared_ptr<receiver::log_file_t> receiver = receiver_;
    check->check(*receiver);
}

void log_t::set_receiver(boost::shared_ptr<receiver::log_file_t> receiver) {
    const lock_t lock(mutex_);
    receiver_ = std::move(receiver);
    note_receiver();
}

/// With the mutex held.
void log_t::note_receiver() {
    takes_entries_ = receiver_ != nullptr && !muted_;
}

bool log_t::may_take_long() const {
    return takes_entries() && (checks_size_ || entries_since_check_ >= entries_between_checks - entries_in_flight);
}

void log_t::set_initialized() {
    const lock_t lock(mutex_);
    initialized_ = true;
}

bool log_t::initialized() const {
    const lock_t lock(mutex_);
    return initialized_;
}

void log_t::set_check_size(boost::shared_ptr<size_check_t> check) {
    const lock_t lock(mutex_);
    check_size_ = std::move(check);
    entries_since_check_ = 0;
}

void log_t::set_line_style(line_style style) {
    const lock_t lock(mutex_);
    style_ = style;
}

void log_t::set_transform(boost::shared_ptr<log_transform_t> transform) {
    const lock_t lock(mutex_);
    transform_ = std::move(transform);
}

void log_t::set_muted(bool muted) {
    const lock_t lock(mutex_);
    muted_ = muted;
    note_receiver();
}

std::string log_t::path() const {
    const lock_t lock(mutex_);
    if (receiver_ == nullptr) {
        throw exc::runtime_exc_t("Value of the log path is unavailable: log is not initialized yet.");
    }
    return receiver_->path();
}

std::int32_t log_t::indent() const {
    const std::int32_t* own = indent_.get();
    return own == nullptr ? 0 : *own;
}

void log_t::raise_indent() {
    try {
        if (indent_.get() == nullptr) {
            indent_.reset(new std::int32_t(0));
        }
        ++*indent_;
    } catch (const std::exception&) {
        // Runs while an exception is on its way; an unindented line is the lesser evil.
        return;
    }
}

void log_t::lower_indent() {
    try {
        if (indent_.get() != nullptr && *indent_ > 0) {
            --*indent_;
        }
    } catch (const std::exception&) {
        return;
    }
}

boost::shared_ptr<log_t> log_t::process_log() {
    static const boost::shared_ptr<log_t> log = boost::make_shared<log_t>();
    return log;
}

}  // namespace logging
