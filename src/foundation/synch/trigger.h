#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <list>

namespace synch {

/// Hears of a trigger's changes.
class trigger_sink_t {
public:
    virtual ~trigger_sink_t() = default;
    /// Called under the trigger's mutex: it must not reach back for that trigger, nor for one whose sinks reach for this one.
    virtual void on_change(bool state) = 0;
};

/// A latch, false at first, that tells its sinks of every setting. Callable from any thread; all that happens to one trigger
/// happens one after the other, the calls of its sinks included.
class trigger_t {
public:
    trigger_t() = default;
    ~trigger_t() { clear_sinks(); }
    trigger_t(const trigger_t&) = delete;
    trigger_t& operator=(const trigger_t&) = delete;

    [[nodiscard]] bool get() const;
    /// Stores the state and tells every sink, in order of adding, also when it is the former state. A sink that fails keeps none of
    /// the others from hearing of it; the first failure is thrown on when all have.
    void set(bool state);
    /// Adds a sink and tells it the present state at once, so that a late one misses nothing. A sink that fails then isn't added.
    void add_sink(const boost::shared_ptr<trigger_sink_t>& sink);
    /// Lets go of all sinks: when this returns none of them is being called.
    void clear_sinks();

private:
    mutable boost::mutex mutex_;
    bool state_ = false;
    std::list<boost::shared_ptr<trigger_sink_t>> sinks_;
};

}  // namespace synch
