#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "changer/sense_decoder.h"

/// Sense bytes as a device may send them: any bytes give a text, and a text that isn't empty names a sense key.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> sense(data, size);
    const std::string text = DecodeSense(sense);
    ScsiSenseHeader header;
    const bool is_sense = NormalizeSense(sense, header);
    if (size != 0 && is_sense != (text.find(";  Sense key: ") != std::string::npos)) {
        std::abort();
    }
    if (size > 1) {
        static_cast<void>(DecodeAdditionalSense(data[0], data[1]));
        static_cast<void>(DecodeScsiStatus(data[0]));
    }
    return 0;
}
