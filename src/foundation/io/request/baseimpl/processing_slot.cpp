#include "foundation/io/request/baseimpl/processing_slot.h"

#include <boost/thread/lock_guard.hpp>

#include <utility>

#include "foundation/exc/exceptions.h"

namespace io::request::baseimpl {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

}  // namespace

void processing_slot_t::hand_over(const boost::shared_ptr<async_request_t>& request) {
    const lock_t lock(mutex_);
    if (!idle_.get()) {
        throw exc::runtime_exc_t("Processing thread busy.");
    }
    idle_.set(false);
    request_ = request;
    busy_.set(true);
}

boost::shared_ptr<async_request_t> processing_slot_t::request() const {
    const lock_t lock(mutex_);
    return request_;
}

void processing_slot_t::release() {
    boost::shared_ptr<async_request_t> done;  // a request's destructor may do what it likes, so it runs without the mutex
    const lock_t lock(mutex_);
    busy_.set(false);
    done.swap(request_);
    idle_.set(true);
}

}  // namespace io::request::baseimpl
