#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace platform::linux_rpc {

/// What NTLM takes from outside itself.
struct ntlm_environment {
    std::function<void(std::span<std::uint8_t>)> random;
    std::function<std::uint64_t()> now;  ///< 100 ns since the start of 1601, UTC

    /// The system's generator and clock.
    [[nodiscard]] static ntlm_environment of_system();
};

}  // namespace platform::linux_rpc
