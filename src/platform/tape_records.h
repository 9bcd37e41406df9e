#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Fixed-width records of the tape functions, the same on every system. Numbers are little-endian in memory on all systems that
/// this runs on.

/// Operations of `tape_functions::get_parameters`.
inline constexpr std::uint32_t GET_TAPE_MEDIA_INFORMATION = 0;
inline constexpr std::uint32_t GET_TAPE_DRIVE_INFORMATION = 1;

/// Operations of `tape_functions::prepare`.
inline constexpr std::uint32_t TAPE_LOAD = 0;
inline constexpr std::uint32_t TAPE_UNLOAD = 1;
inline constexpr std::uint32_t TAPE_TENSION = 2;
inline constexpr std::uint32_t TAPE_LOCK = 3;
inline constexpr std::uint32_t TAPE_UNLOCK = 4;
inline constexpr std::uint32_t TAPE_FORMAT = 5;

/// Types of `tape_functions::erase`.
inline constexpr std::uint32_t TAPE_ERASE_SHORT = 0;
inline constexpr std::uint32_t TAPE_ERASE_LONG = 1;

/// Method of `tape_functions::set_position`: to the beginning of the medium.
inline constexpr std::uint32_t TAPE_REWIND = 0;

/// The medium in a drive. Capacities are in bytes.
struct TAPE_GET_MEDIA_PARAMETERS {
    std::uint64_t Capacity = 0;
    std::uint64_t Remaining = 0;
    std::uint32_t BlockSize = 0;  ///< in bytes; 0: blocks of variable length
    std::uint32_t PartitionCount = 0;
    std::uint8_t WriteProtected = 0;
    std::uint8_t Padding[7] = {};
};
static_assert(sizeof(TAPE_GET_MEDIA_PARAMETERS) == 32);
static_assert(offsetof(TAPE_GET_MEDIA_PARAMETERS, BlockSize) == 16);
static_assert(offsetof(TAPE_GET_MEDIA_PARAMETERS, WriteProtected) == 24);

/// Bits of `FeaturesLow`.
inline constexpr std::uint32_t TAPE_DRIVE_COMPRESSION = 0x00020000;
inline constexpr std::uint32_t TAPE_DRIVE_REPORT_SMKS = 0x00080000;

/// What a drive can do, medium or none. Sizes are in bytes.
struct TAPE_GET_DRIVE_PARAMETERS {
    std::uint8_t ECC = 0;
    std::uint8_t Compression = 0;
    std::uint8_t DataPadding = 0;
    std::uint8_t ReportSetmarks = 0;
    std::uint32_t DefaultBlockSize = 0;
    std::uint32_t MaximumBlockSize = 0;
    std::uint32_t MinimumBlockSize = 0;
    std::uint32_t MaximumPartitionCount = 0;
    std::uint32_t FeaturesLow = 0;
    std::uint32_t FeaturesHigh = 0;
    std::uint32_t EOTWarningZoneSize = 0;
};
static_assert(sizeof(TAPE_GET_DRIVE_PARAMETERS) == 32);
static_assert(offsetof(TAPE_GET_DRIVE_PARAMETERS, DefaultBlockSize) == 4);
static_assert(offsetof(TAPE_GET_DRIVE_PARAMETERS, MinimumBlockSize) == 12);
static_assert(offsetof(TAPE_GET_DRIVE_PARAMETERS, FeaturesLow) == 20);

}  // namespace platform
