#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "changer/changer_world.h"

/// READ ELEMENT STATUS answers, built byte by byte.
namespace changer_tests {

/// One page: its element type, whether its descriptors have volume tags, and the descriptors, all of one length.
struct status_page_bytes {
    std::uint8_t type = 0;
    bool tagged = false;
    std::vector<bytes> descriptors;
};

inline bytes big_endian(std::size_t value, int width) {
    bytes number;
    for (int at = width - 1; at >= 0; --at) {
        number.push_back(static_cast<std::uint8_t>(value >> (8 * at)));
    }
    return number;
}

inline bytes element_status(const std::vector<status_page_bytes>& pages) {
    bytes body;
    std::size_t elements = 0;
    for (const status_page_bytes& page : pages) {
        const std::size_t length = page.descriptors.empty() ? 52 : page.descriptors.front().size();
        elements += page.descriptors.size();
        body = joined({body,
                       {page.type, static_cast<std::uint8_t>(page.tagged ? 0x80 : 0)},
                       big_endian(length, 2),
                       {0},
                       big_endian(length * page.descriptors.size(), 3)});
        for (const bytes& descriptor : page.descriptors) {
            body = joined({body, descriptor});
        }
    }
    return joined({{0, 0}, big_endian(elements, 2), {0}, big_endian(body.size(), 3), body});
}

/// One drive's descriptor.
struct drive_bytes {
    std::uint16_t address = 0;
    bool tagged = true;
    std::string tag = {};
    std::uint8_t flags = 0;  ///< byte 2
    std::uint8_t identifier_type = 0;
    std::string identifier = {};

    [[nodiscard]] bytes descriptor(std::size_t length) const {
        bytes all = joined({big_endian(address, 2), {flags}, bytes(9)});
        if (tagged) {
            all = joined({all, padded(text_bytes(tag), 36)});
        }
        all = joined({all, {2, identifier_type, 0, static_cast<std::uint8_t>(identifier.size())}, text_bytes(identifier)});
        return padded(all, length);
    }
};

}  // namespace changer_tests
