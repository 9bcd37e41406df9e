#include "platform/virtual_library/sense.h"

namespace platform::tape_library {

std::vector<std::uint8_t> fixed_format(const sense_code& code) {
    std::vector<std::uint8_t> bytes(18);
    bytes[0] = 0x70;
    bytes[2] = code.key;
    bytes[7] = 10;
    bytes[12] = code.asc;
    bytes[13] = code.ascq;
    return bytes;
}

std::vector<std::uint8_t> descriptor_format(const sense_code& code) {
    return {0x72, code.key, code.asc, code.ascq, 0, 0, 0, 0};
}

}  // namespace platform::tape_library
