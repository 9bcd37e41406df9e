#include <cstdint>
#include <cstring>
#include <vector>

#include "host/interface_codec.h"

/// Decodes bytes as each procedure's request, in both byte orders. The first byte chooses; the rest is the stub data.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    // As the runtime gives it: at an aligned address.
    std::vector<std::uint64_t> words((size - 1 + 7) / 8);
    std::uint8_t* start = reinterpret_cast<std::uint8_t*>(words.data());
    if (size > 1) {
        std::memcpy(start, data + 1, size - 1);
    }
    const bool little_endian = (data[0] & 1) != 0;
    try {
        interface_codec::request_reader reader({start, size - 1}, little_endian);
        const interface_codec::request_text first = reader.read_string();
        std::size_t length = std::char_traits<char16_t>::length(first.c_str());
        if ((data[0] & 2) != 0) {
            const interface_codec::request_text second = reader.read_string();
            length += std::char_traits<char16_t>::length(second.c_str());
        }
        if ((data[0] & 4) != 0) {
            for (const std::uint8_t byte : reader.read_bytes(reader.read_long())) {
                length += byte;
            }
        }
        return length == ~std::size_t{0} ? 1 : 0;
    } catch (const interface_codec::bad_stub_data&) {
        return 0;
    }
}
