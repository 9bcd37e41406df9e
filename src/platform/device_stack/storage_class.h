#pragma once

#include <cstdint>

#include "platform/device_stack/storage_port.h"

namespace platform::device_stack {

/// What every class driver adds to the port: the number under which the system knows the device.
class storage_class : public storage_port {
public:
    /// `device_type` is FILE_DEVICE_TAPE or FILE_DEVICE_CHANGER.
    storage_class(std::shared_ptr<scsi_transport> transport, const scsi_location& location, std::uint32_t device_type,
                  std::uint32_t device_number);

    std::uint32_t control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                          std::uint32_t& returned) override;

private:
    std::uint32_t device_type_;
    std::uint32_t device_number_;
};

}  // namespace platform::device_stack
