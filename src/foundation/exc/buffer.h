#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace exc {

/// Writes a little-endian image into a growing byte vector. The vector grows by whole multiples of 1 MiB; `cursor()` is
/// what was written.
class CBufWriter {
public:
    explicit CBufWriter(std::vector<std::uint8_t>& buffer) : buffer_(&buffer) {}

    void write_bool(bool value);
    void write_int32(std::int32_t value);
    /// Length as int32, then the bytes, no terminator.
    void write_string(std::string_view value);
    [[nodiscard]] std::size_t cursor() const { return cursor_; }

private:
    void write_bytes(const void* data, std::size_t size);

    std::vector<std::uint8_t>* buffer_;
    std::size_t cursor_ = 0;
};

/// Reads such an image. All failures are `runtime_exc_t`.
class CBufReader {
public:
    static constexpr std::int32_t default_string_limit = 64 * 1024 * 1024;

    explicit CBufReader(const std::vector<std::uint8_t>* buffer, std::int32_t string_limit = default_string_limit)
        : buffer_(buffer), string_limit_(string_limit) {}

    [[nodiscard]] bool read_bool();
    [[nodiscard]] std::int32_t read_int32();
    /// Cut at the first zero byte.
    [[nodiscard]] std::string read_string();

private:
    void read_bytes(void* data, std::size_t size);
    /// The next bytes, still in the buffer; moves the cursor behind them.
    const std::uint8_t* take(std::size_t size);

    const std::vector<std::uint8_t>* buffer_;
    std::size_t cursor_ = 0;
    std::int32_t string_limit_;
};

}  // namespace exc
