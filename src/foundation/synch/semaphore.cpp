#include "foundation/synch/semaphore.h"

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace synch {

namespace {

constexpr std::uint32_t first_permits = 1;
constexpr std::uint32_t maximum_permits = 0x4000'0000;

}  // namespace

CUnnamedSemaphore::CUnnamedSemaphore(std::uint32_t /*initial*/) {
    platform::wait_handle semaphore = platform::no_wait_object;
    const std::uint32_t code = platform::system().events->create_semaphore(first_permits, maximum_permits, semaphore);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to create semaphore", code);
    }
    handle_.assign(semaphore);
}

bool CUnnamedSemaphore::lock() {
    bool signalled = false;
    const std::uint32_t code = platform::system().events->wait(handle_.get(), platform::wait_without_limit, signalled);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to lock semaphore", code);
    }
    return signalled;
}

void CUnnamedSemaphore::unlock() {
    const std::uint32_t code = platform::system().events->release(handle_.get(), 1);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to unlock semaphore", code);
    }
}

}  // namespace synch
