#pragma once

#include <cstdint>

#include "platform/linux/crash.h"

namespace platform::linux_os {

/// Handling of signals and uncaught exceptions for the whole process; `linux_crash` is its face.
void handle_uncaught_exceptions();
void set_crash_hooks(crash_hooks hooks);
/// A value of `errno`. The first filter brings the handling of signals with it.
[[nodiscard]] int set_crash_filter(crash_filter filter, crash_filter& former);
/// Everything as it was before.
void stop_handling_crashes();

/// Gives the calling thread a stack to handle crashes on, so that it may crash for want of stack; until the thread ends. Does
/// nothing while signals aren't handled, and for a thread that has such a stack already.
void ready_current_thread_for_crash();

}  // namespace platform::linux_os
