#pragma once

#include <cstdint>

#include "foundation/win/win_handle.h"

namespace synch {

/// Something that can be held and let go, under two pairs of names.
class CAbstractLock {
public:
    CAbstractLock() = default;
    virtual ~CAbstractLock() = default;
    CAbstractLock(const CAbstractLock&) = delete;
    CAbstractLock& operator=(const CAbstractLock&) = delete;

    /// Blocks until it is held. False: it isn't.
    virtual bool acquire() = 0;
    virtual void release() = 0;
    virtual bool lock() = 0;
    virtual void unlock() = 0;
};

/// A semaphore of this process. It starts with one permit, whatever it is made with; `unlock` adds one, up to 0x40000000, also
/// without a `lock` before it, and from any thread. Failures are `exc::win_sys_exc_t`.
class CUnnamedSemaphore final : public CAbstractLock {
public:
    explicit CUnnamedSemaphore(std::uint32_t initial);

    bool acquire() override { return lock(); }
    void release() override { unlock(); }
    /// Waits without a limit.
    bool lock() override;
    void unlock() override;

private:
    win::win_handle_t handle_;
};

}  // namespace synch
