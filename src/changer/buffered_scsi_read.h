#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "platform/devices.h"

/// A command that brings data, sent past the class driver by the buffered pass-through, whatever form the settings choose for
/// other commands: the reads that tell who a device is. One block holds header, sense and data; what didn't arrive is zero.
class buffered_scsi_read_t {
public:
    /// `transfer_length` is the room for data that the block names, at most 65,536 bytes; `cdb` has at most 16.
    buffered_scsi_read_t(std::initializer_list<std::uint8_t> cdb, std::uint32_t transfer_length);

    /// Sends the block once, with a time limit of 10 seconds. False: the control failed, the reason is in the last error.
    bool send(platform::device_handle device);

    [[nodiscard]] std::uint8_t scsi_status() const;
    /// The sense bytes that the device delivered.
    [[nodiscard]] std::span<const std::uint8_t> sense() const;
    /// The whole data area.
    [[nodiscard]] std::span<const std::uint8_t> data() const;
    /// As many bytes of the data area as the control said that it returned. That count includes what lies in front of the
    /// data, so that this is longer than the data, by zeros.
    [[nodiscard]] std::span<const std::uint8_t> returned_data() const;

private:
    std::uint32_t transfer_length_;
    std::uint32_t returned_ = 0;
    std::vector<std::uint8_t> block_;
};
