#include "foundation/win/win_event.h"

#include <string_view>

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace win {

namespace {

/// The call's own failure, and above it what it was made for.
void check(std::uint32_t code, std::string_view call, std::string_view purpose) {
    if (code == platform::error::success) {
        return;
    }
    try {
        throw exc::win_sys_exc_t(call, code);
    } catch (std::exception& e) {
        exc::rethrow_with_message(purpose, e);
    }
}

}  // namespace

win_manual_reset_event_t::win_manual_reset_event_t(platform::event_reset reset) {
    platform::wait_handle event = platform::no_wait_object;
    const std::uint32_t code = platform::system().events->create_event(reset, event);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Cannot create an event object.", code);
    }
    handle_.assign(event);
}

void win_manual_reset_event_t::set() {
    check(platform::system().events->set(handle_.get()), "SetEvent() function call failed.",
          "Cannot set an event object to the signaled state.");
}

void win_manual_reset_event_t::reset() {
    check(platform::system().events->reset(handle_.get()), "ResetEvent() function call failed.",
          "Cannot set an event object to the unsignaled state.");
}

bool win_manual_reset_event_t::wait(std::uint32_t milliseconds) const {
    bool signalled = false;
    const std::uint32_t limit = milliseconds == no_limit ? longest_wait : milliseconds;
    const std::uint32_t code = platform::system().events->wait(handle_.get(), limit, signalled);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t(code);
    }
    return signalled;
}

}  // namespace win
