#pragma once

#include <cstdint>
#include <span>

/// One TapeAlert flag (SSC for drives, SMC for libraries) as a person is told of it.
struct TapeAlert {
    std::uint16_t code = 0;         ///< the flag's number; in a table the row's index
    std::uint16_t severity = 0;     ///< 0, 1 or 2, rising
    const char* message = nullptr;  ///< constant text; "\n" stands between its first line and each of its steps
};

/// The flags of a library, or of a drive, in order of their codes without a gap. Row 0 is the fallback for unknown ones.
[[nodiscard]] std::span<const TapeAlert> TapeAlertTable(bool is_changer);

/// The row of a code. A code beyond the table keeps its number and gets the fallback's severity and message.
[[nodiscard]] TapeAlert FindTapeAlert(std::uint16_t code, bool is_changer);
