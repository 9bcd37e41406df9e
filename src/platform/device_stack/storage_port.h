#pragma once

#include <memory>

#include "platform/device_stack/device_file.h"
#include "platform/device_stack/scsi_transport.h"

namespace platform::device_stack {

/// The storage port's side of an open logical unit: SCSI pass-through in both forms, the unit's address, its identifiers and
/// the lock of its medium. It serves every unit, those that no class driver claims included. Commands are sent once; a SCSI
/// status other than 0 is a success of a pass-through, and stands in the block with its sense bytes.
class storage_port : public device_file {
public:
    storage_port(std::shared_ptr<scsi_transport> transport, const scsi_location& location);

    std::uint32_t control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                          std::uint32_t& returned) override;
    std::uint32_t pass_through_direct(std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                                      std::uint32_t& returned) override;

protected:
    [[nodiscard]] scsi_transport& transport() const { return *transport_; }

private:
    std::uint32_t pass_through(std::span<const std::uint8_t> input, std::span<std::uint8_t> output, std::uint32_t& returned);
    std::uint32_t get_address(std::span<std::uint8_t> output, std::uint32_t& returned) const;
    std::uint32_t query_property(std::span<const std::uint8_t> input, std::span<std::uint8_t> output, std::uint32_t& returned);
    std::uint32_t media_removal(std::span<const std::uint8_t> input);

    std::shared_ptr<scsi_transport> transport_;
    scsi_location location_;
};

}  // namespace platform::device_stack
