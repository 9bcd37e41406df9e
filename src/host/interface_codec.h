#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "command/invoke_dispatcher.h"

/// The stub data of the interface's three procedures (C706 chapter 14, NDR): what comes in is decoded from the request's
/// bytes, what goes out is laid out into a buffer of its exact size, all of whose bytes are written. Answers are little-endian, as
/// the runtime marks them.
namespace interface_codec {

/// Raised for a request that isn't what the interface says; the client gets 1783.
struct bad_stub_data {};

/// A zero-terminated text of a request. Points into the request's own bytes when they can be used as they lie, and owns a copy
/// otherwise. The request has to outlive it.
class request_text {
public:
    /// A terminator follows the view.
    explicit request_text(std::u16string_view in_place) : in_place_(in_place) {}
    explicit request_text(std::u16string copy) : copy_(std::move(copy)) {}

    [[nodiscard]] const char16_t* c_str() const { return in_place_.data() != nullptr ? in_place_.data() : copy_.c_str(); }
    /// All that came in front of the last terminator. There may be others within.
    [[nodiscard]] std::u16string_view all() const { return in_place_.data() != nullptr ? in_place_ : std::u16string_view(copy_); }

private:
    std::u16string_view in_place_;
    std::u16string copy_;
};

/// Reads parameters in order. Each operation throws `bad_stub_data` when the bytes don't hold what they should; bytes behind
/// the last parameter are nobody's business.
class request_reader {
public:
    request_reader(std::span<const std::uint8_t> stub, bool little_endian) : stub_(stub), little_endian_(little_endian) {}

    /// A `[string, ref] wchar_t*`: maximum count, offset, actual count, then the units with their terminator.
    [[nodiscard]] request_text read_string();
    [[nodiscard]] std::uint32_t read_long();
    /// A `[ref, size_is(size)] byte*`.
    [[nodiscard]] std::span<const std::uint8_t> read_bytes(std::uint32_t size);

private:
    void align();
    [[nodiscard]] std::span<const std::uint8_t> take(std::size_t size);

    std::span<const std::uint8_t> stub_;
    bool little_endian_;
    std::size_t position_ = 0;
};

/// Answer of `DoRpc`: the output text or a null pointer, then the result.
[[nodiscard]] std::size_t DoRpcReplySize(const std::optional<std::u16string>& output, const InvokeResult& result);
void WriteDoRpcReply(std::span<std::uint8_t> reply, const std::optional<std::u16string>& output, const InvokeResult& result);

/// Answer of `DoRpcWithBinary`: a null output, a size of 0, a null block, then the result.
[[nodiscard]] std::size_t DoRpcWithBinaryReplySize(const InvokeResult& result);
void WriteDoRpcWithBinaryReply(std::span<std::uint8_t> reply, const InvokeResult& result);

/// Answer of `InvokerTestConnection`: the result alone.
[[nodiscard]] std::size_t ResultReplySize(const InvokeResult& result);
void WriteResultReply(std::span<std::uint8_t> reply, const InvokeResult& result);

}  // namespace interface_codec
