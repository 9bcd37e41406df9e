#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// System error numbers, the same on every system: those of Windows' winerror.h. Implementations map what their own
/// system reports to these.
namespace error {
inline constexpr std::uint32_t success = 0;
inline constexpr std::uint32_t invalid_function = 1;
inline constexpr std::uint32_t file_not_found = 2;
inline constexpr std::uint32_t path_not_found = 3;
inline constexpr std::uint32_t access_denied = 5;
inline constexpr std::uint32_t invalid_handle = 6;
inline constexpr std::uint32_t not_enough_memory = 8;
inline constexpr std::uint32_t invalid_drive = 15;
inline constexpr std::uint32_t write_protect = 19;
inline constexpr std::uint32_t bad_unit = 20;
inline constexpr std::uint32_t not_ready = 21;
inline constexpr std::uint32_t bad_length = 24;
inline constexpr std::uint32_t general_failure = 31;
inline constexpr std::uint32_t sharing_violation = 32;
inline constexpr std::uint32_t lock_violation = 33;
inline constexpr std::uint32_t not_supported = 50;
inline constexpr std::uint32_t device_not_exist = 55;
inline constexpr std::uint32_t file_exists = 80;
inline constexpr std::uint32_t invalid_parameter = 87;
inline constexpr std::uint32_t disk_full = 112;
inline constexpr std::uint32_t semaphore_timeout = 121;
inline constexpr std::uint32_t insufficient_buffer = 122;
inline constexpr std::uint32_t invalid_name = 123;
inline constexpr std::uint32_t negative_seek = 131;
inline constexpr std::uint32_t busy = 170;
inline constexpr std::uint32_t already_exists = 183;
inline constexpr std::uint32_t more_data = 234;
inline constexpr std::uint32_t no_more_items = 259;
inline constexpr std::uint32_t too_many_posts = 298;
inline constexpr std::uint32_t io_pending = 997;
inline constexpr std::uint32_t no_unicode_translation = 1113;
inline constexpr std::uint32_t end_of_media = 1100;
inline constexpr std::uint32_t filemark_detected = 1101;
inline constexpr std::uint32_t beginning_of_media = 1102;
inline constexpr std::uint32_t setmark_detected = 1103;
inline constexpr std::uint32_t no_data_detected = 1104;
inline constexpr std::uint32_t unable_to_lock_media = 1108;
inline constexpr std::uint32_t unable_to_unload_media = 1109;
inline constexpr std::uint32_t media_changed = 1110;
inline constexpr std::uint32_t bus_reset = 1111;
inline constexpr std::uint32_t no_media_in_drive = 1112;
inline constexpr std::uint32_t io_device = 1117;
inline constexpr std::uint32_t source_element_empty = 1160;
inline constexpr std::uint32_t destination_element_full = 1161;
inline constexpr std::uint32_t illegal_element_address = 1162;
inline constexpr std::uint32_t magazine_not_present = 1163;
inline constexpr std::uint32_t device_door_open = 1166;
inline constexpr std::uint32_t device_not_connected = 1167;
inline constexpr std::uint32_t not_found = 1168;
inline constexpr std::uint32_t function_failed = 1627;
inline constexpr std::uint32_t invalid_user_buffer = 1784;
}  // namespace error

/// The calling thread's last error, and the texts of error numbers. Callable from any thread.
class errors {
public:
    virtual ~errors() = default;

    /// The calling thread's last error. 0 until something set it.
    [[nodiscard]] virtual std::uint32_t last_error() = 0;
    virtual void set_last_error(std::uint32_t code) = 0;

    /// The system's English sentence for an error number, UTF-8, with the line end that the system puts behind it
    /// (carriage return, line feed). Nothing when the system has none.
    [[nodiscard]] virtual std::optional<std::string> system_text(std::uint32_t code) = 0;

    /// The sentence that the internet library, if it is loaded, has for the number. Asked for 12000 to 12175 only.
    [[nodiscard]] virtual std::optional<std::string> internet_text(std::uint32_t code) = 0;

    /// What the C++ library's system category says of the number, UTF-8. The last resort; never empty.
    [[nodiscard]] virtual std::string category_text(std::uint32_t code) = 0;

    /// Takes the description of the thread's pending COM error object, UTF-8, and clears the object. Nothing when none pends.
    [[nodiscard]] virtual std::optional<std::string> take_com_description() = 0;
};

}  // namespace platform
