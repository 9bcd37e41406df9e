#include "platform/device_stack/tape_drives.h"

#include <cstring>

#include "platform/device_stack/tape_class.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace platform::device_stack {

namespace {

/// The status, left in the last error as well when it is a failure.
std::uint32_t reported(std::uint32_t status) {
    if (status != error::success) {
        system().errors->set_last_error(status);
    }
    return status;
}

template <typename Record, typename Read>
std::uint32_t fill(std::span<std::uint8_t> output, std::uint32_t& size, Read read) {
    Record record;
    size = sizeof(record);
    if (output.size() < sizeof(record)) {
        return error::more_data;
    }
    const std::uint32_t status = read(record);
    if (status == error::success) {
        std::memcpy(output.data(), &record, sizeof(record));
    }
    return status;
}

}  // namespace

tape_drives::tape_drives(const io_manager& devices) : devices_(devices) {}

std::shared_ptr<tape_class> tape_drives::drive_of(device_handle device, std::uint32_t& failure) const {
    const std::shared_ptr<device_file> opened = devices_.file_of(device);
    std::shared_ptr<tape_class> drive = std::dynamic_pointer_cast<tape_class>(opened);
    failure = opened ? error::invalid_function : error::invalid_handle;
    return drive;
}

std::uint32_t tape_drives::get_parameters(device_handle device, std::uint32_t operation, std::uint32_t& size,
                                          std::span<std::uint8_t> record) {
    std::uint32_t failure = error::success;
    const std::shared_ptr<tape_class> drive = drive_of(device, failure);
    if (!drive) {
        return reported(failure);
    }
    switch (operation) {
        case GET_TAPE_MEDIA_INFORMATION:
            return reported(fill<TAPE_GET_MEDIA_PARAMETERS>(
                record, size, [&](TAPE_GET_MEDIA_PARAMETERS& media) { return drive->get_media_parameters(media); }));
        case GET_TAPE_DRIVE_INFORMATION:
            return reported(fill<TAPE_GET_DRIVE_PARAMETERS>(
                record, size, [&](TAPE_GET_DRIVE_PARAMETERS& abilities) { return drive->get_drive_parameters(abilities); }));
        default:
            return reported(error::invalid_parameter);
    }
}

std::uint32_t tape_drives::prepare(device_handle device, std::uint32_t operation, bool immediate) {
    std::uint32_t failure = error::success;
    const std::shared_ptr<tape_class> drive = drive_of(device, failure);
    return reported(drive ? drive->prepare(operation, immediate) : failure);
}

/// A rewind has no use for a partition or an offset.
std::uint32_t tape_drives::set_position(device_handle device, std::uint32_t method, std::uint32_t, std::uint64_t, bool immediate) {
    std::uint32_t failure = error::success;
    const std::shared_ptr<tape_class> drive = drive_of(device, failure);
    return reported(drive ? drive->set_position(method, immediate) : failure);
}

std::uint32_t tape_drives::erase(device_handle device, std::uint32_t type, bool immediate) {
    std::uint32_t failure = error::success;
    const std::shared_ptr<tape_class> drive = drive_of(device, failure);
    return reported(drive ? drive->erase(type, immediate) : failure);
}

std::uint32_t tape_drives::get_status(device_handle device) {
    std::uint32_t failure = error::success;
    const std::shared_ptr<tape_class> drive = drive_of(device, failure);
    return reported(drive ? drive->get_status() : failure);
}

}  // namespace platform::device_stack
