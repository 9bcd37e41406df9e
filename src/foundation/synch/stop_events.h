#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <map>

#include "foundation/win/win_event.h"

namespace synch {

/// Signalled when the threads that share it are to end.
using stop_event_t = win::win_manual_reset_event_t;

/// The stop events of the process's threads by thread id. A thread that is started by one with a stop event has the same.
/// Callable from any thread; never calls out while it holds its mutex.
class CStopEvtCollection {
public:
    /// Made on first use.
    static CStopEvtCollection& instance();

    /// Enters the event for a thread, in the place of a former one.
    void add(std::uint32_t thread_id, const boost::shared_ptr<stop_event_t>& event);
    void remove(std::uint32_t thread_id);
    /// Null when the thread has none.
    [[nodiscard]] boost::shared_ptr<stop_event_t> find(std::uint32_t thread_id) const;

private:
    mutable boost::mutex mutex_;
    std::map<std::uint32_t, boost::shared_ptr<stop_event_t>> events_;
};

/// A thread's entry for as long as the thread works: the stop event that its parent had when it started the thread. By the time the
/// thread runs, the parent may have ended, and its id may be another's.
class CStopEvtThreadRegistration {
public:
    /// Null for none.
    CStopEvtThreadRegistration(std::uint32_t thread_id, const boost::shared_ptr<stop_event_t>& of_parent);
    /// Removes whatever stands under the thread's id by then. A failure is logged.
    ~CStopEvtThreadRegistration();
    CStopEvtThreadRegistration(const CStopEvtThreadRegistration&) = delete;
    CStopEvtThreadRegistration& operator=(const CStopEvtThreadRegistration&) = delete;

private:
    const std::uint32_t thread_id_;
};

}  // namespace synch
