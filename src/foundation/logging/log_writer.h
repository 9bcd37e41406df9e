#pragma once

#include <boost/shared_ptr.hpp>

#include <exception>
#include <string_view>

#include "foundation/logging/log.h"

namespace logging {

/// What code calls to log: pairs the process's log with a line prefix. Every text is a pattern of `text::format_message` when
/// arguments follow it, and is taken as it stands when none do. Copies share log and prefix.
class log_writer_t {
public:
    /// Writes with a prefix of five blanks.
    log_writer_t();
    explicit log_writer_t(std::string_view name);
    log_writer_t(std::string_view name, boost::shared_ptr<log_t> log);

    void LogMessage(std::string_view text) const;
    void LogMessage(std::string_view pattern, std::string_view a1) const;
    void LogMessage(std::string_view pattern, std::string_view a1, std::string_view a2) const;
    void LogMessage(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3) const;

    void LogInfo(std::string_view text) const;
    void LogInfo(std::string_view pattern, std::string_view a1) const;
    void LogInfo(std::string_view pattern, std::string_view a1, std::string_view a2) const;
    void LogInfo(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3) const;
    void LogInfo(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                 std::string_view a4) const;

    /// Warnings and errors are never indented.
    void LogWarning(std::string_view text) const;
    void LogWarning(std::string_view pattern, std::string_view a1) const;
    void LogWarning(std::string_view pattern, std::string_view a1, std::string_view a2) const;
    /// With the exception's text, on a line of its own behind `text` if there is one.
    void LogWarning(const std::exception& e) const;
    void LogWarning(std::string_view text, const std::exception& e) const;

    void LogError(std::string_view text) const;
    void LogError(std::string_view pattern, std::string_view a1) const;
    void LogError(std::string_view pattern, std::string_view a1, std::string_view a2) const;
    void LogError(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3) const;
    /// With the exception's text and a line that names the thread that threw it.
    void LogError(const std::exception& e) const;
    void LogError(std::string_view text, const std::exception& e) const;
    void LogError(std::string_view pattern, std::string_view a1, const std::exception& e) const;
    void LogError(std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3, std::string_view a4,
                  const std::exception& e) const;

    [[nodiscard]] log_t& log() const { return *log_; }
    [[nodiscard]] const std::string& prefix() const { return format_->prefix(); }

private:
    void write(level entry_level, std::string_view text) const;

    boost::shared_ptr<log_t> log_;
    boost::shared_ptr<format::line_format_t> format_;
};

}  // namespace logging

/// Writer "tap": the tape code's own.
extern const logging::log_writer_t g_log;
/// Writer "rpc".
extern const logging::log_writer_t g_rpcLog;
/// The writer without a name: the general library's.
extern const logging::log_writer_t g_libraryLog;
/// Writer "cli": the log's own start.
extern const logging::log_writer_t g_clientLog;
