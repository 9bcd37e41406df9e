#pragma once

#include <zlib.h>

#include <optional>
#include <string>
#include <string_view>

/// The content of a gzip archive; nothing when it is broken or cut off.
inline std::optional<std::string> gunzip(std::string_view archive) {
    constexpr int with_gzip_header = 16;
    z_stream state{};
    inflateInit2(&state, 15 + with_gzip_header);
    std::string copy(archive);
    std::string content;
    std::string block(65536, '\0');
    state.next_in = reinterpret_cast<Bytef*>(copy.data());
    state.avail_in = static_cast<uInt>(copy.size());
    int result = Z_OK;
    while (result == Z_OK) {
        state.next_out = reinterpret_cast<Bytef*>(block.data());
        state.avail_out = static_cast<uInt>(block.size());
        result = inflate(&state, Z_NO_FLUSH);
        content.append(block, 0, block.size() - state.avail_out);
    }
    inflateEnd(&state);
    return result == Z_STREAM_END && state.avail_in == 0 ? std::optional<std::string>(content) : std::nullopt;
}
