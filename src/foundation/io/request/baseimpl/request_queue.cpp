#include "foundation/io/request/baseimpl/request_queue.h"

#include <boost/thread/lock_guard.hpp>

#include <utility>

namespace io::request::baseimpl {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

}  // namespace

void request_queue_t::push(const boost::shared_ptr<async_request_t>& request) {
    const lock_t lock(mutex_);
    requests_.push_back(request);
    try {
        pending_.set(true);
    } catch (...) {
        requests_.pop_back();
        throw;
    }
}

std::optional<boost::shared_ptr<async_request_t>> request_queue_t::pop() {
    const lock_t lock(mutex_);
    if (requests_.empty()) {
        pending_.set(false);
        return std::nullopt;
    }
    boost::shared_ptr<async_request_t> request = std::move(requests_.front());
    requests_.pop_front();
    if (requests_.empty()) {
        pending_.set(false);
    }
    return request;
}

}  // namespace io::request::baseimpl
