#pragma once

#include "platform/com_runtime.h"

namespace platform::linux_os {

/// There is no COM here, and nothing to set up for it.
class linux_com_runtime final : public com_runtime {
public:
    std::uint32_t initialize(com_model) override { return 0; }
    void uninitialize() override {}
};

}  // namespace platform::linux_os
