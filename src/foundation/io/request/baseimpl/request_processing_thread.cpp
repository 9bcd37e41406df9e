#include "foundation/io/request/baseimpl/request_processing_thread.h"

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/monitoring/activity_scope.h"
#include "foundation/synch/wait_any_trigger.h"
#include "foundation/win/win_event.h"

namespace io::request::baseimpl {

namespace {

enum awaited : std::uint32_t { stop, work, awaited_count };

constexpr std::string_view early_end =
    "Asynchronous request processing thread: destructor called before the processing thread has finished.";

/// Sets a mark for a scope, however it ends.
class mark_t {
public:
    explicit mark_t(std::atomic<bool>& mark) : mark_(mark) { mark_ = true; }
    ~mark_t() { mark_ = false; }
    mark_t(const mark_t&) = delete;
    mark_t& operator=(const mark_t&) = delete;

private:
    std::atomic<bool>& mark_;
};

}  // namespace

request_processing_thread_t::request_processing_thread_t(const boost::shared_ptr<synch::completion_port_t>& stop_signal)
    : job_(boost::make_shared<job_t>(stop_signal)),
      thread_(boost::make_shared<synch::thread_t>([](const boost::shared_ptr<job_t>& job) { run(*job); }, job_,
                                                  "Request processing thread.")) {}

request_processing_thread_t::~request_processing_thread_t() {
    try {
        end();
    } catch (const std::exception& e) {
        logging::quietly([&e] { g_libraryLog.LogError(early_end, e); });
    }
}

/// A thread that is only on its way out, or whose request has reported its outcome and is being put away, is no surprise.
void request_processing_thread_t::end() {
    synch::completion_port_t& stop_signal = *job_->stop_signal;
    if (thread_->is_running()) {
        const bool stopped = stop_signal.is_completed();
        if (!stopped) {
            stop_signal.fail(exc::runtime_exc_t(early_end));
        }
        if (!stopped || (stop_signal.has_error() && job_->processing)) {
            logging::quietly([] { g_libraryLog.LogError(early_end); });
        }
    }
    thread_->join(win::no_limit);
}

void request_processing_thread_t::run(job_t& job) {
    try {
        monitoring::activity_scope_t scope("Entering request processing thread.");
        try {
            serve(job);
        } catch (const exc::term_exc_t&) {
            g_libraryLog.LogInfo("Request processing thread was terminated.");
        }
        scope.done();
    } catch (const std::exception& e) {
        job.stop_signal->fail("Request processing thread failure.", e);
    }
}

void request_processing_thread_t::serve(job_t& job) {
    const auto any = boost::make_shared<synch::wait_any_trigger_t>(awaited_count);
    job.stop_signal->add_completed_sink(boost::make_shared<synch::wait_any_signaler_t>(stop, any));
    job.slot.add_busy_sink(boost::make_shared<synch::wait_any_signaler_t>(work, any));
    while (true) {
        if (!any->wait()) {
            throw exc::runtime_exc_t("Timeout waiting for any events related to request processing thread.");
        }
        if (job.stop_signal->is_completed()) {
            return;
        }
        process(job);
        job.slot.release();
    }
}

void request_processing_thread_t::process(job_t& job) {
    const boost::shared_ptr<async_request_t> request = job.slot.request();
    if (request == nullptr) {
        g_libraryLog.LogInfo("Skipping processing because request is not specified.");
        return;
    }
    const mark_t processing(job.processing);
    request->process();
}

}  // namespace io::request::baseimpl
