#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <list>
#include <optional>

#include "foundation/io/request/async_request.h"
#include "foundation/synch/trigger.h"

namespace io::request::baseimpl {

/// Requests in order of posting. Callable from any thread.
class request_queue_t {
public:
    /// A request whose posting fails isn't taken: its maker may take back what it works on.
    void push(const boost::shared_ptr<async_request_t>& request);
    /// The oldest request, which may be null; nothing when there is none, and then nothing is pending either, whatever was told.
    [[nodiscard]] std::optional<boost::shared_ptr<async_request_t>> pop();
    /// Tells a sink whether there are requests, now and from now on.
    void add_pending_sink(const boost::shared_ptr<synch::trigger_sink_t>& sink) { pending_.add_sink(sink); }

private:
    /// Held over the trigger's settings, too: set after one another outside, they could leave it false with requests waiting.
    boost::mutex mutex_;
    std::list<boost::shared_ptr<async_request_t>> requests_;
    synch::trigger_t pending_;
};

}  // namespace io::request::baseimpl
