#include "platform/linux/rpc/spnego_der.h"

namespace platform::linux_rpc::der {

namespace {

constexpr std::size_t longest_length = 3;  // bytes: nothing that goes into a PDU needs more
constexpr std::uint8_t long_form = 0x80;

struct header {
    std::size_t size = 0;
    std::size_t content = 0;
};

std::optional<header> read_header(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 2 || (bytes[0] & 0x1F) == 0x1F) {
        return std::nullopt;
    }
    header found{2, bytes[1]};
    if (bytes[1] >= long_form) {
        const std::size_t count = bytes[1] & 0x7F;
        if (count == 0 || count > longest_length || bytes.size() < 2 + count) {
            return std::nullopt;
        }
        found = {2 + count, 0};
        for (const std::uint8_t byte : bytes.subspan(2, count)) {
            found.content = found.content << 8 | byte;
        }
        if (bytes[2] == 0 || found.content < long_form) {
            return std::nullopt;  // there is a shorter form
        }
    }
    return found.content <= bytes.size() - found.size ? std::optional(found) : std::nullopt;
}

}  // namespace

std::span<const std::uint8_t> reader::take(std::uint8_t wanted) {
    const auto found = failed_ ? std::nullopt : read_header(rest_);
    if (!found || rest_[0] != wanted) {
        failed_ = true;
        return {};
    }
    const auto contents = rest_.subspan(found->size, found->content);
    rest_ = rest_.subspan(found->size + found->content);
    return contents;
}

std::span<const std::uint8_t> reader::take_within(std::uint8_t outer, std::uint8_t inner) {
    reader within(take(outer));
    const auto contents = within.take(inner);
    failed_ = failed_ || !within.finished();
    return failed_ ? std::span<const std::uint8_t>() : contents;
}

void reader::skip() {
    take(next_tag());
}

std::vector<std::uint8_t> element(std::uint8_t tag, std::initializer_list<std::span<const std::uint8_t>> parts) {
    std::size_t size = 0;
    for (const auto& part : parts) {
        size += part.size();
    }
    std::vector<std::uint8_t> out{tag};
    if (size < long_form) {
        out.push_back(static_cast<std::uint8_t>(size));
    } else {
        const std::uint8_t count = size > 0xFFFF ? 3 : (size > 0xFF ? 2 : 1);
        out.push_back(static_cast<std::uint8_t>(long_form | count));
        for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
            out.push_back(static_cast<std::uint8_t>(size >> shift));
        }
    }
    for (const auto& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

}  // namespace platform::linux_rpc::der
