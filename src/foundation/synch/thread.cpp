#include "foundation/synch/thread.h"

#include <exception>
#include <string>

#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/monitoring/thread_states.h"
#include "foundation/synch/stop_events.h"
#include "foundation/synch/thread_context.h"
#include "foundation/text/conversion.h"
#include "platform/process.h"
#include "platform/system.h"
#include "platform/threads.h"

namespace synch {

/// What the new thread receives. All of it is let go on that thread, whichever way the function ends.
class thread_t::thread_exec_proc_t {
public:
    thread_exec_proc_t(procedure_t procedure, std::string_view role, const thread_t& owner)
        : procedure_(std::move(procedure)),
          role_(role),
          finished_(owner.finished_),
          thread_id_(owner.thread_id_),
          farewell_(owner.farewell_),
          parent_id_(platform::system().process->current_thread_id()),
          parent_stop_event_(CStopEvtCollection::instance().find(parent_id_)),
          parent_context_(CThreadContext::current()) {}

    void run() {
        const ending_t ending(*this);
        try {
            enter_and_work();
        } catch (const std::exception&) {
            return;  // functions report their own failures
        }
    }

private:
    /// The end, also when what leaves the function is no `std::exception`: the thread library ends an interrupted thread quietly.
    class ending_t {
    public:
        explicit ending_t(thread_exec_proc_t& proc) : proc_(proc) {}
        ~ending_t() { proc_.finish(); }
        ending_t(const ending_t&) = delete;
        ending_t& operator=(const ending_t&) = delete;

    private:
        thread_exec_proc_t& proc_;
    };

    void enter_and_work() {
        CThreadContext::current()->set_parent(parent_context_);
        const std::uint32_t own_id = platform::system().process->current_thread_id();
        *thread_id_ = own_id;
        const monitoring::CThreadStateRegistration state(own_id, parent_id_, role_);
        const CStopEvtThreadRegistration stop_event(own_id, parent_stop_event_);
        platform::system().threads->describe_current_thread(text::utf8_to_wide_lenient(role_));
        const procedure_t procedure = std::move(procedure_);
        procedure();
    }

    void finish() {
        procedure_ = nullptr;
        parent_stop_event_.reset();
        parent_context_.reset();
        CThreadContext::forget_current();
        // Whoever hears of the end may take the system apart that the event belongs to. The mutex keeps the owner's side of the
        // event alive until this side is gone, so that the last one to let go, who closes it, isn't this thread then.
        const boost::lock_guard<boost::mutex> lock(*farewell_);
        try {
            finished_->set();
        } catch (const std::exception& e) {
            logging::quietly([&e] { g_libraryLog.LogError(e); });
        }
        finished_.reset();
    }

    procedure_t procedure_;
    const std::string role_;
    boost::shared_ptr<win::win_manual_reset_event_t> finished_;
    const boost::shared_ptr<std::atomic<std::uint32_t>> thread_id_;
    const boost::shared_ptr<boost::mutex> farewell_;
    const std::uint32_t parent_id_;
    boost::shared_ptr<stop_event_t> parent_stop_event_;
    boost::shared_ptr<CThreadContext> parent_context_;
};

thread_t::thread_t(procedure_t procedure, std::string_view role)
    : finished_(boost::make_shared<win::win_manual_reset_event_t>()),
      thread_id_(boost::make_shared<std::atomic<std::uint32_t>>(0U)),
      farewell_(boost::make_shared<boost::mutex>()) {
    const auto proc = boost::make_shared<thread_exec_proc_t>(std::move(procedure), role, *this);
    thread_ = boost::make_shared<boost::thread>([proc] { proc->run(); });
}

thread_t::~thread_t() {
    try {
        thread_->detach();
        const boost::lock_guard<boost::mutex> lock(*farewell_);
    } catch (const std::exception& e) {
        logging::quietly([&e] { g_libraryLog.LogError("thread_t::thread_t", e); });
    }
}

bool thread_t::is_running() const {
    return !finished_->wait(0);
}

bool thread_t::wait() const {
    return finished_->wait(win::longest_wait);
}

void thread_t::join(std::uint32_t milliseconds) const {
    bool finished = false;
    try {
        finished = finished_->wait(milliseconds);
    } catch (std::exception& e) {
        const auto state = monitoring::CThreadStatesCollection::instance().find(*thread_id_);
        exc::rethrow_with_trace("Failed to wait for thread [%1] to finish.", state == nullptr ? "unknown" : state->role, e);
    }
    if (!finished) {
        throw exc::runtime_exc_t("Thread not finished within [%1] milliseconds.", text::to_string(milliseconds));
    }
}

}  // namespace synch
