#pragma once

#include <memory>

#include "platform/device_stack/io_manager.h"
#include "platform/tape_functions.h"

namespace platform::device_stack {

class tape_class;

/// The tape functions on the handles of an I/O manager: each goes to the class driver of the handle's drive.
class tape_drives : public tape_functions {
public:
    /// `devices` must live longer.
    explicit tape_drives(const io_manager& devices);

    [[nodiscard]] std::uint32_t get_parameters(device_handle device, std::uint32_t operation, std::uint32_t& size,
                                               std::span<std::uint8_t> record) override;
    [[nodiscard]] std::uint32_t prepare(device_handle device, std::uint32_t operation, bool immediate) override;
    [[nodiscard]] std::uint32_t set_position(device_handle device, std::uint32_t method, std::uint32_t partition,
                                             std::uint64_t offset, bool immediate) override;
    [[nodiscard]] std::uint32_t erase(device_handle device, std::uint32_t type, bool immediate) override;
    [[nodiscard]] std::uint32_t get_status(device_handle device) override;

private:
    [[nodiscard]] std::shared_ptr<tape_class> drive_of(device_handle device, std::uint32_t& failure) const;

    const io_manager& devices_;
};

}  // namespace platform::device_stack
