#include "platform/device_stack/device_identifiers.h"

#include <algorithm>

#include "foundation/util/bytes.h"
#include "platform/scsi_records.h"

namespace platform::device_stack {

namespace {

constexpr std::size_t page_head = 4;
constexpr std::size_t designator_head = 4;
/// Identifiers are found by offset, and each starts on a 32-bit boundary.
constexpr std::size_t alignment = 4;
/// The descriptor's version is its size in the storage stack's headers, which count one byte of the first identifier and pad.
constexpr std::uint32_t descriptor_version = 16;

std::size_t aligned(std::size_t size) {
    return (size + alignment - 1) / alignment * alignment;
}

}  // namespace

std::vector<std::uint8_t> describe_identifiers(std::span<const std::uint8_t> page) {
    STORAGE_DEVICE_ID_DESCRIPTOR head;
    std::vector<std::uint8_t> answer(sizeof(head));
    std::size_t last = 0;
    const std::size_t end = std::min<std::size_t>(page.size(), page_head + util::load_be16(page, 2));
    for (std::size_t at = page_head; at + designator_head <= end;) {
        const std::size_t length = page[at + 3];
        if (at + designator_head + length > end) {
            break;
        }
        STORAGE_IDENTIFIER identifier;
        identifier.CodeSet = page[at] & 0x0FU;
        identifier.Type = page[at + 1] & 0x0FU;
        identifier.Association = (page[at + 1] >> 4) & 0x03U;
        identifier.IdentifierSize = static_cast<std::uint16_t>(length);
        const std::size_t start = aligned(answer.size());
        if (head.NumberOfIdentifiers != 0) {
            const auto distance = static_cast<std::uint16_t>(start - last);
            std::memcpy(&answer[last + offsetof(STORAGE_IDENTIFIER, NextOffset)], &distance, sizeof(distance));
        }
        answer.resize(start);
        const auto bytes = util::record_bytes(identifier);
        answer.insert(answer.end(), bytes.begin(), bytes.end());
        const auto designator = page.subspan(at + designator_head, length);
        answer.insert(answer.end(), designator.begin(), designator.end());
        last = start;
        ++head.NumberOfIdentifiers;
        at += designator_head + length;
    }
    head.Version = descriptor_version;
    head.Size = static_cast<std::uint32_t>(answer.size());
    std::memcpy(answer.data(), &head, sizeof(head));
    return answer;
}

}  // namespace platform::device_stack
