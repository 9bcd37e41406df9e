#include "platform/linux/rpc/session.h"

#include <algorithm>

#include "platform/linux/rpc/verification_trailer.h"

namespace platform::linux_rpc {

namespace {

/// Room for a header, a verifier and some stub data: a client that takes less can't be answered.
constexpr std::uint16_t smallest_fragment = 256;
constexpr std::size_t stub_alignment = 8;
/// Stub data of shorter fragments is received together and then moved: that takes fewer system calls.
constexpr std::size_t smallest_placed = 1024;
/// The last token of an authentication is kept up to this size; it has no tickets in it.
constexpr std::size_t longest_kept_token = 4096;

session_step closing(std::vector<std::uint8_t> answer = {}) {
    session_step step;
    step.answer = std::move(answer);
    step.close = true;
    return step;
}

session_step answering(std::vector<std::uint8_t> answer) {
    session_step step;
    step.answer = std::move(answer);
    return step;
}

std::vector<std::uint8_t> refused_call(std::uint32_t call_id, std::uint16_t context_id, std::uint32_t status) {
    return encode_fault(call_id, context_id, pdu_flag::did_not_execute, status);
}

/// Whether a PDU of this kind is as long as the token in it: it is never sent in pieces.
bool bears_token(const pdu_header& header) {
    return header.auth_length != 0 &&
           (header.type == pdu_type::bind || header.type == pdu_type::alter_context || header.type == pdu_type::auth3);
}

/// "call" protection exists for datagrams only and is raised to the next (MS-RPCE 2.2.1.1.8).
std::optional<auth_level> level_from_wire(std::uint8_t level) {
    if (level < static_cast<std::uint8_t>(auth_level::connect) || level > static_cast<std::uint8_t>(auth_level::privacy)) {
        return std::nullopt;
    }
    const auto known = static_cast<auth_level>(level);
    return known == auth_level::call ? auth_level::packet : known;
}

}  // namespace

session::session(server_core& core, connection_peer peer) : core_(core), peer_(std::move(peer)), incomplete_(core) {}

session::~session() {
    if (group_ != 0) {
        core_.groups.leave(group_);
    }
}

std::optional<session_step> session::judge_header(const pdu_header& header) const {
    if (header.version != 5 || header.minor_version > 1) {
        if (header.type == pdu_type::bind && !bound_) {
            return closing(encode_bind_nak(header.call_id, nak_reason::protocol_version));
        }
        return closing();
    }
    if (!plausible(header) ||
        header.fragment_length > (bears_token(header) ? core_.limits.token_fragment_bytes : core_.limits.fragment_bytes)) {
        core_.report("RPC client " + peer_.address + " sent a fragment of impossible length and was disconnected.");
        return closing();
    }
    return std::nullopt;
}

session_step session::take(const pdu_header& header, std::span<std::uint8_t> pdu) {
    session_step step = take_lending(header, pdu);
    if (step.call) {
        step.call->own_stub();
    }
    return step;
}

session_step session::take_lending(const pdu_header& header, std::span<std::uint8_t> pdu) {
    switch (header.type) {
        case pdu_type::bind:
            return take_bind(header, pdu);
        case pdu_type::alter_context:
            return take_alter_context(header, pdu);
        case pdu_type::auth3:
            return take_auth3(header, pdu);
        case pdu_type::request:
            return take_request(header, pdu);
        case pdu_type::co_cancel:
        case pdu_type::orphaned:
            return take_cancel(header, pdu);
        default:
            return closing();
    }
}

bool session::established() const {
    return bound_ && std::none_of(authentications_.begin(), authentications_.end(),
                                  [](const auto& entry) { return entry->state == security_context::state::proceed; });
}

void session::apply_sizes(const bind_body& body) {
    // Each side has to take 1432 bytes at least (C706 12.6.3.1), but whoever says less gets less.
    const std::uint16_t own = core_.limits.fragment_bytes;
    max_transmit_ = std::min(own, body.max_receive);
    max_receive_ = std::min(own, std::max<std::uint16_t>(body.max_transmit, 1432));
}

session_step session::take_bind(const pdu_header& header, std::span<const std::uint8_t> pdu) {
    const std::size_t verifier = header.auth_length == 0 ? 0 : header.auth_length + auth_trailer_size;
    const auto body = decode_bind_body(pdu.subspan(pdu_header_size, pdu.size() - pdu_header_size - verifier), header.little_endian);
    if (bound_ || !body || body->contexts.empty()) {
        return closing(encode_bind_nak(header.call_id, nak_reason::not_specified));
    }
    if (body->max_receive < smallest_fragment) {
        return closing(encode_bind_nak(header.call_id, nak_reason::local_limit_exceeded));
    }
    std::optional<auth_trailer> trailer;
    std::vector<std::uint8_t> reply;
    header_signing_ = header.has(pdu_flag::header_sign);
    if (header.auth_length != 0) {
        trailer = decode_auth_trailer(header, pdu, pdu_header_size);
        if (!trailer) {
            return closing(encode_bind_nak(header.call_id, nak_reason::not_specified));
        }
        const token_outcome outcome = take_token(*trailer, reply);
        if (outcome == token_outcome::unknown_type) {
            return closing(encode_bind_nak(header.call_id, nak_reason::authentication_type));
        }
        if (outcome == token_outcome::refused) {
            return closing(encode_bind_nak(header.call_id, nak_reason::invalid_checksum));
        }
    }
    group_ = core_.groups.join(body->association_group);
    if (group_ == 0) {
        return closing(encode_bind_nak(header.call_id, nak_reason::not_specified));
    }
    bound_ = true;
    multiplexed_ = header.has(pdu_flag::multiplex);
    apply_sizes(*body);
    bind_ack_body ack{max_transmit_, max_receive_, group_, core_.secondary_address, {}};
    ack.results = contexts_.negotiate(body->contexts, true, core_.interfaces, core_.limits.contexts);
    auth_token token;
    if (trailer) {
        token = {trailer->type, trailer->level, trailer->context_id, reply};
    }
    // Also without a token: an alter_context may begin the authentication, and both sides have to know what holds then.
    const unsigned flags = (header_signing_ ? pdu_flag::header_sign : 0U) | (multiplexed_ ? pdu_flag::multiplex : 0U);
    return answering(encode_bind_ack(pdu_type::bind_ack, static_cast<std::uint8_t>(flags), header.call_id, ack, token));
}

session_step session::take_alter_context(const pdu_header& header, std::span<const std::uint8_t> pdu) {
    const std::size_t verifier = header.auth_length == 0 ? 0 : header.auth_length + auth_trailer_size;
    const auto body = decode_bind_body(pdu.subspan(pdu_header_size, pdu.size() - pdu_header_size - verifier), header.little_endian);
    if (!bound_ || !body || (request_incomplete() && !multiplexed_)) {
        return closing(refused_call(header.call_id, 0, fault_status::protocol_error));
    }
    std::vector<std::uint8_t> reply;
    auth_token token;
    if (header.auth_length != 0) {
        const auto trailer = decode_auth_trailer(header, pdu, pdu_header_size);
        if (!trailer) {
            return closing(refused_call(header.call_id, 0, fault_status::protocol_error));
        }
        // Some clients bear the last token of their authentication in each alter_context that follows it.
        if (!repeats_last_token(*trailer) && take_token(*trailer, reply) != token_outcome::accepted) {
            return closing(refused_call(header.call_id, 0, fault_status::access_denied));
        }
        token = {trailer->type, trailer->level, trailer->context_id, reply};
    }
    // Sizes and group were settled by the bind; only an answer to it names a secondary address.
    bind_ack_body ack{max_transmit_, max_receive_, group_, {}, {}};
    ack.results = contexts_.negotiate(body->contexts, false, core_.interfaces, core_.limits.contexts);
    const std::uint8_t flags = header.has(pdu_flag::header_sign) && header_signing_ ? pdu_flag::header_sign : std::uint8_t{0};
    return answering(encode_bind_ack(pdu_type::alter_context_resp, flags, header.call_id, ack, token));
}

session_step session::take_auth3(const pdu_header& header, std::span<const std::uint8_t> pdu) {
    const auto trailer = decode_auth_trailer(header, pdu, pdu_header_size);
    if (!bound_ || !trailer || (request_incomplete() && !multiplexed_)) {
        return closing();
    }
    // There is no answer to auth3: a refusal is told by the fault of the next request.
    std::vector<std::uint8_t> reply;
    if (take_token(*trailer, reply) == token_outcome::unknown_type) {
        return closing();
    }
    return {};
}

session_step session::take_cancel(const pdu_header& header, std::span<std::uint8_t> pdu) {
    if (header.auth_length != 0) {
        // A verifier may be left out here; one that is there counts in the sequence of signatures like that of a request.
        std::size_t body_end = 0;
        authentication* security = nullptr;
        if (const std::uint32_t refusal = check_security(header, pdu, pdu_header_size, body_end, security); refusal != 0) {
            core_.report("A cancel of RPC client " + peer_.address + " was refused for lack of valid authentication.");
            return closing(refused_call(header.call_id, 0, refusal));
        }
    }
    // A call can't be stopped half way: after a cancel its answer comes as if nobody had asked.
    if (header.type == pdu_type::orphaned) {
        incomplete_.drop(header.call_id);
    }
    return {};
}

session::authentication* session::find_authentication(std::uint32_t id) {
    for (const auto& entry : authentications_) {
        if (entry->id == id) {
            return entry.get();
        }
    }
    return nullptr;
}

bool session::repeats_last_token(const auth_trailer& trailer) {
    const authentication* const entry = find_authentication(trailer.context_id);
    return entry != nullptr && entry->state == security_context::state::complete && entry->type == trailer.type &&
           entry->level == level_from_wire(trailer.level) && std::ranges::equal(entry->last_token, trailer.token);
}

session::authentication* session::begin_authentication(const auth_trailer& trailer, token_outcome& outcome) {
    security_provider* provider = core_.security.find(trailer.type);
    const auto level = level_from_wire(trailer.level);
    if (provider == nullptr || !level || !provider->supports(*level)) {
        core_.report("RPC client " + peer_.address + " asked for authentication service " + std::to_string(trailer.type) +
                     " at level " + std::to_string(trailer.level) + ", which is not offered.");
        outcome = token_outcome::unknown_type;
        return nullptr;
    }
    if (authentications_.size() >= core_.limits.authentications) {
        outcome = token_outcome::refused;
        return nullptr;
    }
    auto entry = std::make_unique<authentication>();
    entry->id = trailer.context_id;
    entry->type = trailer.type;
    entry->level = *level;
    entry->context = provider->create(*level);
    entry->context->header_signing(header_signing_);
    authentications_.push_back(std::move(entry));
    return authentications_.back().get();
}

session::token_outcome session::take_token(const auth_trailer& trailer, std::vector<std::uint8_t>& reply) {
    token_outcome outcome = token_outcome::accepted;
    authentication* entry = find_authentication(trailer.context_id);
    if (entry == nullptr) {
        entry = begin_authentication(trailer, outcome);
        if (entry == nullptr) {
            return outcome;
        }
    } else if (entry->state != security_context::state::proceed || entry->type != trailer.type ||
               level_from_wire(trailer.level) != entry->level) {
        // An authentication is done once, and what it was begun as holds to its end.
        entry->state = security_context::state::refused;
        return token_outcome::refused;
    }
    entry->state = entry->context->accept(trailer.token, reply);
    if (entry->state == security_context::state::refused) {
        core_.report("RPC client " + peer_.address + " failed to authenticate.");
        return token_outcome::refused;
    }
    if (entry->state == security_context::state::complete) {
        entry->identity = entry->context->identity();
        if (trailer.token.size() <= longest_kept_token) {
            entry->last_token.assign(trailer.token.begin(), trailer.token.end());
        }
    }
    return token_outcome::accepted;
}

std::uint32_t session::unsigned_request(authentication*& security) {
    security = nullptr;
    if (authentications_.empty()) {
        return 0;
    }
    // At level connect requests bear no verifier. Whoever promised signatures, or has not finished, is not let through here.
    for (const auto& entry : authentications_) {
        if (entry->state == security_context::state::complete && entry->level == auth_level::connect) {
            security = entry.get();
            return 0;
        }
    }
    return fault_status::access_denied;
}

std::uint32_t session::check_security(const pdu_header& header, std::span<std::uint8_t> pdu, std::size_t body_offset,
                                      std::size_t& stub_end, authentication*& security) {
    stub_end = pdu.size();
    if (header.auth_length == 0) {
        return unsigned_request(security);
    }
    const auto trailer = decode_auth_trailer(header, pdu, body_offset);
    if (!trailer) {
        return fault_status::protocol_error;
    }
    security = find_authentication(trailer->context_id);
    if (security == nullptr || security->state != security_context::state::complete || security->type != trailer->type ||
        security->level != level_from_wire(trailer->level)) {
        return fault_status::access_denied;
    }
    stub_end = trailer->offset - trailer->pad_length;
    if (security->level == auth_level::connect) {
        return 0;
    }
    if (!security->context->unprotect(security->level, pdu.first(trailer->offset + auth_trailer_size), body_offset,
                                      trailer->offset - body_offset, trailer->token)) {
        return fault_status::security_package;
    }
    return 0;
}

session_step session::refused_security(std::uint32_t call_id, std::uint16_t context_id, std::uint32_t status) const {
    core_.report("A request of RPC client " + peer_.address + " was refused for lack of valid authentication.");
    return closing(refused_call(call_id, context_id, status));
}

session_step session::take_request(const pdu_header& header, std::span<std::uint8_t> pdu) {
    const bool first = header.has(pdu_flag::first);
    wire_reader reader(std::span<const std::uint8_t>(pdu).subspan(pdu_header_size), header.little_endian);
    request_head head;
    head.stub_hint = reader.u32();
    head.context_id = reader.u16();
    head.operation = reader.u16();
    head.body_offset = request_header_size + (header.has(pdu_flag::object_uuid) ? object_uuid_size : 0);
    request_assembly::request* incoming = incomplete_.find(header.call_id);
    const bool in_turn = first == (incoming == nullptr) && (multiplexed_ || !first || incomplete_.empty());
    if (!bound_ || pdu.size() < head.body_offset || !in_turn) {
        return closing(refused_call(header.call_id, head.context_id, fault_status::protocol_error));
    }
    if (first && incomplete_.size() >= core_.limits.multiplexed_calls) {
        return closing(refused_call(header.call_id, head.context_id, fault_status::server_too_busy));
    }
    std::size_t stub_end = 0;
    authentication* security = nullptr;
    const std::uint32_t refusal = check_security(header, pdu, head.body_offset, stub_end, security);
    if (refusal != 0) {
        return refused_security(header.call_id, head.context_id, refusal);
    }
    if (first) {
        incoming = &begin_request(header, head, security);
    }
    const bool bare = header.auth_length == 0 && head.body_offset == request_header_size;
    incoming->fragment_stub = bare ? stub_end - head.body_offset : 0;
    return continue_request(header, *incoming, security, pdu.subspan(head.body_offset, stub_end - head.body_offset));
}

std::optional<session::fragment_places> session::next_places() {
    request_assembly::request* const incoming = multiplexed_ ? nullptr : incomplete_.sole();
    if (incoming == nullptr || incoming->refusal != 0 || incoming->fragment_stub < smallest_placed ||
        incoming->call->stub.spare().empty()) {
        return std::nullopt;
    }
    return fragment_places{incoming->call->stub.spare(), incoming->fragment_stub};
}

bool session::goes_on(const pdu_header& header, std::size_t stub_size) {
    const request_assembly::request* const incoming = incomplete_.sole();
    return incoming != nullptr && header.type == pdu_type::request && header.call_id == incoming->call->call_id &&
           !header.has(pdu_flag::first) && !header.has(pdu_flag::object_uuid) && header.auth_length == 0 &&
           header.fragment_length == request_header_size + stub_size && !judge_header(header);
}

session_step session::take_placed(const pdu_header& header, std::span<std::uint8_t> stub) {
    request_assembly::request& incoming = *incomplete_.sole();
    authentication* security = nullptr;
    if (const std::uint32_t refusal = unsigned_request(security); refusal != 0) {
        return refused_security(header.call_id, incoming.call->context_id, refusal);
    }
    return continue_request(header, incoming, security, stub);
}

request_assembly::request& session::begin_request(const pdu_header& header, const request_head& head, authentication* security) {
    request_assembly::request begun;
    begun.security = security;
    begun.stub_hint = head.stub_hint;
    begun.call = incomplete_.make_call();
    rpc_call& call = *begun.call;
    call.target = contexts_.find(head.context_id);
    call.call_id = header.call_id;
    call.context_id = head.context_id;
    call.operation = head.operation;
    call.little_endian = header.little_endian;
    call.answered = !header.has(pdu_flag::maybe);
    call.max_fragment = max_transmit_;
    call.local_ipv4 = peer_.local_ipv4;
    call.address = &peer_.address;
    call.identity = security != nullptr ? &security->identity : &peer_.identity;
    call.protection = security != nullptr ? pdu_protection{security->type, security->level, security->id, security->context.get()}
                                          : pdu_protection{};
    if (multiplexed_) {
        // Several threads may serve calls of one caller.
        call.own_identity = *call.identity;
        call.identity = &*call.own_identity;
        call.protection.signed_when_sent = true;
    }
    if (!call.target) {
        begun.refusal = fault_status::unknown_interface;
    } else if (call.operation >= call.target->description.operations) {
        begun.refusal = fault_status::operation_range;
    }
    return incomplete_.begin(std::move(begun));
}

std::size_t session::request_limit(const rpc_call& call) const {
    const std::size_t limit =
        call.identity->authenticated ? core_.limits.request_bytes : core_.limits.unauthenticated_request_bytes;
    return call.target ? std::min<std::size_t>(limit, call.target->max_request_size) : limit;
}

session_step session::continue_request(const pdu_header& header, request_assembly::request& incoming,
                                       const authentication* security, std::span<const std::uint8_t> stub) {
    rpc_call& call = *incoming.call;
    if (incoming.security != security || call.little_endian != header.little_endian) {
        return closing(refused_call(header.call_id, call.context_id, fault_status::protocol_error));
    }
    if (incoming.refusal == 0) {
        // Several requests at a time have no more room than one.
        if (incomplete_.held_bytes() + stub.size() > request_limit(call)) {
            core_.report("RPC client " + peer_.address + " sent a request above the size limit and was disconnected.");
            return closing(refused_call(header.call_id, call.context_id, fault_status::access_denied));
        }
        const bool aligned = reinterpret_cast<std::uintptr_t>(stub.data()) % stub_alignment == 0;
        if (aligned && header.has(pdu_flag::first) && header.has(pdu_flag::last)) {
            call.borrowed_stub = stub;
        } else if (!incomplete_.append(incoming, stub)) {
            return closing(refused_call(header.call_id, call.context_id, fault_status::no_memory));
        }
    }
    return header.has(pdu_flag::last) ? finish_request(incoming) : session_step{};
}

session_step session::finish_request(request_assembly::request& whole) {
    const std::uint32_t refusal = whole.refusal;
    std::unique_ptr<rpc_call> call = incomplete_.finish(whole);
    core_.counters.calls_in.add(1);
    session_step step;
    if (refusal != 0) {
        if (call->answered) {
            step.answer = refused_call(call->call_id, call->context_id, refusal);
        }
        take_back(std::move(call));
    } else if (take_trailer(*call)) {
        step.call = std::move(call);
    } else {
        core_.report("A request of RPC client " + peer_.address + " was refused: its headers were changed on the way.");
        step = closing(refused_call(call->call_id, call->context_id, fault_status::access_denied));
    }
    return step;
}

bool session::take_trailer(rpc_call& call) const {
    const verified_request request{header_signing_, call.little_endian, call.call_id,
                                   call.context_id, call.operation,     id_of(call.target->description)};
    const trailer_finding found = check_verification_trailer(call.all_stub(), request);
    if (found.verdict == trailer_verdict::agrees) {
        call.cut_stub(found.stub_size);
    }
    return found.verdict != trailer_verdict::wrong;
}

}  // namespace platform::linux_rpc
