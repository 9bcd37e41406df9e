#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <vector>

#include "foundation/io/request/baseimpl/request_processing_thread.h"
#include "foundation/synch/wait_any_trigger.h"

namespace io::request::baseimpl {

/// The pool: threads that are started when there is work for them, up to a limit. Used by one thread at a time. Its destructor
/// waits for all of them.
class request_processing_scheduler_t {
public:
    request_processing_scheduler_t(std::uint32_t limit, const boost::shared_ptr<synch::completion_port_t>& stop_signal);

    /// Gives the request to a free thread. One is started while there are fewer than the limit and none is free; with all of them
    /// at work it waits for one. Throws `exc::term_exc_t` once `stop_signal` is completed, also out of that wait.
    void schedule(const boost::shared_ptr<async_request_t>& request);

private:
    [[nodiscard]] boost::shared_ptr<request_processing_thread_t> choose();
    [[nodiscard]] boost::shared_ptr<request_processing_thread_t> first_idle() const;
    [[nodiscard]] boost::shared_ptr<request_processing_thread_t> add_thread();
    void leave_when_stopped() const;

    const std::uint32_t limit_;
    const boost::shared_ptr<synch::completion_port_t> stop_signal_;
    /// A condition for each thread, true while it is free, and behind them one for the stop.
    boost::shared_ptr<synch::wait_any_trigger_t> any_free_;
    std::vector<boost::shared_ptr<request_processing_thread_t>> threads_;
};

}  // namespace io::request::baseimpl
