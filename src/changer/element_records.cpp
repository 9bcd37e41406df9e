#include "changer/element_records.h"

#include <algorithm>

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

namespace {

using byte_span = std::span<const std::uint8_t>;

constexpr std::size_t volume_tag_at = 12;
constexpr std::size_t volume_tag_text = 32;

/// Elements of a type that a source address is looked for in.
constexpr int source_range = 99;

// Of a data transfer element's identifier, behind the volume tag.
constexpr std::size_t code_set_at = 12;
constexpr std::size_t identifier_type_at = 13;
constexpr std::size_t identifier_length_at = 15;
constexpr std::size_t identifier_at = 16;
constexpr std::size_t product_at = 24;
constexpr std::size_t serial_at = 40;

constexpr std::size_t vendor_length = 8;
constexpr std::size_t product_length = 16;
constexpr std::size_t serial_length = 32;
constexpr int vendor_and_product_length = 24;
constexpr int whole_identity_length = 56;

/// Descriptor of an element with an exception that is shorter than this has no volume tag in front of its identifier.
constexpr int exception_descriptor_length = 47;

constexpr std::uint8_t identifier_vendor_specific = 0;
constexpr std::uint8_t identifier_t10_vendor = 1;

constexpr std::uint32_t notable_flags =
    platform::ELEMENT_STATUS_FULL | platform::ELEMENT_STATUS_PRODUCT_DATA | platform::ELEMENT_STATUS_PVOLTAG;

/// Descriptor length by which the serial numbers of all drives are parsed.
constexpr std::uint16_t serial_descriptor_length = 115;

std::uint32_t flag_if(bool set, std::uint32_t flag) {
    return set ? flag : 0;
}

/// A field of fixed width; what the descriptor lacks of it is zero.
std::string field(byte_span descriptor, std::size_t at, std::size_t length) {
    std::string text = util::to_text(util::slice(descriptor, at, length));
    text.resize(length);
    return text;
}

template <std::size_t Size>
void fill_field(std::uint8_t (&target)[Size], const std::string& text) {
    std::copy_n(text.begin(), std::min(Size, text.size()), target);
}

}  // namespace

CScsiElementRecord::CScsiElementRecord(byte_span descriptor, const element_status_page_t& page, const element_map_t& map) {
    const std::uint8_t state = util::load_u8(descriptor, 2);
    full = (state & 0x01) != 0;
    except = (state & 0x04) != 0;
    access = (state & 0x08) != 0;
    exception_code = util::load_be16(descriptor, 4);
    logical_unit = util::load_u8(descriptor, 6) & 0x07;
    bus_address = util::load_u8(descriptor, 7);
    const std::uint8_t origin = util::load_u8(descriptor, 9);
    source_valid = (origin & 0x80) != 0;
    invert = (origin & 0x40) != 0;
    source_address = source_valid ? util::load_be16(descriptor, 10) : std::uint16_t{0};
    flags = flag_if(full, platform::ELEMENT_STATUS_FULL) | flag_if(except, platform::ELEMENT_STATUS_EXCEPT) |
            flag_if(access, platform::ELEMENT_STATUS_ACCESS) | flag_if(invert, platform::ELEMENT_STATUS_INVERT) |
            flag_if(source_valid, platform::ELEMENT_STATUS_SVALID) |
            flag_if(page.tag_length() != 0 && full, platform::ELEMENT_STATUS_PVOLTAG);
    if (page.tag_length() > 8) {
        volume_tag = field(descriptor, volume_tag_at, volume_tag_text);
    }
    LocateSource(map);
    address = static_cast<std::uint16_t>(util::load_be16(descriptor, 0) - map.first(page.element_type));
    FillStatus(page.element_type);
}

/// Types are tried from the drives down: address ranges lie close to each other, and the map doesn't say where one ends.
void CScsiElementRecord::LocateSource(const element_map_t& map) {
    if (source_address == 0) {
        return;
    }
    for (std::uint8_t type = ChangerDrive; type >= ChangerTransport; --type) {
        const int distance = int{source_address} - int{map.first(type)};
        if (distance >= 0 && distance < source_range) {
            source_type = type;
            source_address = static_cast<std::uint16_t>(distance);
            return;
        }
    }
}

