#include "foundation/io/request/baseimpl/basic_async_request_processor.h"

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/io/request/baseimpl/request_processing_scheduler.h"
#include "foundation/io/request/baseimpl/request_queue.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/monitoring/activity_scope.h"
#include "foundation/synch/wait_any_trigger.h"
#include "foundation/win/win_event.h"

namespace io::request::baseimpl {

namespace {

enum awaited : std::uint32_t { stop_wanted, requests_pending, awaited_count };

}  // namespace

basic_async_request_processor_t::basic_async_request_processor_t(std::uint32_t thread_count,
                                                                 const boost::shared_ptr<synch::completion_port_t>& stop_signal) {
    try {
        monitoring::activity_scope_t scope(
            text::format_message("Initializing controller for asynchronous request processing. Number of processing thread: [%1].",
                                 text::to_string(thread_count)));
        job_.stop_signal = stop_signal;
        job_.queue = boost::make_shared<request_queue_t>();
        job_.scheduler = boost::make_shared<request_processing_scheduler_t>(thread_count, stop_signal);
        dispatcher_ = boost::make_shared<synch::thread_t>([](job_t& job) { run(job); }, job_, "Request processing dispatcher.");
        scope.done();
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to initialize asynchronous request processing controller.", e);
    }
}

basic_async_request_processor_t::~basic_async_request_processor_t() {
    try {
        stop();
    } catch (const std::exception& e) {
        logging::quietly([&e] { g_libraryLog.LogError(e); });
    }
}

void basic_async_request_processor_t::post(const boost::shared_ptr<async_request_t>& request) {
    try {
        job_.queue->push(request);
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Cannot store asynchronous request processing.", e);
    }
}

void basic_async_request_processor_t::stop() {
    try {
        if (dispatcher_->is_running() && !job_.stop_signal->is_completed()) {
            job_.stop_signal->fail(exc::runtime_exc_t(
                "Attempts to destroy controller of asynchronous request processing was performed while dispatching thread was "
                "active."));
        }
        dispatcher_->join(win::no_limit);
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Destruction of controller of asynchronous request processing has failed.", e);
    }
}

void basic_async_request_processor_t::run(job_t& job) {
    try {
        monitoring::activity_scope_t scope("Entering into a dispatch thread (asynchronous request processing).");
        try {
            dispatch(job);
        } catch (const exc::term_exc_t&) {
            scope.done();
        }
    } catch (const std::exception& e) {
        job.stop_signal->fail("Fatal error of dispatching asynchronous request processing.", e);
    }
}

/// Ends by an exception only.
void basic_async_request_processor_t::dispatch(job_t& job) {
    const auto any = boost::make_shared<synch::wait_any_trigger_t>(awaited_count);
    job.stop_signal->add_completed_sink(boost::make_shared<synch::wait_any_signaler_t>(stop_wanted, any));
    job.queue->add_pending_sink(boost::make_shared<synch::wait_any_signaler_t>(requests_pending, any));
    while (true) {
        if (!any->wait()) {
            throw exc::runtime_exc_t("Timeout waiting for pending processing requests.");
        }
        if (job.stop_signal->is_completed()) {
            throw exc::term_exc_t{};
        }
        dispatch_one(job);
    }
}

void basic_async_request_processor_t::dispatch_one(job_t& job) {
    const auto request = job.queue->pop();
    if (!request) {
        g_libraryLog.LogInfo("Asynchronous request processing was skipped because requests queue is empty.");
        return;
    }
    if (*request == nullptr) {
        throw exc::runtime_exc_t("Invalid request for asynchronous processing.");
    }
    try {
        job.scheduler->schedule(*request);
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Request dispatching failure.", e);
    }
}

}  // namespace io::request::baseimpl
