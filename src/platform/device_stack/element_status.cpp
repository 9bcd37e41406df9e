#include "platform/device_stack/element_status.h"

#include <algorithm>

#include "foundation/util/bytes.h"

namespace platform::device_stack {

namespace {

using bytes = std::span<const std::uint8_t>;

constexpr std::size_t report_head = 8;
constexpr std::size_t page_head = 8;
constexpr std::size_t volume_tag_size = 36;
/// Bytes of a descriptor in front of its volume tags.
constexpr std::size_t descriptor_head = 12;

/// One page's head: what all its descriptors have in common.
struct page_layout {
    ELEMENT_TYPE type = AllElements;
    bool primary_tag = false;
    bool alternate_tag = false;
    std::size_t descriptor_length = 0;
    std::size_t byte_count = 0;
};

page_layout decode_page_head(bytes head) {
    page_layout page;
    const std::uint8_t type = util::load_u8(head, 0);
    page.type = type <= ChangerDrive ? static_cast<ELEMENT_TYPE>(type) : AllElements;
    page.primary_tag = (util::load_u8(head, 1) & 0x80) != 0;
    page.alternate_tag = (util::load_u8(head, 1) & 0x40) != 0;
    page.descriptor_length = util::load_be16(head, 2);
    page.byte_count = util::load_be24(head, 5);
    return page;
}

/// The descriptor's flag bytes stand in the record's flag word as they are, each in a byte of its own.
std::uint32_t flags_of(bytes descriptor, const page_layout& page) {
    constexpr std::uint8_t common_state = 0x0D;   // full, exception, access
    constexpr std::uint8_t ie_port_state = 0x3F;  // and placed by an operator, export enabled, import enabled
    constexpr std::uint8_t drive_bus = 0xB0;      // not this bus, identifier valid, unit valid
    constexpr std::uint8_t source_state = 0xC0;   // source valid, inverted
    std::uint32_t flags = util::load_u8(descriptor, 2) & (page.type == ChangerIEPort ? ie_port_state : common_state);
    if (page.type == ChangerDrive) {
        flags |= static_cast<std::uint32_t>(util::load_u8(descriptor, 6) & drive_bus) << 8;
    }
    flags |= static_cast<std::uint32_t>(util::load_u8(descriptor, 9) & source_state) << 16;
    return flags;
}

void copy_text(const std::string& text, std::span<std::uint8_t> field) {
    std::copy_n(text.begin(), std::min(text.size(), field.size()), field.begin());
}

std::string text_at(bytes data, std::size_t at, std::size_t count) {
    return util::without_trailing_blanks(util::text_to_nul(util::slice(data, at, count)));
}

/// The identifier of a drive. It is the drive's own designator: vendor, product and serial in fixed columns, or the serial alone.
void take_identity(bytes identifier, std::uint8_t identifier_type, CHANGER_ELEMENT_STATUS_EX& record) {
    constexpr std::uint8_t vendor_specific = 0;
    constexpr std::uint8_t t10_vendor = 1;
    constexpr std::size_t product_at = sizeof(record.VendorIdentification);
    constexpr std::size_t serial_at = product_at + sizeof(record.ProductIdentification);
    std::string serial;
    const bool in_columns = (identifier_type == t10_vendor && identifier.size() > serial_at) ||
                            (identifier_type == vendor_specific && identifier.size() == serial_at + sizeof(record.SerialNumber));
    if (in_columns) {
        copy_text(text_at(identifier, 0, product_at), record.VendorIdentification);
        copy_text(text_at(identifier, product_at, sizeof(record.ProductIdentification)), record.ProductIdentification);
        serial = text_at(identifier, serial_at, identifier.size());
    } else if (identifier_type == vendor_specific || identifier_type == t10_vendor) {
        serial = text_at(identifier, 0, identifier.size());
        if (identifier_type == t10_vendor) {
            serial.erase(0, serial.find_last_of(' ') + 1);
        }
    }
    copy_text(serial, record.SerialNumber);
    if (!serial.empty()) {
        record.Flags |= ELEMENT_STATUS_PRODUCT_DATA;
    }
}

void take_volume_tags(bytes descriptor, const page_layout& page, CHANGER_ELEMENT_STATUS_EX& record) {
    // A tag belongs to a cartridge: what an empty element's field holds is what was there once.
    if ((record.Flags & ELEMENT_STATUS_FULL) == 0) {
        return;
    }
    std::size_t at = descriptor_head;
    if (page.primary_tag) {
        const bytes tag = util::slice(descriptor, at, volume_tag_size);
        std::copy(tag.begin(), tag.end(), record.PrimaryVolumeID);
        record.Flags |= ELEMENT_STATUS_PVOLTAG;
        at += volume_tag_size;
    }
    if (page.alternate_tag) {
        const bytes tag = util::slice(descriptor, at, volume_tag_size);
        std::copy(tag.begin(), tag.end(), record.AlternateVolumeID);
        record.Flags |= ELEMENT_STATUS_AVOLTAG;
    }
}

CHANGER_ELEMENT_STATUS_EX decode_descriptor(bytes descriptor, const page_layout& page, const element_map& map) {
    CHANGER_ELEMENT_STATUS_EX record;
    const std::uint16_t address = util::load_be16(descriptor, 0);
    record.Element = {page.type, static_cast<std::uint32_t>(address - map.first(page.type)) & 0xFFFF};
    record.Flags = flags_of(descriptor, page);
    record.ExceptionCode = util::load_be16(descriptor, 4);
    if ((record.Flags & ELEMENT_STATUS_SVALID) != 0) {
        record.SrcElementAddress = map.element_at(util::load_be16(descriptor, 10));
    }
    take_volume_tags(descriptor, page, record);
    if (page.type == ChangerDrive) {
        if ((record.Flags & ELEMENT_STATUS_ID_VALID) != 0) {
            record.TargetId = util::load_u8(descriptor, 7);
        }
        if ((record.Flags & ELEMENT_STATUS_LUN_VALID) != 0) {
            record.Lun = util::load_u8(descriptor, 6) & 0x07;
        }
        const std::size_t at =
            descriptor_head + (page.primary_tag ? volume_tag_size : 0) + (page.alternate_tag ? volume_tag_size : 0);
        // An identifier may claim more than its descriptor has, and ends there; but half a serial number is another one.
        const std::size_t end = std::min<std::size_t>(at + 4 + util::load_u8(descriptor, at + 3), page.descriptor_length);
        if (at + 4 <= end && end <= descriptor.size()) {
            take_identity(descriptor.subspan(at + 4, end - at - 4), util::load_u8(descriptor, at + 1) & 0x0F, record);
        }
    }
    return record;
}

}  // namespace

element_status_report decode_element_status(std::span<const std::uint8_t> answer, ELEMENT_TYPE type, const element_map& map) {
    element_status_report report;
    report.available = report_head + util::load_be24(answer, 5);
    std::size_t remaining = util::load_be16(answer, 2);
    report.elements.reserve(std::min<std::size_t>(remaining, answer.size() / descriptor_head));
    const std::size_t end = std::min(answer.size(), report.available);
    for (std::size_t at = report_head; remaining != 0 && at + page_head <= end;) {
        const page_layout page = decode_page_head(util::slice(answer, at, page_head));
        at += page_head;
        if (page.descriptor_length < descriptor_head) {
            break;  // nothing behind it can be found
        }
        const std::size_t page_end = std::min(end, at + page.byte_count);
        for (; remaining != 0 && at + descriptor_head <= page_end; at += page.descriptor_length, --remaining) {
            const bool is_whole = at + page.descriptor_length <= page_end;
            if (!is_whole && page_end != answer.size()) {
                break;  // the rest of a page whose lengths don't go together
            }
            if (page.type == AllElements || (type != AllElements && page.type != type)) {
                continue;
            }
            const bytes descriptor = util::slice(answer, at, page.descriptor_length);
            report.elements.push_back(decode_descriptor(descriptor, page, map));
            report.last_is_partial = !is_whole;
        }
        at = page_end;
    }
    return report;
}

}  // namespace platform::device_stack
