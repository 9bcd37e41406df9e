#include "platform/linux/rpc/ntlm_environment.h"

#include <chrono>

#include "platform/linux/rpc/ntlm_crypto.h"

namespace platform::linux_rpc {

ntlm_environment ntlm_environment::of_system() {
    const auto now = [] {
        using ticks = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;
        constexpr std::uint64_t from_1601_to_1970 = 116'444'736'000'000'000;
        const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
        return from_1601_to_1970 + std::chrono::duration_cast<ticks>(since_1970).count();
    };
    return {random_bytes, now};
}

}  // namespace platform::linux_rpc
