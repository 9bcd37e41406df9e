#include "platform/linux/rpc/verification_trailer.h"

#include <algorithm>
#include <array>

#include "platform/linux/rpc/wire.h"

namespace platform::linux_rpc {

namespace {

constexpr std::array<std::uint8_t, 8> mark{0x8A, 0xE3, 0x13, 0x71, 0x02, 0xF4, 0x36, 0x71};
constexpr std::size_t alignment = 4;
constexpr std::size_t longest = 1024;

constexpr std::uint16_t command_bitmask = 1;
constexpr std::uint16_t command_contexts = 2;
constexpr std::uint16_t command_header = 3;
constexpr std::uint16_t command_number = 0x3FFF;
constexpr std::uint16_t command_end = 0x4000;
constexpr std::uint16_t command_must_be_known = 0x8000;

constexpr std::uint32_t client_signs_headers = 1;

/// Where the last trailer begins; the size of the stub data when there is none.
std::size_t find_mark(std::span<const std::uint8_t> stub) {
    if (stub.size() < mark.size()) {
        return stub.size();
    }
    const std::size_t last = (stub.size() - mark.size()) / alignment * alignment;
    const std::size_t steps = std::min(last, longest) / alignment;
    for (std::size_t step = 0; step <= steps; ++step) {
        const std::size_t at = last - step * alignment;
        if (std::ranges::equal(stub.subspan(at, mark.size()), mark)) {
            return at;
        }
    }
    return stub.size();
}

/// A client that can sign headers says so here, where nobody on the way can take it back.
bool bitmask_agrees(wire_reader& in, const verified_request& request) {
    const std::uint32_t bits = in.u32();
    return (bits & client_signs_headers) == 0 || request.header_signing;
}

bool contexts_agree(wire_reader& in, const verified_request& request) {
    const syntax_id interface = in.syntax();
    // The client's minor version may be an older one, as it was in its bind.
    return interface.uuid == request.interface.uuid && interface.major == request.interface.major &&
           interface.minor <= request.interface.minor && in.syntax() == ndr_transfer_syntax();
}

bool header_agrees(wire_reader& in, const verified_request& request) {
    const std::uint8_t type = in.u8();
    in.skip(3);
    const std::uint8_t integers = in.u8();
    in.skip(3);
    return type == pdu_type::request && integers == (request.little_endian ? 0x10 : 0) && in.u32() == request.call_id &&
           in.u16() == request.context_id && in.u16() == request.operation;
}

bool command_agrees(std::uint16_t command, std::span<const std::uint8_t> value, const verified_request& request) {
    wire_reader in(value, request.little_endian);
    switch (command & command_number) {
        case command_bitmask:
            return value.size() == 4 && bitmask_agrees(in, request);
        case command_contexts:
            return value.size() == 40 && contexts_agree(in, request);
        case command_header:
            return value.size() == 16 && header_agrees(in, request);
        default:
            return (command & command_must_be_known) == 0;
    }
}

/// The commands up to the last one, behind which nothing may come.
bool commands_agree(std::span<const std::uint8_t> commands, const verified_request& request) {
    wire_reader reader(commands, request.little_endian);
    for (std::uint16_t command = 0; (command & command_end) == 0;) {
        command = reader.u16();
        const std::span<const std::uint8_t> value = reader.bytes(reader.u16());
        if (reader.failed() || !command_agrees(command, value, request)) {
            return false;
        }
    }
    return reader.remaining() == 0;
}

}  // namespace

trailer_finding check_verification_trailer(std::span<const std::uint8_t> stub, const verified_request& request) {
    const std::size_t begin = find_mark(stub);
    if (begin == stub.size()) {
        return {trailer_verdict::absent, stub.size()};
    }
    const bool agrees = commands_agree(stub.subspan(begin + mark.size()), request);
    return {agrees ? trailer_verdict::agrees : trailer_verdict::wrong, begin};
}

}  // namespace platform::linux_rpc
