#include "foundation/text/ascii.h"

#include <algorithm>
#include <array>

namespace text {

namespace {

/// Blocks of a fixed length let the compiler use vector instructions; some thousand units stay in the first cache.
constexpr std::size_t block_size = 64;
constexpr std::size_t blocks_at_once = 32;
constexpr std::size_t units_at_once = block_size * blocks_at_once;
constexpr char16_t ascii_limit = 0x80;

void widen_block(char16_t* out, const char* ascii) {
    for (std::size_t index = 0; index < block_size; ++index) {
        out[index] = static_cast<unsigned char>(ascii[index]);
    }
}

/// All bits that occur in the block's units.
char16_t narrow_block(char* out, const char16_t* text) {
    unsigned seen = 0;
    for (std::size_t index = 0; index < block_size; ++index) {
        seen |= text[index];
        out[index] = static_cast<char>(text[index]);
    }
    return static_cast<char16_t>(seen);
}

}  // namespace

void append_widened_ascii(std::u16string& out, std::string_view ascii) {
    out.reserve(out.size() + ascii.size());
    std::array<char16_t, units_at_once> units;
    while (ascii.size() >= block_size) {
        const std::size_t count = std::min(ascii.size() / block_size * block_size, units_at_once);
        for (std::size_t at = 0; at < count; at += block_size) {
            widen_block(units.data() + at, ascii.data() + at);
        }
        out.append(units.data(), count);
        ascii.remove_prefix(count);
    }
    for (const char byte : ascii) {
        out.push_back(static_cast<unsigned char>(byte));
    }
}

std::size_t append_narrowed_ascii(std::string& out, std::u16string_view text) {
    out.reserve(out.size() + text.size());
    const std::size_t start = out.size();
    std::array<char, units_at_once> bytes;
    while (text.size() >= block_size) {
        const std::size_t count = std::min(text.size() / block_size * block_size, units_at_once);
        std::size_t done = 0;
        while (done < count && narrow_block(bytes.data() + done, text.data() + done) < ascii_limit) {
            done += block_size;
        }
        out.append(bytes.data(), done);
        text.remove_prefix(done);
        if (done < count) {
            break;
        }
    }
    for (const char16_t unit : text) {
        if (unit >= ascii_limit) {
            break;
        }
        out.push_back(static_cast<char>(unit));
    }
    return out.size() - start;
}

}  // namespace text
