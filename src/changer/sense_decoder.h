#pragma once

#include <cstdint>
#include <span>
#include <string>

/// What a device reports about a failed command, as one line of English. The line is more than a message: the unit attention
/// rule of the pass-through compares it as a whole and the opening of a changer searches it, so that its wording must not
/// change. Pure functions; none fails.

/// What is taken out of sense bytes (SPC-4 clause 4.5). Fields that the bytes are too short for are 0.
struct ScsiSenseHeader {
    std::uint8_t response_code = 0;
    std::uint8_t sense_key = 0;
    std::uint8_t asc = 0;
    std::uint8_t ascq = 0;
    std::uint8_t additional_length = 0;  ///< descriptor format only
};

/// The line for sense bytes. "Sense buffer empty" for none; empty when they aren't sense data.
[[nodiscard]] std::string DecodeSense(std::span<const std::uint8_t> sense);

/// False, with a cleared header, when the bytes aren't sense data.
bool NormalizeSense(std::span<const std::uint8_t> sense, ScsiSenseHeader& header);

/// "Additional sense: " and the text of the code, or the bare numbers when it has none.
[[nodiscard]] std::string DecodeAdditionalSense(std::uint8_t asc, std::uint8_t ascq);

/// Name of a SCSI status byte (SAM-4 clause 5.3).
[[nodiscard]] std::string DecodeScsiStatus(std::uint8_t status);
