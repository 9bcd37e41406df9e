#pragma once

#include <cstddef>
#include <vector>

#include "platform/crash.h"
#include "platform/linux/crash_record.h"

namespace platform::linux_os {

/// The frames of a thread, innermost first. From within its crash handler; null for the calling thread as it is. The instruction of
/// a caller is given as the last byte of its call: where a function ends with a call that doesn't return, the byte behind is
/// another function's.
[[nodiscard]] std::vector<stack_frame> walk_crashed_stack(const native_crash* native, std::size_t limit);

}  // namespace platform::linux_os
