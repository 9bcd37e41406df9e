#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform::linux_rpc {

/// A UUID in its text's byte order (RFC 4122). On the wire its first three fields follow the PDU's byte order.
using uuid_bytes = std::array<std::uint8_t, 16>;

/// Reads 8-4-4-4-12 hexadecimal digits; anything else gives the nil UUID.
[[nodiscard]] uuid_bytes uuid_from_text(std::string_view text);
[[nodiscard]] std::string uuid_to_text(const uuid_bytes& uuid);

/// An interface or a transfer syntax with its version. Transfer syntaxes keep their whole version in `major`.
struct syntax_id {
    uuid_bytes uuid{};
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    bool operator==(const syntax_id&) const = default;
};

/// Reads numbers in either byte order out of bytes that somebody else made. A read behind the end yields zero and makes the
/// reader fail for good, so that a decoder may look at `failed()` once, at its end.
class wire_reader {
public:
    wire_reader(std::span<const std::uint8_t> bytes, bool little_endian) : bytes_(bytes), little_endian_(little_endian) {}

    std::uint8_t u8();
    std::uint16_t u16();
    std::uint32_t u32();
    uuid_bytes uuid();
    syntax_id syntax();
    /// The next bytes as they stand; empty when there are fewer.
    std::span<const std::uint8_t> bytes(std::size_t count);
    void skip(std::size_t count);
    /// Goes on to the next multiple of `boundary`, counted from the first byte.
    void align(std::size_t boundary);

    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] std::size_t position() const { return at_; }
    [[nodiscard]] std::size_t remaining() const { return bytes_.size() - at_; }

private:
    bool need(std::size_t count);

    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
    bool little_endian_;
    bool failed_ = false;
};

/// Appends numbers, little-endian, to a growing block.
class wire_writer {
public:
    explicit wire_writer(std::vector<std::uint8_t>& out) : out_(out) {}

    void u8(std::uint8_t value) { out_.push_back(value); }
    void u16(std::uint16_t value);
    void u32(std::uint32_t value);
    void uuid(const uuid_bytes& value);
    void syntax(const syntax_id& value);
    void bytes(std::span<const std::uint8_t> value);
    void zeros(std::size_t count);
    /// Fills with zeros to the next multiple of `boundary`, counted from the block's first byte.
    void align(std::size_t boundary);
    /// Overwrites a number written before.
    void patch_u16(std::size_t at, std::uint16_t value);

    [[nodiscard]] std::size_t size() const { return out_.size(); }

private:
    std::vector<std::uint8_t>& out_;
};

/// Stores a number little-endian; the span has room for it.
void store_le16(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value);
void store_le32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value);

}  // namespace platform::linux_rpc
