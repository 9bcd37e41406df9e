#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <vector>

/// As much of DER (X.690) as negotiation tokens are made of: elements with one-byte tags and definite lengths.
namespace platform::linux_rpc::der {

namespace tag {
inline constexpr std::uint8_t octet_string = 0x04;
inline constexpr std::uint8_t object_identifier = 0x06;
inline constexpr std::uint8_t enumerated = 0x0A;
inline constexpr std::uint8_t sequence = 0x30;
inline constexpr std::uint8_t application = 0x60;  ///< [APPLICATION 0], constructed

/// Context-specific and constructed: [number].
[[nodiscard]] constexpr std::uint8_t context(std::uint8_t number) {
    return static_cast<std::uint8_t>(0xA0 + number);
}
}  // namespace tag

/// Walks over elements that lie one behind the other. The first element that isn't as expected, or whose length isn't in its
/// shortest form or reaches beyond the end, makes the reader fail for good: from then on everything reads as empty.
class reader {
public:
    explicit reader(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

    [[nodiscard]] bool failed() const { return failed_; }
    /// All was read, and nothing failed.
    [[nodiscard]] bool finished() const { return !failed_ && rest_.empty(); }
    /// Tag of the next element, 0 when there is none.
    [[nodiscard]] std::uint8_t next_tag() const { return failed_ || rest_.empty() ? std::uint8_t{0} : rest_[0]; }

    /// Contents of the next element, which has to bear this tag.
    std::span<const std::uint8_t> take(std::uint8_t wanted);
    /// The same of an element within the next one, which has to hold nothing else: how explicit tags are written.
    std::span<const std::uint8_t> take_within(std::uint8_t outer, std::uint8_t inner);
    /// Passes over the next element, whatever it is.
    void skip();
    void fail() { failed_ = true; }

private:
    std::span<const std::uint8_t> rest_;
    bool failed_ = false;
};

/// One element around the parts, one behind the other.
[[nodiscard]] std::vector<std::uint8_t> element(std::uint8_t tag, std::initializer_list<std::span<const std::uint8_t>> parts);

}  // namespace platform::linux_rpc::der
