#include "foundation/monitoring/thread_states.h"

#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>

#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/text/conversion.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "platform/system.h"

namespace monitoring {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

/// A failed look at the log's size keeps no thread from its work.
void log_thread(std::string_view pattern, std::string_view a1, std::string_view a2 = {}, std::string_view a3 = {}) {
    if (CThreadStatesCollection::instance().log_threads()) {
        logging::quietly([&] { g_libraryLog.LogMessage(pattern, a1, a2, a3); });
    }
}

}  // namespace

CThreadStatesCollection& CThreadStatesCollection::instance() {
    static auto& collection = *new CThreadStatesCollection;  // never gone: a thread may outlive the process's main function
    return collection;
}

boost::shared_ptr<CThreadState> CThreadStatesCollection::add(std::uint32_t thread_id, std::string_view role) {
    auto state = boost::make_shared<CThreadState>(role);
    const lock_t lock(mutex_);
    states_[thread_id] = state;
    count_.store(states_.size(), std::memory_order_relaxed);
    return state;
}

void CThreadStatesCollection::remove(std::uint32_t thread_id) {
    const lock_t lock(mutex_);
    states_.erase(thread_id);
    count_.store(states_.size(), std::memory_order_relaxed);
}

boost::shared_ptr<CThreadState> CThreadStatesCollection::find(std::uint32_t thread_id) const {
    const lock_t lock(mutex_);
    const auto found = states_.find(thread_id);
    return found == states_.end() ? boost::shared_ptr<CThreadState>() : found->second;
}

boost::shared_ptr<CThreadState> CThreadStatesCollection::current() const {
    if (count_.load(std::memory_order_relaxed) == 0) {
        return {};
    }
    platform::process* process = platform::system().process;
    return process == nullptr ? boost::shared_ptr<CThreadState>() : find(process->current_thread_id());
}

CThreadStateRegistration::CThreadStateRegistration(std::uint32_t thread_id, std::uint32_t parent_id, std::string_view role)
    : thread_id_(thread_id), role_(role) {
    CThreadStatesCollection::instance().add(thread_id_, role_);
    log_thread("Thread started. Thread id: %1, parent id: %2, role: %3", text::to_string(thread_id_), text::to_string(parent_id),
               role_);
}

CThreadStateRegistration::~CThreadStateRegistration() {
    CThreadStatesCollection::instance().remove(thread_id_);
    log_thread("Thread finished. Role: '%1'.", role_);
}

activity_t::activity_t(std::string_view text) : state_(CThreadStatesCollection::instance().current()) {
    if (state_ != nullptr) {
        const auto trace = boost::make_shared<CThreadTrace>();
        trace->started = static_cast<std::uint32_t>(platform::system().clock->milliseconds());
        trace->text = text;
        state_->activities.push(trace);
    }
}

activity_t::~activity_t() {
    end();
}

void activity_t::end() {
    if (state_ != nullptr) {
        state_->activities.pop();
        state_.reset();
    }
}

}  // namespace monitoring
