#include <algorithm>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/virtual_library/drive_unit.h"

/// The cartridge memory (SPC-4, medium auxiliary memory attributes).

namespace platform::tape_library {

namespace {

// 1, between these, lists the identifiers alone.
constexpr std::uint8_t values_action = 0x00;
constexpr std::uint8_t volumes_action = 0x02;
constexpr std::uint8_t partitions_action = 0x03;

/// The format byte: a binary value that a host can't write.
constexpr std::uint8_t read_only_binary = 0x80;

constexpr std::uint16_t remaining_capacity = 0x0000;
constexpr std::uint16_t maximum_capacity = 0x0001;
constexpr std::uint16_t load_count = 0x0003;
constexpr std::uint16_t total_written = 0x0220;
constexpr std::uint16_t total_read = 0x0221;
constexpr std::uint16_t medium_kind = 0x0408;

constexpr std::uint8_t kind_data = 0x00;
constexpr std::uint8_t kind_cleaning = 0x01;
constexpr std::uint8_t kind_worm = 0x80;

struct attribute {
    std::uint16_t identifier = 0;
    byte_vector value;
};

attribute number(std::uint16_t identifier, std::uint64_t value) {
    attribute one{identifier, byte_vector(8)};
    util::store_be64(one.value, 0, value);
    return one;
}

/// In ascending order of their identifiers. A cleaning cartridge has no capacity.
std::vector<attribute> attributes_of(const cartridge& medium) {
    const std::uint8_t kind = medium.cleaning ? kind_cleaning : medium.worm ? kind_worm : kind_data;
    if (medium.cleaning) {
        return {number(load_count, medium.loads), {medium_kind, {kind}}};
    }
    return {number(remaining_capacity, medium.capacity - medium.used),
            number(maximum_capacity, medium.capacity),
            number(load_count, medium.loads),
            number(total_written, medium.written),
            number(total_read, medium.read),
            {medium_kind, {kind}}};
}

void append_be16(byte_vector& bytes, std::size_t value) {
    bytes.push_back(static_cast<std::uint8_t>((value >> 8) & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

}  // namespace

command_result drive_unit::read_attribute(command_request& request) {
    const std::uint8_t action = request.cdb[1] & 0x1F;
    const std::uint8_t volume = request.cdb[5];
    const std::uint8_t partition = request.cdb[7];
    const std::uint16_t first = util::load_be16(request.cdb, 8);
    const std::uint32_t allocation = util::load_be32(request.cdb, 10);
    if (action > partitions_action || volume != 0 || partition != 0) {
        return command_result::check(sense::invalid_field);
    }
    // The memory of a cleaning cartridge can be read like any other.
    if (const sense_code state = readiness(); state != sense::none && state != sense::cleaning_cartridge) {
        return command_result::check(state);
    }
    if (action == volumes_action || action == partitions_action) {
        return command_result::with_data({0, 2, 0, 1}, allocation);
    }
    const std::vector<attribute> attributes = attributes_of(*place().medium);
    const auto begin =
        std::find_if(attributes.begin(), attributes.end(), [first](const attribute& each) { return each.identifier >= first; });
    // Values are asked for from an attribute that the host knows of; a list is what tells it of them.
    if (action == values_action && (begin == attributes.end() || begin->identifier != first)) {
        return command_result::check(sense::invalid_field);
    }
    byte_vector reply(4);
    for (auto each = begin; each != attributes.end(); ++each) {
        append_be16(reply, each->identifier);
        if (action == values_action) {
            reply.push_back(read_only_binary);
            append_be16(reply, each->value.size());
            reply.insert(reply.end(), each->value.begin(), each->value.end());
        }
    }
    util::store_be32(reply, 0, static_cast<std::uint32_t>(reply.size() - 4));
    return command_result::with_data(std::move(reply), allocation);
}

}  // namespace platform::tape_library
