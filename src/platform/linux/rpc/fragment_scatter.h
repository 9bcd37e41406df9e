#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/linux/rpc/pdu.h"

namespace platform::linux_rpc {

/// One read of several fragments of a long request, which are expected to be alike: headers go into a place of their own, stub data
/// straight to where the request keeps it. Whatever turns out to be something else is put together again as it was sent.
class fragment_scatter {
public:
    /// `memory` is for stub data, `fragment_stub` bytes of each fragment, at least one, and fewer of one that meets its end. `kept`
    /// is the beginning of the first fragment, which came with an earlier read: nothing, or a header at least and less than the
    /// whole. At most `most` bytes are read, with what was kept, but for the rest of the first fragment.
    fragment_scatter(std::span<std::uint8_t> memory, std::size_t fragment_stub, std::span<const std::uint8_t> kept,
                     std::size_t most);

    /// Where to receive, and how many bytes there is room for.
    [[nodiscard]] std::span<iovec> vectors() { return std::span(vectors_).first(vector_count_); }
    [[nodiscard]] std::size_t room() const { return room_; }
    /// So many bytes were received.
    void received(std::size_t bytes) { there_ += bytes; }

    struct fragment {
        std::span<const std::uint8_t> head;  ///< empty: it isn't there whole
        std::span<std::uint8_t> stub;        ///< as long as it was expected to be
        bool whole = false;
    };
    /// The first fragment that hasn't been taken.
    [[nodiscard]] fragment front();
    void take_front();
    /// Copies what follows the first so many fragments of those that haven't been taken to `to`, which has room for what was kept
    /// and read, in the order in which it came.
    [[nodiscard]] std::span<std::uint8_t> behind(std::size_t fragments, std::span<std::uint8_t> to) const;

private:
    static constexpr std::size_t most_fragments = 128;

    [[nodiscard]] std::span<std::uint8_t> stub_of(std::size_t index) const;

    std::span<std::uint8_t> memory_;
    std::size_t fragment_stub_;
    std::array<std::array<std::uint8_t, request_header_size>, most_fragments> heads_;
    std::array<iovec, 2 * most_fragments> vectors_;
    std::size_t vector_count_ = 0;
    std::size_t count_ = 0;  ///< fragments that there is room for
    std::size_t room_ = 0;
    std::size_t front_ = 0;  ///< index of the first fragment that hasn't been taken
    std::size_t there_ = 0;  ///< bytes from its beginning on
};

}  // namespace platform::linux_rpc
