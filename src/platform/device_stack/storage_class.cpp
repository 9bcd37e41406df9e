#include "platform/device_stack/storage_class.h"

#include <cstring>

#include "platform/devices.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"

namespace platform::device_stack {

namespace {

/// Of a device that can't be divided.
constexpr std::uint32_t no_partition = 0xFFFFFFFF;

}  // namespace

storage_class::storage_class(std::shared_ptr<scsi_transport> transport, const scsi_location& location, std::uint32_t device_type,
                             std::uint32_t device_number)
    : storage_port(std::move(transport), location), device_type_(device_type), device_number_(device_number) {}

std::uint32_t storage_class::control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                     std::uint32_t& returned) {
    if (code != ioctl::storage_get_device_number) {
        return storage_port::control(code, input, output, returned);
    }
    returned = 0;
    const STORAGE_DEVICE_NUMBER number{device_type_, device_number_, no_partition};
    if (output.size() < sizeof(number)) {
        return error::insufficient_buffer;
    }
    std::memcpy(output.data(), &number, sizeof(number));
    returned = sizeof(number);
    return error::success;
}

}  // namespace platform::device_stack
