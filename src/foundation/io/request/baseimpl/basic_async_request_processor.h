#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>

#include "foundation/io/request/async_request_processor.h"
#include "foundation/synch/completion_port.h"
#include "foundation/synch/thread.h"

namespace io::request::baseimpl {

class request_queue_t;
class request_processing_scheduler_t;

/// Processes requests on up to `thread_count` threads, in order of posting as far as several threads keep an order; a further
/// thread, the dispatcher, hands them out.
///
/// `stop_signal` is the life of it all. Completed, it ends every thread when that is through with the request that it is at. It
/// fails when the processing can't go on: a request let an exception out, or the processor went away with nobody having stopped it.
/// Who waits for a request waits for `stop_signal`, too, since a request that never began reports nothing.
class basic_async_request_processor_t final : public async_request_processor_t {
public:
    basic_async_request_processor_t(std::uint32_t thread_count, const boost::shared_ptr<synch::completion_port_t>& stop_signal);
    /// Stops, and waits for all requests that have begun. Not to be reached from one of them.
    ~basic_async_request_processor_t() override;

    void post(const boost::shared_ptr<async_request_t>& request) override;
    /// Waits for the dispatcher's end, not for requests that have begun.
    void stop() override;

private:
    /// What the object shares with its dispatcher.
    struct job_t {
        boost::shared_ptr<synch::completion_port_t> stop_signal;
        boost::shared_ptr<request_queue_t> queue;
        boost::shared_ptr<request_processing_scheduler_t> scheduler;
    };

    static void run(job_t& job);
    static void dispatch(job_t& job);
    static void dispatch_one(job_t& job);

    job_t job_;
    boost::shared_ptr<synch::thread_t> dispatcher_;
};

}  // namespace io::request::baseimpl
