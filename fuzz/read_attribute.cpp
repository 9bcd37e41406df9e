#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <span>
#include <vector>

#include "drive/read_attribute.h"
#include "platform/device_stack/tape_capacity.h"

/// An attribute list as a cartridge's memory may send it: a value found lies within the bytes given, and bytes behind those don't
/// change it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A copy of the exact size, so that a read past its end is seen.
    const std::vector<std::uint8_t> received(data, data + size);
    constexpr std::array<std::uint16_t, 5> identifiers = {0x0000, 0x0220, 0x0221, 0x0408, 0xFFFF};
    for (const std::uint16_t identifier : identifiers) {
        const auto value = FindAttribute(received, identifier);
        if (!value) {
            continue;
        }
        const std::span<const std::uint8_t> all(received);
        const std::less_equal<const std::uint8_t*> not_after;
        if (!not_after(all.data(), value->data()) || !not_after(value->data() + value->size(), all.data() + all.size())) {
            std::abort();
        }
        std::vector<std::uint8_t> longer = received;
        longer.resize(size + 64, 0xFF);
        const auto again = FindAttribute(longer, identifier);
        if (!again || !std::ranges::equal(*value, *again)) {
            std::abort();
        }
    }
    static_cast<void>(DecodeWormMedium(received));
    static_cast<void>(platform::device_stack::decode_capacity_attributes(received));
    const TapeUsageStatistic usage = DecodeUsageStatistic(received);
    constexpr std::uint64_t limit = std::uint64_t{0x10000000} << 32;
    if (usage.valid && (usage.lifetime_megabytes_written >= limit || usage.lifetime_megabytes_read >= limit)) {
        std::abort();
    }
    return 0;
}
