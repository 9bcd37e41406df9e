#pragma once

#include <cstdint>
#include <string>

#include "platform/virtual_library/personality.h"

namespace platform::tape_library {

/// The sizes that most users want to choose; everything else of a personality has a default.
struct library_options {
    std::uint16_t slots = 24;
    std::uint16_t ports = 2;
    std::uint16_t drives = 2;
    std::uint16_t cartridges = 20;        ///< in the first slots
    std::string serial = "TRNLIB0001";    ///< of the changer
    std::string drive_serial = "TRNDRV";  ///< the drives' serial numbers begin so; four digits follow, from 0001
    std::string barcode = "TRN";          ///< the bar codes begin so; the number follows in at least three digits, from 1
    std::string barcode_suffix = "L8";    ///< and end so
};

/// A complete personality: transport at 0, ports from 0x10, drives from 0x100, slots from 0x1000; where the counts don't fit
/// these, the ranges move up one behind the other.
[[nodiscard]] personality make_personality(const library_options& options = {});

/// Makes the folder, unless it is there, and writes its `library.xml`. Parents must exist. Throws `library_error`.
void create_library(const std::u16string& folder, const personality& value);
void create_library(const std::u16string& folder, const library_options& options = {});

}  // namespace platform::tape_library
