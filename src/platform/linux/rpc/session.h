#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/pdu.h"
#include "platform/linux/rpc/request_assembly.h"
#include "platform/linux/rpc/server_core.h"

namespace platform::linux_rpc {

/// Who is at the other end of a connection, as the socket tells it.
struct connection_peer {
    std::string address;  ///< for the log
    client_identity identity;
    std::uint32_t local_ipv4 = 0;  ///< address of this machine that was reached, host byte order; 0: not by IPv4
};

/// What a PDU leads to.
struct session_step {
    std::vector<std::uint8_t> answer;  ///< a PDU to send; may be empty
    std::unique_ptr<rpc_call> call;    ///< a call to serve before the next PDU is taken, null: none
    bool close = false;                ///< the connection ends, once the answer is sent
};

/// The protocol of one connection, without its socket: takes whole PDUs in the order of their arrival and says what to do.
/// Used by one thread at a time; takes no PDU while a call of it is served, unless the client may multiplex.
class session {
public:
    session(server_core& core, connection_peer peer);
    ~session();
    session(const session&) = delete;
    session& operator=(const session&) = delete;

    /// What to do with a header: a PDU is taken only when this says nothing else.
    [[nodiscard]] std::optional<session_step> judge_header(const pdu_header& header) const;

    /// Takes a PDU of exactly `header.fragment_length` bytes, which may be decrypted in place.
    session_step take(const pdu_header& header, std::span<std::uint8_t> pdu);
    /// The same; a call that is whole with this PDU may borrow its stub data from there: `rpc_call::own_stub`.
    session_step take_lending(const pdu_header& header, std::span<std::uint8_t> pdu);

    /// Memory that the stub data of a request's next fragments belongs in, as many bytes to each as its latest one had.
    struct fragment_places {
        std::span<std::uint8_t> memory;
        std::size_t fragment_stub = 0;
    };
    /// Nothing: what comes next is to be taken as whole PDUs.
    [[nodiscard]] std::optional<fragment_places> next_places();
    /// Whether this is the header of a further fragment of the request that the places are of, with nothing but so much stub data.
    [[nodiscard]] bool goes_on(const pdu_header& header, std::size_t stub_size);
    /// Takes such a fragment, whose stub data was received at the beginning of the places.
    session_step take_placed(const pdu_header& header, std::span<std::uint8_t> stub);

    /// Gives the object of a call back that has been served, so that the next one needs no memory.
    void take_back(std::unique_ptr<rpc_call> call) { incomplete_.take_back(std::move(call)); }

    /// Whether a PDU that arrives while a call is served is one to hear of out of turn: the client cancels or abandons a call.
    /// One with a verifier is to be taken in its turn all the same: the call may be using the security context.
    [[nodiscard]] static bool cancels(const pdu_header& header) {
        return header.type == pdu_type::co_cancel || header.type == pdu_type::orphaned;
    }

    /// Bound, and no authentication half done: from here on the time to bind counts no more.
    [[nodiscard]] bool established() const;
    /// Whether fragments of a request are still to come.
    [[nodiscard]] bool request_incomplete() const { return !incomplete_.empty(); }
    /// Whether the client may send further requests, and fragments of several in turn, before it has its answers.
    [[nodiscard]] bool multiplexed() const { return multiplexed_; }

private:
    struct authentication {
        std::uint32_t id = 0;
        std::uint8_t type = 0;
        auth_level level = auth_level::none;
        std::unique_ptr<security_context> context;
        security_context::state state = security_context::state::proceed;
        client_identity identity;
        std::vector<std::uint8_t> last_token;  ///< the one that completed it, if it isn't too long to be kept
    };
    struct request_head {
        std::uint16_t context_id = 0;
        std::uint16_t operation = 0;
        std::size_t body_offset = 0;
        std::uint32_t stub_hint = 0;  ///< stub bytes of the whole request, as the client says
    };
    enum class token_outcome : std::uint8_t { none, accepted, unknown_type, refused };

    session_step take_bind(const pdu_header& header, std::span<const std::uint8_t> pdu);
    session_step take_alter_context(const pdu_header& header, std::span<const std::uint8_t> pdu);
    session_step take_auth3(const pdu_header& header, std::span<const std::uint8_t> pdu);
    session_step take_cancel(const pdu_header& header, std::span<std::uint8_t> pdu);
    session_step take_request(const pdu_header& header, std::span<std::uint8_t> pdu);
    [[nodiscard]] session_step refused_security(std::uint32_t call_id, std::uint16_t context_id, std::uint32_t status) const;
    session_step continue_request(const pdu_header& header, request_assembly::request& incoming, const authentication* security,
                                  std::span<const std::uint8_t> stub);

    /// Feeds the token of a PDU to its authentication, which the first token makes.
    token_outcome take_token(const auth_trailer& trailer, std::vector<std::uint8_t>& reply);
    authentication* begin_authentication(const auth_trailer& trailer, token_outcome& outcome);
    [[nodiscard]] authentication* find_authentication(std::uint32_t id);
    /// Whether a token is once more the one that completed its authentication: nothing is proved anew, and nothing has changed.
    [[nodiscard]] bool repeats_last_token(const auth_trailer& trailer);
    /// Checks and strips a request's verifier. Returns a fault, 0 for none; `stub_end` is where stub data ends, `security`
    /// whose request it is, null for nobody's.
    std::uint32_t check_security(const pdu_header& header, std::span<std::uint8_t> pdu, std::size_t body_offset,
                                 std::size_t& stub_end, authentication*& security);
    std::uint32_t unsigned_request(authentication*& security);

    request_assembly::request& begin_request(const pdu_header& header, const request_head& head, authentication* security);
    [[nodiscard]] std::size_t request_limit(const rpc_call& call) const;
    session_step finish_request(request_assembly::request& whole);
    /// Cuts a verification trailer off. False: it doesn't fit the request.
    [[nodiscard]] bool take_trailer(rpc_call& call) const;
    void apply_sizes(const bind_body& body);

    server_core& core_;
    connection_peer peer_;
    bool bound_ = false;
    bool header_signing_ = false;
    bool multiplexed_ = false;
    std::uint16_t max_transmit_ = 0;
    std::uint16_t max_receive_ = 0;
    std::uint32_t group_ = 0;
    presentation_contexts contexts_;
    std::vector<std::unique_ptr<authentication>> authentications_;
    request_assembly incomplete_;
};

}  // namespace platform::linux_rpc
