#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include "foundation/io/request/async_request.h"
#include "foundation/synch/trigger.h"

namespace io::request::baseimpl {

/// Where one thread of the pool gets its requests, one at a time. Callable from any thread.
class processing_slot_t {
public:
    processing_slot_t() { idle_.set(true); }

    /// Gives the thread its next request. Throws `exc::runtime_exc_t` while it has one.
    void hand_over(const boost::shared_ptr<async_request_t>& request);
    /// The request that was handed over; null if that was.
    [[nodiscard]] boost::shared_ptr<async_request_t> request() const;
    /// Lets go of the request: the thread is ready for the next one.
    void release();

    [[nodiscard]] bool is_idle() const { return idle_.get(); }
    void add_idle_sink(const boost::shared_ptr<synch::trigger_sink_t>& sink) { idle_.add_sink(sink); }
    void add_busy_sink(const boost::shared_ptr<synch::trigger_sink_t>& sink) { busy_.add_sink(sink); }

private:
    mutable boost::mutex mutex_;
    boost::shared_ptr<async_request_t> request_;
    synch::trigger_t idle_;
    synch::trigger_t busy_;
};

}  // namespace io::request::baseimpl
