#include <algorithm>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/virtual_library/drive_unit.h"

/// The drive's log pages (SSC-4; page 11 ADC-3; page 31 as LTO drives have it).

namespace platform::tape_library {

namespace {

constexpr std::uint8_t page_access = 0x0C;
constexpr std::uint8_t page_status = 0x11;
constexpr std::uint8_t page_alert_response = 0x12;
constexpr std::uint8_t page_statistics = 0x14;
constexpr std::uint8_t page_volume = 0x17;
constexpr std::uint8_t page_capacity = 0x31;

constexpr std::uint64_t unknown = 0xFFFFFFFF;
constexpr std::size_t barcode_size = 32;
constexpr std::uint16_t polling_milliseconds = 1000;
constexpr std::uint8_t alert_clean_now = 20;
constexpr std::uint8_t alert_clean_periodic = 21;

// What a drive is doing, byte 2 of its status.
constexpr std::uint8_t activity_none = 0x00;
constexpr std::uint8_t activity_loading = 0x02;

/// A number that doesn't fit becomes the greatest that does, which in a capacity means "unknown".
log_parameter counter(std::uint16_t code, std::size_t size, std::uint64_t value,
                      log_format format = log_format::unbounded_counter) {
    log_parameter one{code, format, byte_vector(size)};
    if (size < sizeof(value)) {
        value = std::min(value, (std::uint64_t{1} << (8 * size)) - 1);
    }
    for (std::size_t at = size; at > 0; --at, value >>= 8) {
        one.value[at - 1] = static_cast<std::uint8_t>(value & 0xFF);
    }
    return one;
}

log_parameter fact(std::uint16_t code, std::size_t size, std::uint64_t value) {
    return counter(code, size, value, log_format::binary_list);
}

log_parameter text(std::uint16_t code, const std::string& value, std::size_t width) {
    log_parameter one{code, log_format::ascii_list, {}};
    append_padded(one.value, value, width);
    return one;
}

/// A list with one record for each partition, of which there is one.
log_parameter of_partition(std::uint16_t code, std::uint64_t value) {
    log_parameter one{code, log_format::binary_list, byte_vector(8)};
    one.value[0] = 7;
    util::store_be32(one.value, 4, static_cast<std::uint32_t>(std::min(value, unknown)));
    return one;
}

/// The first of these bits is the highest one of the byte.
std::uint8_t packed(std::initializer_list<bool> bits) {
    unsigned byte = 0;
    for (const bool bit : bits) {
        byte = (byte << 1) | (bit ? 1U : 0U);
    }
    return static_cast<std::uint8_t>(byte);
}

std::uint8_t activity_of(drive_work work) {
    switch (work) {
        case drive_work::unload:
            return 0x03;
        case drive_work::tension:
            return 0x04;
        case drive_work::rewind:
            return 0x08;
        case drive_work::erase:
            return 0x09;
        case drive_work::format:
            return 0x0A;
        default:
            return activity_none;
    }
}

}  // namespace

log_parameters drive_unit::log_page(std::uint8_t page, const nexus& initiator) const {
    switch (page) {
        case page_access:
            return access_log();
        case page_status:
            return status_log(initiator);
        case page_alert_response:
            return alert_response_log();
        case page_statistics:
            return statistics_log();
        case page_volume:
            return volume_log();
        case page_capacity:
            return capacity_log();
        default:
            return logical_unit::log_page(page, initiator);
    }
}

log_parameters drive_unit::access_log() const {
    const cartridge* medium = usable();
    const auto megabytes = [medium](std::uint32_t cartridge::*what) {
        return medium == nullptr ? unknown : to_megabytes(medium->*what);
    };
    return {counter(0x0000, 8, 0),                                         // bytes that hosts sent
            counter(0x0001, 8, 0),                                         // bytes that were written to the tape
            counter(0x0002, 8, 0),                                         // bytes that were read from the tape
            counter(0x0003, 8, 0),                                         // bytes that hosts got
            fact(0x0004, 4, megabytes(&cartridge::used)),                  // MB from the beginning to the end of data
            fact(0x0005, 4, megabytes(&cartridge::capacity)),              // MB from the beginning to early warning
            fact(0x0006, 4, medium == nullptr ? unknown : 0),              // MB from early warning to the end
            fact(0x0007, 4, medium == nullptr ? unknown : 0),              // MB from the beginning to here
            fact(0x0008, 4, 0),                                            // MB that the buffer may hold
            fact(0x0100, 4, alerts().test(alert_clean_now - 1) ? 1 : 0)};  // cleaning is required
}

log_parameters drive_unit::status_log(const nexus& initiator) const {
    const element& here = place();
    const cartridge* medium = threaded();
    const bool in_transition = loading_ || work_ == drive_work::unload;
    const bool news = (alerts() & ~initiator.alerts_read).any();
    log_parameter data{0x0000, log_format::binary_list, byte_vector(4)};
    data.value[0] =
        packed({removal_prevented(), false, medium != nullptr && !loading_, true, medium != nullptr && medium->write_protected,
                alerts().test(alert_clean_periodic - 1), alerts().test(alert_clean_now - 1), true});
    data.value[1] = packed({in_transition, false, !here.loaded, here.medium.has_value(), false, here.medium.has_value(),
                            here.loaded, usable() != nullptr});
    data.value[2] = loading_ ? activity_loading : activity_of(work_);
    data.value[3] = packed({false, false, false, false, false, false, false, news});
    return {std::move(data), fact(0x0001, 2, polling_milliseconds)};
}

/// Flag 1 is the highest bit of the first byte. Reading them here clears none.
log_parameters drive_unit::alert_response_log() const {
    log_parameter flags{0x0000, log_format::binary_list, byte_vector(8)};
    for (std::size_t bit = 0; bit < alerts().size(); ++bit) {
        if (alerts().test(bit)) {
            flags.value[bit / 8] |= static_cast<std::uint8_t>(0x80U >> (bit % 8));
        }
    }
    return {std::move(flags)};
}

log_parameters drive_unit::statistics_log() const {
    const std::string serial = shown_serial();
    return {counter(0x0000, 4, place().loads),      // loads in the drive's life
            counter(0x0001, 4, place().cleanings),  // cleanings in the drive's life
            counter(0x000D, 4, loads_),             // loads since the counters began
            text(0x0040, serial, serial.size()),    // the maker's serial number
            text(0x0041, serial, serial.size()),    // the drive's serial number
            fact(0x0080, 1, removal_prevented() ? 1 : 0)};
}

log_parameters drive_unit::volume_log() const {
    const cartridge* medium = usable();
    const cartridge none;
    const cartridge& shown = medium == nullptr ? none : *medium;
    const std::uint64_t capacity = to_megabytes(shown.capacity);
    const std::uint64_t used = to_megabytes(shown.used);
    return {fact(0x0000, 1, medium == nullptr ? 0 : 1),  // the page is valid
            counter(0x0001, 4, shown.loads),
            counter(0x0010, 8, shown.written),
            counter(0x0011, 8, shown.read),
            fact(0x0016, 4, capacity),
            fact(0x0017, 4, used),
            text(0x0042, shown.barcode, barcode_size),
            fact(0x0080, 1, shown.write_protected ? 1 : 0),
            fact(0x0081, 1, shown.worm ? 1 : 0),
            of_partition(0x0202, capacity),
            of_partition(0x0203, used),
            of_partition(0x0204, to_megabytes(shown.capacity - shown.used))};
}

/// MiB of the main partition and of the other one, which there isn't.
log_parameters drive_unit::capacity_log() const {
    const cartridge* medium = usable();
    const std::uint32_t capacity = medium == nullptr ? 0 : medium->capacity;
    const std::uint32_t used = medium == nullptr ? 0 : medium->used;
    return {fact(0x0001, 4, capacity - used), fact(0x0002, 4, 0), fact(0x0003, 4, capacity), fact(0x0004, 4, 0)};
}

}  // namespace platform::tape_library
