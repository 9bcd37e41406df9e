#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include "foundation/synch/stop_events.h"

namespace synch {

/// What a thread inherits from the one that started it. The context of a thread outlives it for as long as a thread that descends
/// from it lives. Callable from any thread.
class CThreadContext {
public:
    CThreadContext() = default;
    ~CThreadContext();
    CThreadContext(const CThreadContext&) = delete;
    CThreadContext& operator=(const CThreadContext&) = delete;

    /// The calling thread's, made on first use.
    [[nodiscard]] static boost::shared_ptr<CThreadContext> current();
    /// Ends the calling thread's use of its context; the next `current` makes a new one.
    static void forget_current();

    /// The parent must not descend from this context.
    void set_parent(const boost::shared_ptr<CThreadContext>& parent);
    [[nodiscard]] boost::shared_ptr<CThreadContext> parent() const;

    /// Null for none of its own.
    void set_stop_event(const boost::shared_ptr<stop_event_t>& event);
    /// Its own, else that of the nearest ancestor that has one, else null.
    [[nodiscard]] boost::shared_ptr<stop_event_t> stop_event() const;

private:
    mutable boost::mutex mutex_;
    boost::shared_ptr<CThreadContext> parent_;
    boost::shared_ptr<stop_event_t> stop_event_;
};

/// What the thread's own pointer holds, so that others can share the context.
struct SSmartPointerContainer {
    boost::shared_ptr<CThreadContext> context;
};

}  // namespace synch
