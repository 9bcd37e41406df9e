#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/changer_records.h"

namespace platform::device_stack {

/// Where a changer's elements lie in its address space: for each type the first address and the count, as its element address
/// assignment page tells (SMC-3 clause 7.3.4). Drivers count each type from zero; the device knows one range of addresses.
class element_map {
public:
    /// Reads mode page 0x1D. Nothing when the page isn't whole.
    [[nodiscard]] static std::optional<element_map> decode(std::span<const std::uint8_t> page);

    [[nodiscard]] std::uint16_t first(ELEMENT_TYPE type) const { return ranges_[type].first; }
    [[nodiscard]] std::uint16_t count(ELEMENT_TYPE type) const { return ranges_[type].count; }

    /// The device's address of an element counted from zero. Nothing when the type has no such element. AllElements counts from
    /// the lowest address in use.
    [[nodiscard]] std::optional<std::uint16_t> address_of(const CHANGER_ELEMENT& element) const;

    /// Type and zero-based number of a device's address. An address of no element keeps its value, with the type AllElements.
    [[nodiscard]] CHANGER_ELEMENT element_at(std::uint16_t address) const;

private:
    struct range {
        std::uint16_t first = 0;
        std::uint16_t count = 0;
    };
    std::array<range, 5> ranges_;
};

}  // namespace platform::device_stack
