#include "platform/virtual_library/sense.h"

#include "foundation/util/bytes.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t specific_bytes_valid = 0x80;
constexpr std::uint8_t specific_descriptor = 0x02;

}  // namespace

std::vector<std::uint8_t> fixed_format(const sense_data& data) {
    std::vector<std::uint8_t> bytes(18);
    bytes[0] = 0x70;
    bytes[2] = data.code.key;
    bytes[7] = 10;
    bytes[12] = data.code.asc;
    bytes[13] = data.code.ascq;
    if (data.progress) {
        bytes[15] = specific_bytes_valid;
        util::store_be16(bytes, 16, *data.progress);
    }
    return bytes;
}

std::vector<std::uint8_t> descriptor_format(const sense_data& data) {
    std::vector<std::uint8_t> bytes(data.progress ? 16 : 8);
    bytes[0] = 0x72;
    bytes[1] = data.code.key;
    bytes[2] = data.code.asc;
    bytes[3] = data.code.ascq;
    if (data.progress) {
        bytes[7] = 8;
        bytes[8] = specific_descriptor;
        bytes[9] = 6;
        bytes[12] = specific_bytes_valid;
        util::store_be16(bytes, 13, *data.progress);
    }
    return bytes;
}

}  // namespace platform::tape_library
