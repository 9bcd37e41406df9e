#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/linux/rpc/byte_block.h"
#include "platform/linux/rpc/current_call.h"
#include "platform/linux/rpc/interface_table.h"
#include "platform/linux/rpc/security_context.h"

namespace platform::linux_rpc {

/// How the PDUs of one authentication are protected.
struct pdu_protection {
    std::uint8_t auth_type = 0;
    auth_level level = auth_level::none;
    std::uint32_t context_id = 0;
    security_context* context = nullptr;  ///< null: PDUs bear no verifier
    /// Answers of several calls may be due at a time: each gets its signatures, which are numbered, when its turn has come.
    bool signed_when_sent = false;

    [[nodiscard]] bool signs() const { return context != nullptr && level >= auth_level::packet; }
};

/// One request with all its fragments, ready to be served. What it points at belongs to the connection, which outlives it and
/// leaves identity and security alone while the call is served.
struct rpc_call {
    offered_interface_ptr target;
    std::uint32_t call_id = 0;
    std::uint16_t context_id = 0;
    std::uint16_t operation = 0;
    bool little_endian = true;
    bool answered = true;                         ///< false: the client wants to hear nothing of it
    byte_block stub;                              ///< empty when `borrowed_stub` isn't
    std::span<const std::uint8_t> borrowed_stub;  ///< stub data that still lies in the PDU that it came in
    client_identity* identity = nullptr;
    std::optional<client_identity> own_identity;  ///< `identity`, where other calls of the caller are served meanwhile
    pdu_protection protection;
    std::uint16_t max_fragment = 0;  ///< longest PDU that the client takes
    std::uint32_t local_ipv4 = 0;
    const std::string* address = nullptr;  ///< the caller's, for the log

    [[nodiscard]] std::span<const std::uint8_t> all_stub() const { return borrowed_stub.empty() ? stub.all() : borrowed_stub; }
    /// Copies borrowed stub data, so that the PDU may go.
    void own_stub();
    /// Shortens the stub data.
    void cut_stub(std::size_t size);
    /// Whether serving it may take longer than a look at memory: what the interface says of the operation, and what is still to
    /// be asked about the caller.
    [[nodiscard]] bool may_wait() const;
};

/// What the fragments of a response have in common.
struct response_shape {
    std::uint32_t call_id = 0;
    std::uint16_t context_id = 0;
    std::uint16_t max_fragment = 0;
    pdu_protection protection;
};

/// PDUs on their way out: the pieces in order, over memory that it owns.
struct outgoing {
    /// A response that gets its signatures when its turn has come.
    struct unsigned_rest {
        response_shape shape;
        std::size_t done = 0;  ///< stub bytes that are in fragments already
    };

    byte_block block;                 ///< a response
    std::vector<std::uint8_t> bytes;  ///< any other PDU
    std::vector<std::uint8_t> headers;
    std::vector<std::span<const std::uint8_t>> pieces;
    std::uint32_t pdus = 0;
    bool numbered = false;  ///< bears signatures, which count on every one before them having arrived
    std::optional<unsigned_rest> rest;

    outgoing() = default;
    /// One PDU.
    explicit outgoing(std::vector<std::uint8_t> pdu);
    outgoing(outgoing&&) = default;
    outgoing& operator=(outgoing&&) = default;
    outgoing(const outgoing&) = delete;
    outgoing& operator=(const outgoing&) = delete;
    ~outgoing() = default;

    [[nodiscard]] bool empty() const { return pieces.empty() && !rest; }
    /// Makes the pieces, up to so many fragments, of what is still to be signed, in the place of those that are out. False: there
    /// is nothing left. To be called by the thread that uses the security context.
    bool sign_more(std::size_t fragments);
    /// Takes a PDU in the place of what was here.
    void hold(std::vector<std::uint8_t> pdu);
    /// Empties it for the next answer, which finds the memory of a small one.
    void clear();
};

/// Serves a call on the calling thread: dispatches it and makes the answer, a response or a fault, protected and in
/// fragments as the client takes them. Empty for a call that is not to be answered.
[[nodiscard]] outgoing serve(rpc_call& call);
/// The same, with the answer in the place of what is in `answer`, whose memory is used again.
void serve(rpc_call& call, outgoing& answer);

}  // namespace platform::linux_rpc
