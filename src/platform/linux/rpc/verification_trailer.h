#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/linux/rpc/pdu.h"

namespace platform::linux_rpc {

/// What a verification trailer (MS-RPCE 2.2.2.13) has to agree with: the request as the headers of its PDUs told it, which a
/// signature needn't cover.
struct verified_request {
    bool header_signing = false;  ///< whether both sides agreed to sign headers
    bool little_endian = true;
    std::uint32_t call_id = 0;
    std::uint16_t context_id = 0;
    std::uint16_t operation = 0;
    syntax_id interface;
};

enum class trailer_verdict : std::uint8_t {
    absent,  ///< the stub data ends without one
    agrees,
    wrong  ///< it doesn't fit the request, isn't well-formed or demands what isn't known here: somebody changed a header
};

struct trailer_finding {
    trailer_verdict verdict = trailer_verdict::absent;
    std::size_t stub_size = 0;  ///< stub bytes without the trailer; padding in front of it may be left
};

/// Looks at the end of a request's stub data for a trailer and holds it against the request. A trailer begins at a multiple
/// of 4 with 8 fixed bytes and isn't longer than 1024.
[[nodiscard]] trailer_finding check_verification_trailer(std::span<const std::uint8_t> stub, const verified_request& request);

}  // namespace platform::linux_rpc
