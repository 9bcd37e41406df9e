#pragma once

#include <boost/thread/mutex.hpp>

#include <atomic>
#include <string>

#include "foundation/perf/perf_event.h"
#include "foundation/text/conversion.h"

namespace perf {

/// The process's record of performance events, off until somebody starts it.
///
/// Events gather in a buffer of as many bytes as the product option `PerfBufSize` tells; a full buffer goes to the file
/// "perf.<process id>.txt" of the folder. A line is an event: milliseconds of the monotonic clock, thread id, number of the event,
/// and the fields of its argument, with tabs between them. A failure to write costs the buffered events and is told in the log; it
/// never reaches the code that is being observed. Callable from any thread; the log's own file can be observed, too, since nothing
/// is logged while a mutex of this class is held.
class perf_log_t {
public:
    /// Made on first use.
    static perf_log_t& instance();

    /// From now on events are recorded. The folder is made, those above it too, when the first events are written.
    void start(const text::wide_string& folder);
    /// Writes what has gathered and records no more.
    void stop();
    [[nodiscard]] bool is_on() const { return on_.load(std::memory_order_relaxed); }

    /// Does nothing while the record is off.
    void add(file_event event, const CPerfEventArgBase& argument);
    /// Writes what has gathered.
    void flush();

private:
    std::atomic<bool> on_ = false;
    /// Held for a whole write, so that the blocks stay in order; taken before `mutex_`.
    boost::mutex writing_;
    boost::mutex mutex_;
    text::wide_string folder_;
    std::string buffer_;
};

}  // namespace perf
