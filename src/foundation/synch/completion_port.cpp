#include "foundation/synch/completion_port.h"

#include <boost/smart_ptr/atomic_shared_ptr.hpp>
#include <boost/thread/lock_guard.hpp>

namespace synch {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

}  // namespace

bool completion_port_t::is_completed() const {
    return completed_.get();
}

void completion_port_t::complete() {
    completed_.set(true);
}

void completion_port_t::fail(std::string_view text, const std::exception& e) {
    const boost::shared_ptr<exc::exc_base_t> error = exc::clone_current(e);
    error->add_trace_message(text);
    end_with(error);
}

void completion_port_t::fail(const std::exception& e) {
    end_with(exc::clone_current(e));
}

void completion_port_t::rethrow_error() const {
    if (const boost::shared_ptr<exc::exc_base_t> error = get_error()) {
        error->rethrow();
    }
}

boost::shared_ptr<exc::exc_base_t> completion_port_t::get_error() const {
    const lock_t lock(mutex_);
    return error_;
}

std::string completion_port_t::error_text() const {
    const boost::shared_ptr<exc::exc_base_t> error = get_error();
    return error != nullptr ? error->what() : std::string();
}

bool completion_port_t::has_error() const {
    return get_error() != nullptr;
}

void completion_port_t::add_completed_sink(const boost::shared_ptr<trigger_sink_t>& sink) {
    completed_.add_sink(sink);
}

void completion_port_t::add_failed_sink(const boost::shared_ptr<trigger_sink_t>& sink) {
    failed_.add_sink(sink);
}

void completion_port_t::describe(std::string& text) const {
    const boost::shared_ptr<exc::exc_base_t> error = boost::atomic_load(&error_);
    text = error != nullptr ? error->what() : "";
}

/// Who sees the end finds the reason already there.
void completion_port_t::end_with(const boost::shared_ptr<exc::exc_base_t>& error) {
    {
        const lock_t lock(mutex_);
        boost::atomic_store(&error_, error);
    }
    try {
        completed_.set(true);
    } catch (...) {
        failed_.set(true);  // a sink that can't be told of the one hides nothing of the other
        throw;
    }
    failed_.set(true);
}

}  // namespace synch
