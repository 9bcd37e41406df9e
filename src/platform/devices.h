#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace platform {

/// An open device. The value with all bits set is no device.
using device_handle = std::uintptr_t;
inline constexpr device_handle invalid_device = ~device_handle{0};

/// Device control codes in use, with the numbers of the Windows storage stack.
namespace ioctl {
inline constexpr std::uint32_t scsi_pass_through = 0x4D004;
inline constexpr std::uint32_t scsi_pass_through_direct = 0x4D014;
inline constexpr std::uint32_t scsi_get_address = 0x41018;
inline constexpr std::uint32_t storage_get_device_number = 0x2D1080;
inline constexpr std::uint32_t storage_query_property = 0x2D1400;
inline constexpr std::uint32_t storage_media_removal = 0x2D4804;
inline constexpr std::uint32_t changer_get_parameters = 0x304000;
inline constexpr std::uint32_t changer_get_status = 0x304004;
inline constexpr std::uint32_t changer_get_product_data = 0x304008;
inline constexpr std::uint32_t changer_get_element_status = 0x30C014;
inline constexpr std::uint32_t changer_initialize_element_status = 0x304018;
inline constexpr std::uint32_t changer_exchange_medium = 0x304020;
inline constexpr std::uint32_t changer_move_medium = 0x304024;
}  // namespace ioctl

/// Flags of `define_dos_device`.
namespace dos_device {
inline constexpr std::uint32_t raw_target_path = 1;
inline constexpr std::uint32_t remove_definition = 2;
}  // namespace dos_device

/// Opening devices by link name, device control, and the names under which devices are found.
///
/// A link name is the text "\\.\" followed by a device's name. All operations report failure by their result and leave the
/// reason in the calling thread's last error (errors.h); success does not promise to clear it. Handles may be used from
/// any thread, one control at a time for each handle. A control blocks until the device has answered or its own time
/// limit has run out: 10 to 300 seconds for a pass-through, as its block says; minutes for a robot.
class devices {
public:
    virtual ~devices() = default;

    /// Opens for reading and writing, shared with other openers. `invalid_device` on failure: 2 when nothing bears the
    /// name, 5, 32, or what the device reported.
    [[nodiscard]] virtual device_handle open_device(const std::string& link_name) = 0;

    /// False when the handle was not open.
    virtual bool close_device(device_handle device) = 0;

    /// One device control. `input` and `output` may be the same memory: pass-through blocks are answered in place. `returned`
    /// is the number of bytes put into `output`, 0 on failure. Not for `scsi_pass_through_direct`.
    virtual bool control(device_handle device, std::uint32_t code, std::span<const std::uint8_t> input,
                         std::span<std::uint8_t> output, std::uint32_t& returned) = 0;

    /// `IOCTL_SCSI_PASS_THROUGH_DIRECT`. The block's own `DataBuffer` field can't carry an address on every system, so the
    /// data area is an argument of its own; the field is written by the implementation. The block is answered in place.
    /// A SCSI status other than 0 is a success of the control: it stands in the block with its sense bytes.
    virtual bool pass_through_direct(device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                                     std::uint32_t& returned) = 0;

    /// The present target of a DOS device name (no "\\.\" in front). False, last error 2: the name isn't defined.
    virtual bool query_dos_device(const std::string& name, std::string& target) = 0;

    /// Defines or removes a DOS device name by the flags above. With `remove_definition` the target isn't looked at.
    virtual bool define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) = 0;
};

}  // namespace platform
