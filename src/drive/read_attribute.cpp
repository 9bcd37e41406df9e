#include "drive/read_attribute.h"

#include "foundation/util/bytes.h"

namespace {

// Identifiers (SPC-4).
constexpr std::uint16_t total_megabytes_written = 0x0220;
constexpr std::uint16_t total_megabytes_read = 0x0221;
constexpr std::uint16_t medium_type = 0x0408;

// Of the attribute list: where it starts, and each attribute's bytes before its value.
constexpr std::size_t list_start = 4;
constexpr std::size_t attribute_head = 5;

constexpr std::size_t count_size = 8;
constexpr std::uint32_t high_half_limit = 0x10000000;

/// A count of a tape's life. Its low half is widened with its sign: from 0x80000000 on it fills the high half with ones, which
/// makes the count unusable.
std::uint64_t decode_count(std::span<const std::uint8_t> value) {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : util::slice(value, 0, count_size)) {
        number = (number << 8) | byte;
    }
    const auto low = static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
    return number | static_cast<std::uint64_t>(std::int64_t{low});
}

bool is_usable(std::uint64_t count) {
    return (count >> 32) < high_half_limit;
}

}  // namespace

std::optional<std::span<const std::uint8_t>> FindAttribute(std::span<const std::uint8_t> received, std::uint16_t identifier) {
    const std::uint32_t list_length = util::load_be32(received, 0);
    if (list_length < attribute_head) {
        return {};
    }
    std::size_t at = list_start;
    do {
        const std::size_t value_length = util::load_be16(received, at + 3);
        const std::size_t end = at + attribute_head + value_length;
        if (end > received.size()) {
            return {};
        }
        if (util::load_be16(received, at) == identifier) {
            return received.subspan(at + attribute_head, value_length);
        }
        at = end;
    } while (at < list_length);
    return {};
}

bool DecodeWormMedium(std::span<const std::uint8_t> received) {
    const auto value = FindAttribute(received, medium_type);
    return value && util::load_u8(*value, 0) != 0;
}

TapeUsageStatistic DecodeUsageStatistic(std::span<const std::uint8_t> received) {
    TapeUsageStatistic usage;
    const auto written = FindAttribute(received, total_megabytes_written);
    if (!written) {
        return usage;
    }
    usage.lifetime_megabytes_written = decode_count(*written);
    const auto read = FindAttribute(received, total_megabytes_read);
    if (!read) {
        return usage;
    }
    usage.lifetime_megabytes_read = decode_count(*read);
    usage.valid = is_usable(usage.lifetime_megabytes_written) && is_usable(usage.lifetime_megabytes_read);
    return usage;
}
