#include "foundation/io/request/baseimpl/request_processing_scheduler.h"

#include <boost/make_shared.hpp>

#include <algorithm>

#include "foundation/exc/exceptions.h"

namespace io::request::baseimpl {

request_processing_scheduler_t::request_processing_scheduler_t(std::uint32_t limit,
                                                               const boost::shared_ptr<synch::completion_port_t>& stop_signal)
    : limit_(limit), stop_signal_(stop_signal) {
    try {
        any_free_ = boost::make_shared<synch::wait_any_trigger_t>(limit + 1);
        stop_signal->add_completed_sink(boost::make_shared<synch::wait_any_signaler_t>(limit, any_free_));
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Initialization of asynchronous request processing scheduler has failed.", e);
    }
}

void request_processing_scheduler_t::schedule(const boost::shared_ptr<async_request_t>& request) {
    choose()->hand_over(request);
}

boost::shared_ptr<request_processing_thread_t> request_processing_scheduler_t::choose() {
    if (threads_.size() < limit_) {
        leave_when_stopped();
        boost::shared_ptr<request_processing_thread_t> free = first_idle();
        return free != nullptr ? free : add_thread();
    }
    if (!any_free_->wait()) {
        throw exc::runtime_exc_t("Timeout waiting for available asynchronous request processors.");
    }
    leave_when_stopped();
    const boost::shared_ptr<request_processing_thread_t> free = first_idle();
    if (free == nullptr) {
        throw exc::runtime_exc_t("Empty list of unoccupied request processing threads.");
    }
    return free;
}

boost::shared_ptr<request_processing_thread_t> request_processing_scheduler_t::first_idle() const {
    const auto found = std::find_if(threads_.begin(), threads_.end(), [](const auto& thread) { return thread->is_idle(); });
    return found != threads_.end() ? *found : nullptr;
}

boost::shared_ptr<request_processing_thread_t> request_processing_scheduler_t::add_thread() {
    const auto id = static_cast<std::uint32_t>(threads_.size());
    auto thread = boost::make_shared<request_processing_thread_t>(stop_signal_);
    thread->add_idle_sink(boost::make_shared<synch::wait_any_signaler_t>(id, any_free_));
    threads_.push_back(thread);
    return thread;
}

void request_processing_scheduler_t::leave_when_stopped() const {
    if (stop_signal_->is_completed()) {
        throw exc::term_exc_t{};
    }
}

}  // namespace io::request::baseimpl
