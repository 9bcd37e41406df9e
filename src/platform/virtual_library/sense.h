#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace platform::tape_library {

/// What a device says about a failed command: sense key, additional sense code and its qualifier (SPC-4, sense data).
struct sense_code {
    std::uint8_t key = 0;
    std::uint8_t asc = 0;
    std::uint8_t ascq = 0;

    friend bool operator==(const sense_code&, const sense_code&) = default;
};

/// The conditions that the emulated units report by themselves.
namespace sense {
inline constexpr sense_code none{0x0, 0x00, 0x00};
inline constexpr sense_code progress{0x0, 0x00, 0x16};
inline constexpr sense_code erase_progress{0x0, 0x00, 0x18};
inline constexpr sense_code rewind_progress{0x0, 0x00, 0x1A};
inline constexpr sense_code becoming_ready{0x2, 0x04, 0x01};
inline constexpr sense_code format_in_progress{0x2, 0x04, 0x04};
inline constexpr sense_code operation_in_progress{0x2, 0x04, 0x07};
inline constexpr sense_code door_open{0x2, 0x04, 0x18};
inline constexpr sense_code cleaning_cartridge{0x2, 0x30, 0x03};
inline constexpr sense_code medium_not_present{0x2, 0x3A, 0x00};
inline constexpr sense_code mechanical_error{0x4, 0x15, 0x01};
inline constexpr sense_code internal_failure{0x4, 0x44, 0x00};
inline constexpr sense_code invalid_opcode{0x5, 0x20, 0x00};
inline constexpr sense_code invalid_element_address{0x5, 0x21, 0x01};
inline constexpr sense_code invalid_field{0x5, 0x24, 0x00};
inline constexpr sense_code saving_not_supported{0x5, 0x39, 0x00};
inline constexpr sense_code destination_full{0x5, 0x3B, 0x0D};
inline constexpr sense_code source_empty{0x5, 0x3B, 0x0E};
inline constexpr sense_code magazine_not_accessible{0x5, 0x3B, 0x11};
inline constexpr sense_code removal_prevented{0x5, 0x53, 0x02};
inline constexpr sense_code medium_may_have_changed{0x6, 0x28, 0x00};
inline constexpr sense_code import_export_accessed{0x6, 0x28, 0x01};
inline constexpr sense_code power_on{0x6, 0x29, 0x00};
inline constexpr sense_code write_protected{0x7, 0x27, 0x00};
inline constexpr sense_code worm_overwrite{0x7, 0x30, 0x0C};
}  // namespace sense

/// A sense code and, where an operation is under way, how far it has come: of 65536.
struct sense_data {
    sense_data(const sense_code& that = {}, std::optional<std::uint16_t> so_far = std::nullopt) : code(that), progress(so_far) {}

    sense_code code;
    std::optional<std::uint16_t> progress;
};

/// 18 bytes, response code 70h; the progress in the sense key specific bytes.
[[nodiscard]] std::vector<std::uint8_t> fixed_format(const sense_data& data);
/// 8 bytes, response code 72h; 16 with a descriptor that tells the progress.
[[nodiscard]] std::vector<std::uint8_t> descriptor_format(const sense_data& data);

}  // namespace platform::tape_library
