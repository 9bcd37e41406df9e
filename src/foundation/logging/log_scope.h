#pragma once

#include <string>
#include <string_view>

#include "foundation/logging/log_writer.h"
#include "foundation/monitoring/thread_states.h"

namespace logging {

/// Indents what the thread logs while it lives.
class log_indent_t {
public:
    explicit log_indent_t(const log_writer_t& writer);
    ~log_indent_t();
    log_indent_t(const log_indent_t&) = delete;
    log_indent_t& operator=(const log_indent_t&) = delete;
    void done();

private:
    log_writer_t writer_;
    bool finished_ = false;
};

/// A piece of work in the log: its text, what is logged meanwhile indented below it, and how it ended. The first of the
/// four endings counts, the others do nothing then; a scope that is left without one has failed. Its text also stands on the
/// thread's activity stack while it lives.
class log_scope_t {
public:
    log_scope_t(const log_writer_t& writer, std::string_view text);
    log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1);
    log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1, std::string_view a2);
    log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1, std::string_view a2,
                std::string_view a3);
    log_scope_t(const log_writer_t& writer, std::string_view pattern, std::string_view a1, std::string_view a2, std::string_view a3,
                std::string_view a4);
    ~log_scope_t();
    log_scope_t(const log_scope_t&) = delete;
    log_scope_t& operator=(const log_scope_t&) = delete;

    /// Ends with the text and " ok."
    void ok();
    /// Ends with this line.
    void ok(std::string_view line);
    /// Ends without a line.
    void quiet_end();
    /// Ends with the text and " Failed."
    void fail();

private:
    bool finish();

    log_writer_t writer_;
    std::string text_;
    monitoring::activity_t activity_;
    bool finished_ = false;
};

}  // namespace logging
