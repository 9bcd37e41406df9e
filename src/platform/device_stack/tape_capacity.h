#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/device_stack/scsi_transport.h"
#include "platform/device_stack/time_budget.h"

namespace platform::device_stack {

/// What a drive tells of its medium's size, in bytes and uncompressed.
struct tape_capacity {
    std::optional<std::uint64_t> maximum;
    std::optional<std::uint64_t> remaining;
};

/// Attributes "maximum capacity" and "remaining capacity in partition" of a READ ATTRIBUTE answer (SPC-4 clause 7.4.2.2).
[[nodiscard]] tape_capacity decode_capacity_attributes(std::span<const std::uint8_t> answer);

/// A LOG SENSE answer with the volume statistics (17h), sequential-access device (0Ch) or tape capacity page (31h); nothing from
/// any other page.
[[nodiscard]] tape_capacity decode_capacity_page(std::span<const std::uint8_t> answer);

/// Asks the drive by each way that it knows until both numbers are told. `density` is the medium's density code; `time` is for all
/// commands together. What no way tells stays empty, which is no failure; the result is that of a command that failed otherwise
/// than by a refusal.
[[nodiscard]] std::uint32_t read_capacity(scsi_transport& transport, std::uint8_t density, const time_budget& time,
                                          tape_capacity& capacity);

}  // namespace platform::device_stack
