#include "platform/linux/scsi/sg_transport.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "platform/device_stack/sense_error.h"
#include "platform/errors.h"

namespace platform::linux_scsi {

namespace {

using device_stack::data_direction;
using device_stack::scsi_command;
using device_stack::scsi_outcome;

/// The longest sense data that the driver hands out.
constexpr std::size_t sense_room = 252;

/// What the host adapter's driver made of the command (the kernel's DID_... codes).
struct host_status_rule {
    int status;
    std::uint32_t system_error;
};
constexpr host_status_rule host_status_rules[] = {
    {0x01, error::device_not_connected},  // no connection
    {0x02, error::busy},                  // bus stayed busy
    {0x03, error::semaphore_timeout},     // timed out
    {0x04, error::device_not_connected},  // bad target
    {0x08, error::bus_reset},             // reset
    {0x0C, error::busy},                  // retry at once
    {0x0D, error::busy},                  // requeue
    {0x0F, error::device_not_connected},  // transport fails fast: the port is gone
};

/// Low four bits of the driver status, in kernels that still set it.
constexpr unsigned driver_busy = 0x01;
constexpr unsigned driver_timeout = 0x06;
constexpr unsigned driver_sense = 0x08;

std::uint32_t error_of_open(int failure) {
    switch (failure) {
        case ENOENT:
        case ENXIO:
        case ENODEV:
            return error::file_not_found;
        case EACCES:
        case EPERM:
            return error::access_denied;
        case EBUSY:
        case EAGAIN:
            return error::sharing_violation;
        case ENOMEM:
            return error::not_enough_memory;
        default:
            return error::general_failure;
    }
}

std::uint32_t error_of_send(int failure) {
    switch (failure) {
        case ENODEV:
        case ENXIO:
            return error::device_not_connected;
        case EAGAIN:
        case EBUSY:
            return error::busy;
        case ENOMEM:
            return error::not_enough_memory;
        case EACCES:
        case EPERM:
            return error::access_denied;
        case ETIMEDOUT:
            return error::semaphore_timeout;
        default:
            return error::io_device;
    }
}

std::uint32_t error_of_host(int status) {
    for (const host_status_rule& rule : host_status_rules) {
        if (rule.status == status) {
            return rule.system_error;
        }
    }
    return error::io_device;
}

int direction_of(const scsi_command& command) {
    if (command.data.empty()) {
        return SG_DXFER_NONE;
    }
    switch (command.direction) {
        case data_direction::from_device:
            return SG_DXFER_FROM_DEV;
        case data_direction::to_device:
            return SG_DXFER_TO_DEV;
        default:
            return SG_DXFER_NONE;
    }
}

/// A time-out of all ones would mean none.
unsigned int milliseconds_of(std::int64_t seconds) {
    constexpr std::int64_t longest = std::numeric_limits<unsigned int>::max() - 1;
    return static_cast<unsigned int>(seconds > longest / 1000 ? longest : std::max<std::int64_t>(seconds, 1) * 1000);
}

scsi_outcome transport_failure(std::uint32_t code) {
    scsi_outcome outcome;
    outcome.transport_error = code;
    return outcome;
}

}  // namespace

std::shared_ptr<sg_transport> sg_transport::open(std::shared_ptr<sg_system> kernel, const std::string& node_path,
                                                 std::uint32_t& failure) {
    int number = 0;
    const int node = kernel->open_node(node_path, number);
    if (node < 0) {
        failure = error_of_open(number);
        return nullptr;
    }
    return std::shared_ptr<sg_transport>(new sg_transport(std::move(kernel), node));
}

sg_transport::sg_transport(std::shared_ptr<sg_system> kernel, int node) : kernel_(std::move(kernel)), node_(node) {}

sg_transport::~sg_transport() {
    kernel_->close_node(node_);
}

scsi_outcome sg_transport::execute(const scsi_command& command) {
    std::array<unsigned char, 16> cdb = command.cdb;
    std::array<unsigned char, sense_room> sense{};
    sg_io_hdr request{};
    request.interface_id = 'S';
    request.dxfer_direction = direction_of(command);
    request.cmd_len = command.cdb_length;
    request.cmdp = cdb.data();
    request.mx_sb_len = static_cast<unsigned char>(sense.size());
    request.sbp = sense.data();
    if (request.dxfer_direction != SG_DXFER_NONE) {
        request.dxferp = command.data.data();
        request.dxfer_len = static_cast<unsigned int>(command.data.size());
    }
    request.timeout = milliseconds_of(command.timeout_seconds);

    if (const int failure = kernel_->send(node_, request); failure != 0) {
        return transport_failure(error_of_send(failure));
    }

    scsi_outcome outcome;
    outcome.scsi_status = request.status;
    outcome.sense.assign(sense.begin(), sense.begin() + std::min<std::size_t>(request.sb_len_wr, sense.size()));
    const unsigned driver_status = request.driver_status & 0x0FU;
    if (outcome.scsi_status == 0 && driver_status == driver_sense && !outcome.sense.empty()) {
        // Some adapters fetch the sense by themselves and drop the status that it came with.
        outcome.scsi_status = device_stack::scsi_status::check_condition;
    }
    if (outcome.scsi_status == 0) {
        // The device's own word goes before the adapter's; without one, the adapter's decides.
        if (request.host_status != 0) {
            return transport_failure(error_of_host(request.host_status));
        }
        if (driver_status == driver_timeout) {
            return transport_failure(error::semaphore_timeout);
        }
        if (driver_status != 0 && driver_status != driver_sense) {
            return transport_failure(driver_status == driver_busy ? error::busy : error::io_device);
        }
        outcome.sense.clear();
    }
    const unsigned int not_moved = request.resid > 0 ? static_cast<unsigned int>(request.resid) : 0;
    outcome.transferred = request.dxfer_len - std::min(not_moved, request.dxfer_len);
    return outcome;
}

}  // namespace platform::linux_scsi
