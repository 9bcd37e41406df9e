#include "platform/virtual_library/element_status.h"

#include <algorithm>

#include "foundation/util/bytes.h"

namespace platform::tape_library {

namespace {

constexpr std::size_t report_header_size = 8;
constexpr std::size_t page_header_size = 8;
constexpr std::size_t fixed_size = 12;  // of a descriptor, before its volume tag
constexpr std::size_t tag_size = 36;
constexpr std::size_t tag_text_size = 32;
constexpr std::size_t identification_header_size = 4;
constexpr std::size_t tail_serial_size = 32;

constexpr std::uint8_t flag_full = 0x01;
constexpr std::uint8_t flag_import_export = 0x02;
constexpr std::uint8_t flag_exception = 0x04;
constexpr std::uint8_t flag_access = 0x08;
constexpr std::uint8_t flags_port_both_ways = 0x30;
constexpr std::uint8_t flag_source_valid = 0x80;
constexpr std::uint8_t flag_primary_tag = 0x80;

constexpr std::uint8_t medium_data = 1;
constexpr std::uint8_t medium_cleaning = 2;
constexpr std::uint8_t medium_worm = 4;

constexpr std::uint8_t code_set_binary = 1;
constexpr std::uint8_t code_set_ascii = 2;

/// Elements of one type that a request selects: `count` of the group from `first` on.
struct page_plan {
    const element_group* group = nullptr;
    std::size_t first = 0;
    std::size_t count = 0;
    std::size_t descriptor_size = 0;
};

struct identification {
    std::uint8_t code_set = 0;
    std::uint8_t type = 0;
    byte_vector bytes;
};

identification identify(drive_identifier form, const unit_identity& drive) {
    identification id;
    switch (form) {
        case drive_identifier::none:
        case drive_identifier::tail:
            break;
        case drive_identifier::t10_vendor:
            id = {code_set_ascii, 1, {}};
            append_padded(id.bytes, drive.vendor, 8);
            append_padded(id.bytes, drive.product, 16);
            append_padded(id.bytes, drive.serial, drive.serial.size());
            break;
        case drive_identifier::vendor_serial:
            id = {code_set_ascii, 0, {}};
            append_padded(id.bytes, drive.serial, 32);
            break;
        case drive_identifier::vendor_full:
            id = {code_set_ascii, 0, {}};
            append_padded(id.bytes, drive.vendor, 8);
            append_padded(id.bytes, drive.product, 16);
            append_padded(id.bytes, drive.serial, 32);
            break;
        case drive_identifier::naa:
            id = {code_set_binary, 3, byte_vector(8)};
            util::store_be64(id.bytes, 0, naa_name(drive.vendor, drive.product, drive.serial));
            break;
    }
    return id;
}

/// Room for the identifier behind its header: the longest of all drives, so that a page's descriptors have one length.
std::size_t identifier_room(const personality& made_of) {
    std::size_t room = 0;
    for (const drive_definition& each : made_of.drive_units) {
        const unit_identity identity{0, each.vendor, each.product, each.revision, each.serial, {}};
        room = std::max(room, identify(made_of.identifier, identity).bytes.size());
    }
    return made_of.identifier == drive_identifier::tail ? tail_serial_size : room;
}

std::size_t descriptor_size(const personality& made_of, const element_status_request& wanted, ELEMENT_TYPE type) {
    const bool identifiers = wanted.device_identifiers && type == ChangerDrive;
    return fixed_size + (wanted.volume_tags ? tag_size : 0) + identification_header_size +
           (identifiers ? identifier_room(made_of) : 0) + made_of.extra_bytes;
}

std::vector<page_plan> plan_pages(const inventory& elements, const personality& made_of, const element_status_request& wanted) {
    std::vector<page_plan> pages;
    std::size_t left = wanted.count;
    for (const element_group& group : elements.groups()) {
        if ((wanted.type != AllElements && wanted.type != group.type) || group.end() <= wanted.first || group.elements.empty()) {
            continue;
        }
        const std::size_t first = wanted.first > group.first ? static_cast<std::size_t>(wanted.first - group.first) : 0;
        const std::size_t count = std::min(left, group.elements.size() - first);
        pages.push_back({&group, first, count, descriptor_size(made_of, wanted, group.type)});
        left -= count;
    }
    return pages;
}

std::uint8_t element_flags(const element_group& group, std::uint16_t address, const element& one,
                           const element_status_facts& facts) {
    unsigned flags = one.medium ? flag_full : 0U;
    flags |= one.exception == sense::none ? 0U : flag_exception;
    switch (group.type) {
        case ChangerSlot:
            flags |= flag_access;
            break;
        case ChangerIEPort:
            flags |= flags_port_both_ways | (facts.ports_open ? 0U : flag_access);
            flags |= one.medium && one.medium->by_operator ? flag_import_export : 0U;
            break;
        case ChangerDrive:
            flags |= facts.drive_blocked(address) ? 0U : flag_access;
            break;
        default:
            break;
    }
    return static_cast<std::uint8_t>(flags);
}

std::uint8_t medium_type_of(const cartridge& medium) {
    if (medium.cleaning) {
        return medium_cleaning;
    }
    return medium.worm ? medium_worm : medium_data;
}

void append_tag(byte_vector& bytes, const std::optional<cartridge>& medium, bool blank_when_empty) {
    const std::size_t end = bytes.size() + tag_size;
    if (medium || blank_when_empty) {
        append_padded(bytes, medium ? medium->barcode : std::string(), tag_text_size);
    }
    bytes.resize(end);
}

/// Appends one descriptor of the plan's size.
void append_descriptor(byte_vector& bytes, const personality& made_of, const element_status_request& wanted, const page_plan& plan,
                       std::size_t index, const element_status_facts& facts) {
    const std::size_t end = bytes.size() + plan.descriptor_size;
    const element& one = plan.group->elements[index];
    const auto address = static_cast<std::uint16_t>(plan.group->first + index);
    std::array<std::uint8_t, fixed_size> head{};
    util::store_be16(head, 0, address);
    head[2] = element_flags(*plan.group, address, one, facts);
    head[4] = one.exception.asc;
    head[5] = one.exception.ascq;
    if (one.medium) {
        head[9] = made_of.medium_types ? medium_type_of(*one.medium) : std::uint8_t{0};
        if (one.medium->source) {
            head[9] |= flag_source_valid;
            util::store_be16(head, 10, *one.medium->source);
        }
    }
    bytes.insert(bytes.end(), head.begin(), head.end());
    if (wanted.volume_tags) {
        append_tag(bytes, one.medium, made_of.blank_empty_tags);
    }
    if (wanted.device_identifiers && plan.group->type == ChangerDrive) {
        const unit_identity drive = facts.drive_identity(address);
        identification id = identify(made_of.identifier, drive);
        const std::size_t room = end - bytes.size() - identification_header_size - made_of.extra_bytes;
        id.bytes.resize(std::min(id.bytes.size(), room));
        bytes.insert(bytes.end(), {id.code_set, id.type, 0, static_cast<std::uint8_t>(id.bytes.size())});
        bytes.insert(bytes.end(), id.bytes.begin(), id.bytes.end());
        if (made_of.identifier == drive_identifier::tail) {
            bytes.resize(end - tail_serial_size);
            append_padded(bytes, drive.serial, tail_serial_size);
        }
    }
    bytes.resize(end);
}

}  // namespace

std::optional<byte_vector> build_element_status(const inventory& elements, const personality& made_of,
                                                const element_status_request& wanted, const element_status_facts& facts) {
    const std::vector<page_plan> pages = plan_pages(elements, made_of, wanted);
    if (pages.empty()) {
        return std::nullopt;
    }
    std::size_t count = 0;
    std::size_t size = 0;
    for (const page_plan& each : pages) {
        count += each.count;
        size += each.count == 0 ? 0 : page_header_size + each.count * each.descriptor_size;
    }
    byte_vector report(report_header_size);
    report.reserve(std::min<std::size_t>(report_header_size + size, wanted.allocation));
    util::store_be16(report, 0, static_cast<std::uint16_t>(pages[0].group->first + pages[0].first));
    util::store_be16(report, 2, static_cast<std::uint16_t>(count));
    util::store_be24(report, 5, static_cast<std::uint32_t>(std::min<std::size_t>(size, 0xFFFFFF)));
    for (const page_plan& each : pages) {
        if (each.count == 0 || report.size() + page_header_size > wanted.allocation) {
            break;
        }
        std::array<std::uint8_t, page_header_size> head{};
        head[0] = static_cast<std::uint8_t>(each.group->type);
        head[1] = wanted.volume_tags ? flag_primary_tag : 0;
        util::store_be16(head, 2, static_cast<std::uint16_t>(each.descriptor_size));
        util::store_be24(head, 5, static_cast<std::uint32_t>(each.count * each.descriptor_size));
        report.insert(report.end(), head.begin(), head.end());
        for (std::size_t at = 0; at < each.count; ++at) {
            if (report.size() + each.descriptor_size > wanted.allocation) {
                return report;
            }
            append_descriptor(report, made_of, wanted, each, each.first + at, facts);
        }
    }
    return report;
}

}  // namespace platform::tape_library
