#pragma once

#include "platform/threads.h"

namespace platform::linux_os {

/// A thread's description is its name in the kernel, as UTF-8, of which 15 bytes are kept.
class linux_threads final : public threads {
public:
    bool describe_current_thread(const std::u16string& description) override;
};

}  // namespace platform::linux_os
