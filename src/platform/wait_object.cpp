#include "platform/wait_object.h"

#include <algorithm>

#include "platform/errors.h"

namespace platform {

std::uint32_t wait_object::set() {
    if (kind_ == kind::semaphore) {
        return error::invalid_handle;
    }
    if (kind_ == kind::automatic && !line_.empty()) {
        serve_first();
        return error::success;
    }
    available_ = 1;
    while (!line_.empty()) {
        serve_first();
    }
    return error::success;
}

std::uint32_t wait_object::reset() {
    if (kind_ == kind::semaphore) {
        return error::invalid_handle;
    }
    available_ = 0;
    return error::success;
}

std::uint32_t wait_object::release(std::uint32_t permits) {
    if (kind_ != kind::semaphore) {
        return error::invalid_handle;
    }
    if (permits == 0) {
        return error::invalid_parameter;
    }
    if (permits > maximum_ - available_) {
        return error::too_many_posts;
    }
    available_ += permits;
    while (available_ != 0 && !line_.empty()) {
        --available_;
        serve_first();
    }
    return error::success;
}

bool wait_object::take() {
    if (available_ == 0) {
        return false;
    }
    if (kind_ != kind::manual) {
        --available_;
    }
    return true;
}

void wait_object::withdraw(waiter& leaver) {
    std::erase(line_, &leaver);
}

void wait_object::serve_first() {
    waiter& first = *line_.front();
    line_.pop_front();
    first.released = true;
    first.wake.notify_one();
}

}  // namespace platform
