#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/tss.hpp>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace util {
class zip_writer_t;
}

namespace logging {

namespace receiver {

/// Takes finished text and stores it. Only `log_t` calls it, under its mutex.
class log_file_t {
public:
    /// Stores the text in one piece. A failure stays inside: the text is lost then.
    virtual void write(const std::string& text) = 0;
    /// Path of the log, UTF-8; empty when it is no file.
    [[nodiscard]] virtual const std::string& path() const = 0;
    /// What ends a line here.
    [[nodiscard]] virtual const std::string& line_end() const = 0;
    /// Bytes stored so far in the present log.
    [[nodiscard]] virtual std::uint64_t size() = 0;
    /// Moves all that is stored into the archive and completes it. What is no file has nothing to move. Throws; everything is as
    /// it was then.
    virtual void compress(const boost::shared_ptr<util::zip_writer_t>& /*zip_writer*/) {}
    virtual ~log_file_t() = default;

    bool flush_each_write = false;
};

}  // namespace receiver

namespace format {

/// What stands in front of every line of a writer.
class line_format_t {
public:
    /// The empty name gives the empty prefix, any other the name and "| ".
    explicit line_format_t(std::string_view name);
    [[nodiscard]] const std::string& prefix() const { return prefix_; }
    /// A prefix taken as it stands.
    static line_format_t literal(std::string_view prefix);

private:
    std::string prefix_;
};

}  // namespace format

enum class level : std::uint8_t { message = 1, info = 2, warning = 3, error = 4 };

enum class line_style : std::uint8_t { full = 0, brief = 1, bare = 2 };

/// Passes the text of each line on, changed.
class log_transform_t {
public:
    virtual ~log_transform_t() = default;
    virtual std::string transform(const std::string& line) = 0;
};

/// Runs when the number of entries calls for a look at the log's size; installed with the receiver. May throw: the failure
/// reaches the code that logged.
class size_check_t {
public:
    virtual ~size_check_t() = default;
    virtual void check(receiver::log_file_t& receiver) = 0;
};

/// The process's log: turns entries into lines and hands each entry to one receiver in one write. Until a receiver is set
/// entries are dropped. Any thread may log; the mutex is held for the whole of a write, and is recursive because a size check
/// can log. Writing leaves the thread's last error as it was: code logs a failure and then still asks for its number.
class log_t {
public:
    static constexpr std::int32_t entries_between_checks = 1000;

    log_t();

    void write(level entry_level, std::int32_t indent, const format::line_format_t* format, std::string_view text);

    void set_receiver(boost::shared_ptr<receiver::log_file_t> receiver);
    void set_initialized();
    /// The look at the size that follows every `entries_between_checks` entries; null for none.
    void set_check_size(boost::shared_ptr<size_check_t> check);
    void set_line_style(line_style style);
    void set_transform(boost::shared_ptr<log_transform_t> transform);
    void set_muted(bool muted);

    /// The receiver's path; throws `exc::runtime_exc_t` without a receiver.
    [[nodiscard]] std::string path() const;

    /// The calling thread's indentation.
    [[nodiscard]] std::int32_t indent() const;
    /// Both swallow failures: they run in destructors. Lowering stops at 0.
    void raise_indent();
    void lower_indent();

    [[nodiscard]] bool initialized() const;
    /// False: an entry would be dropped, so that its text needn't be made.
    [[nodiscard]] bool takes_entries() const { return takes_entries_.load(std::memory_order_relaxed); }
    /// Whether an entry may have to wait for a look at the log's size, which can mean packing the whole log: one is due soon or
    /// going on. For threads that others wait for.
    [[nodiscard]] bool may_take_long() const;

    /// The one log of the process.
    static boost::shared_ptr<log_t> process_log();

private:
    struct entry_form;
    [[nodiscard]] std::string build_entry(const entry_form& form, std::string_view text) const;
    void append_line(std::string& entry, const entry_form& form, std::string_view line, std::size_t number) const;
    void check_size_when_due();
    void note_receiver();

    mutable boost::recursive_mutex mutex_;
    boost::shared_ptr<receiver::log_file_t> receiver_;
    mutable boost::thread_specific_ptr<std::int32_t> indent_;
    bool initialized_ = false;
    line_style style_ = line_style::full;
    bool muted_ = false;
    boost::shared_ptr<size_check_t> check_size_;
    std::atomic<std::int32_t> entries_since_check_{0};
    std::atomic<bool> checks_size_{false};
    std::atomic<bool> takes_entries_{false};  ///< written under the mutex
    boost::shared_ptr<log_transform_t> transform_;
};

}  // namespace logging
