#pragma once

#include <boost/shared_ptr.hpp>

#include <string>
#include <string_view>
#include <vector>

#include "foundation/logging/log.h"

namespace platform::testing {

/// Catches what the process logs from its construction to its destruction, in place of a log file. One at a time.
class log_capture {
public:
    log_capture();
    ~log_capture();
    log_capture(const log_capture&) = delete;
    log_capture& operator=(const log_capture&) = delete;

    /// Each write of the log as it came: a whole entry, stamps and line ends (a line feed) included.
    [[nodiscard]] std::vector<std::string> entries() const;
    /// All lines without time stamp and thread: prefix, level tag, indentation and text, for instance "tap| WARN|text".
    [[nodiscard]] std::vector<std::string> lines() const;
    /// Whether a line of `lines()` ends with this text.
    [[nodiscard]] bool has_line(std::string_view ending) const;
    void clear();

private:
    class receiver;
    boost::shared_ptr<receiver> receiver_;
};

}  // namespace platform::testing
