#pragma once

#include <boost/shared_ptr.hpp>

#include <atomic>

#include "foundation/io/request/baseimpl/processing_slot.h"
#include "foundation/synch/completion_port.h"
#include "foundation/synch/thread.h"

namespace io::request::baseimpl {

/// One thread of the pool, from its start until `stop_signal` is completed. A request that lets an exception out fails
/// `stop_signal`, and that ends the pool.
class request_processing_thread_t {
public:
    explicit request_processing_thread_t(const boost::shared_ptr<synch::completion_port_t>& stop_signal);
    /// Waits for the thread's end, and so for the end of the request that it is at. When nobody has stopped the pool properly, with
    /// the thread at work, the log tells of it; a pool that nobody has stopped at all is stopped here, as failed.
    ~request_processing_thread_t();
    request_processing_thread_t(const request_processing_thread_t&) = delete;
    request_processing_thread_t& operator=(const request_processing_thread_t&) = delete;

    /// Throws `exc::runtime_exc_t` while the thread has a request.
    void hand_over(const boost::shared_ptr<async_request_t>& request) { job_->slot.hand_over(request); }
    [[nodiscard]] bool is_idle() const { return job_->slot.is_idle(); }
    void add_idle_sink(const boost::shared_ptr<synch::trigger_sink_t>& sink) { job_->slot.add_idle_sink(sink); }

private:
    /// What the object shares with its thread.
    struct job_t {
        explicit job_t(const boost::shared_ptr<synch::completion_port_t>& signal) : stop_signal(signal) {}

        const boost::shared_ptr<synch::completion_port_t> stop_signal;
        processing_slot_t slot;
        std::atomic<bool> processing = false;
    };

    static void run(job_t& job);
    static void serve(job_t& job);
    static void process(job_t& job);
    void end();

    const boost::shared_ptr<job_t> job_;
    const boost::shared_ptr<synch::thread_t> thread_;
};

}  // namespace io::request::baseimpl
