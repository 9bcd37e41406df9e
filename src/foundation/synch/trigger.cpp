#include "foundation/synch/trigger.h"

#include <exception>

#include <boost/thread/lock_guard.hpp>

namespace synch {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

}  // namespace

bool trigger_t::get() const {
    const lock_t lock(mutex_);
    return state_;
}

void trigger_t::set(bool state) {
    const lock_t lock(mutex_);
    state_ = state;
    std::exception_ptr first_failure;
    for (const auto& sink : sinks_) {
        try {
            sink->on_change(state);
        } catch (...) {
            if (first_failure == nullptr) {
                first_failure = std::current_exception();
            }
        }
    }
    if (first_failure != nullptr) {
        std::rethrow_exception(first_failure);
    }
}

void trigger_t::add_sink(const boost::shared_ptr<trigger_sink_t>& sink) {
    const lock_t lock(mutex_);
    sinks_.push_back(sink);
    try {
        sink->on_change(state_);
    } catch (...) {
        sinks_.pop_back();
        throw;
    }
}

void trigger_t::clear_sinks() {
    std::list<boost::shared_ptr<trigger_sink_t>> leaving;  // gone after the lock: a sink's end is no business of this trigger
    const lock_t lock(mutex_);
    leaving.swap(sinks_);
}

}  // namespace synch