void CScsiElementRecord::FillStatus(std::uint8_t element_type) {
    status.Element = {element_type, address};
    status.SrcElementAddress = {source_type, source_address};
    status.Flags = flags;
    status.ExceptionCode = exception_code;
    fill_field(status.PrimaryVolumeID, volume_tag);
}

CScsiDriveElementRecord::CScsiDriveElementRecord(byte_span descriptor, const element_status_page_t& page, const element_map_t& map,
                                                 std::uint16_t descriptor_length)
    : CScsiElementRecord(descriptor, page, map) {
    std::size_t tag = page.tag_length();
    if (except && descriptor_length < int{page.tag_length()} + exception_descriptor_length) {
        tag = 0;
    }
    ReadIdentifier(descriptor, tag, descriptor_length);
    vendor = util::without_trailing_blanks(vendor);
    product = util::without_trailing_blanks(product);
    serial = util::without_trailing_blanks(serial);
    if (!serial.empty()) {
        flags |= platform::ELEMENT_STATUS_PRODUCT_DATA;
    }
    fill_field(status.VendorIdentification, vendor);
    fill_field(status.ProductIdentification, product);
    fill_field(status.SerialNumber, serial);
    status.Flags = flags;
}

/// Libraries disagree on what a drive's identifier is: the T10 form of vendor, product and serial number, the same without
/// saying so, a serial number alone, or one at the descriptor's end with no identifier at all.
void CScsiDriveElementRecord::ReadIdentifier(byte_span descriptor, std::size_t tag, int descriptor_length) {
    code_set = util::load_u8(descriptor, tag + code_set_at) & 0x0F;
    identifier_type = util::load_u8(descriptor, tag + identifier_type_at) & 0x0F;
    identifier_length = util::load_u8(descriptor, tag + identifier_length_at);
    const auto read_vendor_and_product = [&] {
        vendor = field(descriptor, tag + identifier_at, vendor_length);
        product = field(descriptor, tag + product_at, product_length);
    };
    if (identifier_type == identifier_t10_vendor) {
        const int behind_product = identifier_length - vendor_and_product_length;
        if (behind_product > 0 || descriptor_length - vendor_and_product_length < static_cast<int>(vendor_length)) {
            read_vendor_and_product();
            serial = field(descriptor, tag + serial_at, static_cast<std::size_t>(std::max(behind_product, 0)));
        }
    } else if (identifier_type == identifier_vendor_specific && identifier_length == whole_identity_length) {
        read_vendor_and_product();
        serial = field(descriptor, tag + serial_at, serial_length);
    } else if (identifier_type == identifier_vendor_specific && identifier_length != 0) {
        serial = field(descriptor, tag + identifier_at, serial_length);
    } else if (identifier_type == identifier_vendor_specific) {
        const int start = descriptor_length - static_cast<int>(serial_length);
        if (start >= static_cast<int>(tag + identifier_at)) {
            serial = field(descriptor, static_cast<std::size_t>(start), serial_length);
        }
    }
}

std::vector<CHANGER_ELEMENT_STATUS_EX> ParseElementStatusData(byte_span data, ELEMENT_TYPE requested, const element_map_t& map,
                                                              const notable_descriptor& notable) {
    std::vector<CHANGER_ELEMENT_STATUS_EX> records;
    WalkElementStatus(data, [&](const element_status_page_t& page, byte_span descriptor) {
        if (requested != ChangerDrive) {
            records.push_back(CScsiElementRecord(descriptor, page, map).status);
            return;
        }
        const CScsiDriveElementRecord drive(descriptor, page, map, page.descriptor_length);
        records.push_back(drive.status);
        if (drive.flags == notable_flags) {
            notable(descriptor);
        }
    });
    return records;
}

std::vector<std::string> ParseIdentifiedSerials(byte_span data, const element_map_t& map) {
    g_log.LogInfo("Find '%1' serial names", text::to_string(std::uint32_t{ElementsAvailable(data)}));
    std::vector<std::string> names;
    WalkElementStatus(data, [&](const element_status_page_t& page, byte_span descriptor) {
        const CScsiDriveElementRecord drive(descriptor, page, map, serial_descriptor_length);
        if (drive.identifier_type == identifier_t10_vendor) {
            names.push_back(drive.serial.c_str());
        }
    });
    return names;
}
