#include "platform/device_stack/element_map.h"

#include <algorithm>

#include "foundation/util/bytes.h"

namespace platform::device_stack {

std::optional<element_map> element_map::decode(std::span<const std::uint8_t> page) {
    constexpr std::size_t page_head = 2;
    constexpr std::size_t range_size = 4;
    if (page.size() < page_head + 4 * range_size) {
        return std::nullopt;
    }
    element_map map;
    std::uint32_t lowest = 0x10000;
    std::uint32_t end = 0;
    for (std::uint32_t type = ChangerTransport; type <= ChangerDrive; ++type) {
        const std::size_t at = page_head + (type - 1) * range_size;
        range& elements = map.ranges_[type];
        elements.first = util::load_be16(page, at);
        elements.count = util::load_be16(page, at + 2);
        if (elements.count != 0) {
            lowest = std::min<std::uint32_t>(lowest, elements.first);
            end = std::max<std::uint32_t>(end, std::uint32_t{elements.first} + elements.count);
        }
    }
    if (end > lowest) {
        map.ranges_[AllElements] = {static_cast<std::uint16_t>(lowest),
                                    static_cast<std::uint16_t>(std::min<std::uint32_t>(end - lowest, 0xFFFF))};
    }
    return map;
}

std::optional<std::uint16_t> element_map::address_of(const CHANGER_ELEMENT& element) const {
    if (element.ElementType > ChangerDrive || element.ElementAddress >= ranges_[element.ElementType].count) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(ranges_[element.ElementType].first + element.ElementAddress);
}

CHANGER_ELEMENT element_map::element_at(std::uint16_t address) const {
    for (std::uint32_t type = ChangerTransport; type <= ChangerDrive; ++type) {
        const range& elements = ranges_[type];
        if (address >= elements.first && address - elements.first < elements.count) {
            return {type, static_cast<std::uint32_t>(address - elements.first)};
        }
    }
    return {AllElements, address};
}

}  // namespace platform::device_stack
