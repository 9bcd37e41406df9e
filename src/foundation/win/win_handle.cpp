#include "foundation/win/win_handle.h"

#include <utility>

#include "foundation/exc/exceptions.h"
#include "platform/system.h"

namespace win {

bool win_handle_t::empty() const {
    return handle_ == platform::no_wait_object || handle_ == platform::invalid_wait_object;
}

platform::wait_handle win_handle_t::get() const {
    if (empty()) {
        throw exc::runtime_exc_t("Handle object is not initialized.");
    }
    return handle_;
}

void win_handle_t::assign(platform::wait_handle handle) {
    if (!empty()) {
        throw exc::runtime_exc_t("Handle object is already initialized.");
    }
    handle_ = handle;
}

void win_handle_t::close() {
    if (!empty()) {
        platform::system().events->close(std::exchange(handle_, platform::no_wait_object));
    }
}

}  // namespace win
