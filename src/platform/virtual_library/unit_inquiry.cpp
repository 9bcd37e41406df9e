#include "foundation/util/bytes.h"
#include "platform/virtual_library/logical_unit.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t page_supported = 0x00;
constexpr std::uint8_t page_serial = 0x80;
constexpr std::uint8_t page_identification = 0x83;

constexpr std::uint8_t removable_medium = 0x80;
constexpr std::uint8_t version_spc4 = 0x06;
constexpr std::uint8_t response_format = 0x02;
constexpr std::size_t standard_size = 96;
constexpr std::size_t version_descriptor_offset = 58;

constexpr std::uint8_t code_set_binary = 1;
constexpr std::uint8_t code_set_ascii = 2;
constexpr std::uint8_t code_set_utf8 = 3;

constexpr std::uint64_t naa_local = 0x3ULL << 60;

std::string hexadecimal(std::uint64_t value) {
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4) {
        text += "0123456789ABCDEF"[(value >> shift) & 0xF];
    }
    return text;
}

void append_designator(byte_vector& bytes, std::uint8_t code_set, std::uint8_t type, const byte_vector& value) {
    bytes.insert(bytes.end(), {code_set, type, 0, static_cast<std::uint8_t>(value.size())});
    bytes.insert(bytes.end(), value.begin(), value.end());
}

}  // namespace

void append_padded(byte_vector& bytes, const std::string& text, std::size_t width) {
    for (std::size_t at = 0; at < width; ++at) {
        bytes.push_back(static_cast<std::uint8_t>(at < text.size() ? text[at] : ' '));
    }
}

/// FNV-1a over the identity, in the 60 bits that the locally assigned form leaves.
std::uint64_t naa_name(const std::string& vendor, const std::string& product, const std::string& serial) {
    std::uint64_t hash = 0xCBF29CE484222325ULL;
    for (const char character : vendor + '\n' + product + '\n' + serial) {
        hash = (hash ^ static_cast<std::uint8_t>(character)) * 0x100000001B3ULL;
    }
    return naa_local | (hash >> 4);
}

byte_vector logical_unit::standard_inquiry() const {
    byte_vector reply{identity_.peripheral_type, removable_medium, version_spc4, response_format, standard_size - 5, 0, 0, 0};
    append_padded(reply, identity_.vendor, 8);
    append_padded(reply, identity_.product, 16);
    append_padded(reply, identity_.revision, 4);
    reply.resize(standard_size);
    std::size_t at = version_descriptor_offset;
    for (const std::uint16_t descriptor : identity_.version_descriptors) {
        util::store_be16(reply, at, descriptor);
        at += 2;
    }
    return reply;
}

byte_vector logical_unit::designators() const {
    const std::string serial = shown_serial();
    const std::uint64_t naa = naa_name(identity_.vendor, identity_.product, serial);
    byte_vector body;
    for (const designator each : core_.made_of.designators) {
        byte_vector value;
        switch (each) {
            case designator::vendor_specific:
                append_padded(value, serial, serial.size());
                append_designator(body, code_set_ascii, 0, value);
                break;
            case designator::t10_vendor:
                append_padded(value, identity_.vendor, 8);
                append_padded(value, identity_.product, 16);
                append_padded(value, serial, serial.size());
                append_designator(body, code_set_ascii, 1, value);
                break;
            case designator::naa:
                value.resize(8);
                util::store_be64(value, 0, naa);
                append_designator(body, code_set_binary, 3, value);
                break;
            case designator::scsi_name: {
                const std::string name = "naa." + hexadecimal(naa);
                append_padded(value, name, name.size());
                value.resize((name.size() / 4 + 1) * 4);  // ended by NUL, a multiple of four
                append_designator(body, code_set_utf8, 8, value);
                break;
            }
        }
    }
    return body;
}

std::optional<byte_vector> logical_unit::vital_page(std::uint8_t page) const {
    std::vector<std::uint8_t> pages{page_supported, page_serial};
    if (!core_.made_of.designators.empty()) {
        pages.push_back(page_identification);
    }
    for (const std::uint8_t each : more_vital_pages()) {
        pages.push_back(each);
    }
    bool supported = false;
    for (const std::uint8_t each : pages) {
        supported = supported || each == page;
    }
    if (!supported) {
        return std::nullopt;
    }
    byte_vector body;
    if (page == page_supported) {
        body = pages;
    } else if (page == page_serial) {
        const std::string serial = shown_serial();
        body.assign(serial.begin(), serial.end());
    } else {
        body = page == page_identification ? designators() : vital_page_body(page);
    }
    byte_vector reply{identity_.peripheral_type, page, 0, 0};
    util::store_be16(reply, 2, static_cast<std::uint16_t>(body.size()));
    reply.insert(reply.end(), body.begin(), body.end());
    return reply;
}

command_result logical_unit::inquiry(command_request& request) {
    const std::size_t allocation = util::load_be16(request.cdb, 3);
    const std::uint8_t page = request.cdb[2];
    if ((request.cdb[1] & 0x01) == 0) {
        return page == 0 ? command_result::with_data(standard_inquiry(), allocation) : command_result::check(sense::invalid_field);
    }
    std::optional<byte_vector> reply = vital_page(page);
    return reply ? command_result::with_data(std::move(*reply), allocation) : command_result::check(sense::invalid_field);
}

}  // namespace platform::tape_library
