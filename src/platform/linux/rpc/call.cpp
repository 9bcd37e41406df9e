#include "platform/linux/rpc/call.h"

#include <pwd.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

namespace platform::linux_rpc {

namespace {

/// What an outgoing answer keeps for the next one.
constexpr std::size_t kept_memory = std::size_t{16} * 1024;
/// Stub data that is served where it was read: a procedure that can't wait takes no longer than this much text does.
constexpr std::size_t longest_unwaiting_stub = std::size_t{4} * 1024;

/// The answer's stub data, with room for one PDU's header in front of it: 24 is a multiple of 8, so that the stub is aligned.
class reply_buffer final : public rpc_reply {
public:
    explicit reply_buffer(byte_block& block) : block_(block) {}

    std::span<std::uint8_t> allocate(std::size_t size) override {
        return block_.take(request_header_size + size).subspan(request_header_size);
    }

private:
    byte_block& block_;
};

pdu_header response_header(std::uint32_t call_id, bool first, bool last) {
    pdu_header header;
    header.type = pdu_type::response;
    header.flags = static_cast<std::uint8_t>((first ? pdu_flag::first : 0) | (last ? pdu_flag::last : 0));
    header.call_id = call_id;
    return header;
}

/// Stub bytes per fragment when more than one is needed: a multiple of 8, so that NDR's alignment holds in each of them.
std::size_t plain_chunk(const rpc_call& call) {
    return (call.max_fragment - request_header_size) & ~std::size_t{7};
}

void make_plain_response(const rpc_call& call, outgoing& out) {
    const std::size_t total = out.block.size() - request_header_size;
    const std::size_t chunk = total + request_header_size <= call.max_fragment ? total : plain_chunk(call);
    const std::size_t count = total == 0 ? 1 : (total + chunk - 1) / chunk;
    // The first header stands in front of the first chunk; the others lie aside and are gathered when written.
    out.headers.resize((count - 1) * request_header_size);
    out.pdus = static_cast<std::uint32_t>(count);
    const std::span<std::uint8_t> all = out.block.all();
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = i * chunk;
        const std::size_t size = std::min(chunk, total - at);
        pdu_header header = response_header(call.call_id, i == 0, i + 1 == count);
        header.fragment_length = static_cast<std::uint16_t>(request_header_size + size);
        const auto hint = static_cast<std::uint32_t>(total - at);
        if (i == 0) {
            encode_call_header(all, header, hint, call.context_id, 0);
            out.pieces.push_back(all.first(request_header_size + size));
        } else {
            const auto aside = std::span(out.headers).subspan((i - 1) * request_header_size, request_header_size);
            encode_call_header(aside, header, hint, call.context_id, 0);
            out.pieces.push_back(aside);
            out.pieces.push_back(all.subspan(request_header_size + at, size));
        }
    }
}

std::size_t protected_overhead(const response_shape& shape) {
    return request_header_size + auth_trailer_size + shape.protection.context->signature_size();
}

/// Stub bytes per protected fragment.
std::size_t protected_chunk(const response_shape& shape) {
    return (shape.max_fragment - protected_overhead(shape)) & ~(auth_alignment - 1);
}

/// Appends the fragment that begins at a stub byte; where the next one begins.
std::size_t append_protected(const response_shape& shape, std::span<const std::uint8_t> stub, std::size_t at, outgoing& out) {
    const pdu_protection& protection = shape.protection;
    const std::size_t signature = protection.context->signature_size();
    const std::span<const std::uint8_t> part = stub.subspan(at, std::min(protected_chunk(shape), stub.size() - at));
    const std::size_t pad = (auth_alignment - part.size() % auth_alignment) % auth_alignment;
    const std::size_t start = out.bytes.size();
    out.bytes.resize(start + protected_overhead(shape) + part.size() + pad);
    const std::span<std::uint8_t> pdu = std::span(out.bytes).subspan(start);
    pdu_header header = response_header(shape.call_id, at == 0, at + part.size() == stub.size());
    header.fragment_length = static_cast<std::uint16_t>(pdu.size());
    header.auth_length = static_cast<std::uint16_t>(signature);
    encode_call_header(pdu, header, static_cast<std::uint32_t>(stub.size() - at), shape.context_id, 0);
    std::copy(part.begin(), part.end(), pdu.begin() + static_cast<std::ptrdiff_t>(request_header_size));
    const std::size_t body = part.size() + pad;
    encode_auth_trailer(pdu.subspan(request_header_size + body), protection.auth_type, static_cast<std::uint8_t>(protection.level),
                        static_cast<std::uint8_t>(pad), protection.context_id);
    protection.context->protect(protection.level, pdu.first(pdu.size() - signature), request_header_size, body,
                                pdu.last(signature));
    ++out.pdus;
    return at + part.size();
}

void make_protected_response(const response_shape& shape, std::span<const std::uint8_t> stub, outgoing& out) {
    const std::size_t chunk = protected_chunk(shape);
    const std::size_t count = stub.empty() ? 1 : (stub.size() + chunk - 1) / chunk;
    out.numbered = true;
    out.bytes.reserve(stub.size() + count * (protected_overhead(shape) + auth_alignment));
    std::size_t at = 0;
    do {
        at = append_protected(shape, stub, at, out);
    } while (at < stub.size());
    out.pieces.emplace_back(out.bytes);
}

/// What is still to be found out about a caller is looked up here, where blocking harms nobody: the kernel tells a local one's
/// number only, and the local user that a remote one stands for may take asking the name service.
void complete(client_identity& identity) {
    if (const auto find = std::exchange(identity.find_local_account, nullptr)) {
        identity.local_account = find();
    }
    if (!identity.local || !identity.name.empty()) {
        return;
    }
    std::array<char, 4096> strings{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(identity.uid, &entry, strings.data(), strings.size(), &found) == 0 && found != nullptr) {
        identity.name = found->pw_name;
    } else {
        identity.name = std::to_string(identity.uid);
    }
}

std::uint32_t dispatch(const rpc_call& call, rpc_reply& reply) {
    rpc_request request;
    request.operation = call.operation;
    request.stub = call.all_stub();
    request.little_endian = call.little_endian;
    try {
        complete(*call.identity);
        const call_scene scene{call.identity, call.protection.level, call.local_ipv4, call.address};
        const current_call_scope scope(scene);
        return call.target->description.dispatch(request, reply);
    } catch (const std::bad_alloc&) {
        return fault_status::no_memory;
    } catch (...) {
        // The contract forbids it; a client that waits for ever would be worse than one that hears of it.
        return fault_status::unspecified;
    }
}

}  // namespace

void rpc_call::own_stub() {
    if (!borrowed_stub.empty()) {
        stub.append(borrowed_stub);
        borrowed_stub = {};
    }
}

void rpc_call::cut_stub(std::size_t size) {
    if (borrowed_stub.empty()) {
        stub.truncate(size);
    } else {
        borrowed_stub = borrowed_stub.first(size);
    }
}

bool rpc_call::may_wait() const {
    const auto& asked = target->description.may_wait;
    if (!asked || identity->local || !identity->local_account.empty() || identity->find_local_account ||
        all_stub().size() > longest_unwaiting_stub) {
        return true;
    }
    return asked({operation, all_stub(), little_endian});
}

outgoing::outgoing(std::vector<std::uint8_t> pdu) {
    hold(std::move(pdu));
}

void outgoing::hold(std::vector<std::uint8_t> pdu) {
    clear();
    bytes = std::move(pdu);
    pieces.emplace_back(bytes);
    pdus = 1;
}

void outgoing::clear() {
    pieces.clear();
    headers.clear();
    if (bytes.capacity() > kept_memory) {
        bytes = {};
    }
    bytes.clear();
    block.clear(kept_memory);
    pdus = 0;
    numbered = false;
    rest.reset();
}

bool outgoing::sign_more(std::size_t fragments) {
    if (!rest) {
        return false;
    }
    const std::span<const std::uint8_t> stub = block.all().subspan(request_header_size);
    bytes.clear();
    pieces.clear();
    pdus = 0;
    numbered = true;
    do {
        rest->done = append_protected(rest->shape, stub, rest->done, *this);
    } while (rest->done < stub.size() && pdus < fragments);
    pieces.emplace_back(bytes);
    if (rest->done == stub.size()) {
        rest.reset();
    }
    return true;
}

outgoing serve(rpc_call& call) {
    outgoing answer;
    serve(call, answer);
    return answer;
}

void serve(rpc_call& call, outgoing& answer) {
    answer.clear();
    answer.block.take(request_header_size);  // an answer without stub data
    reply_buffer reply(answer.block);
    const std::uint32_t status = dispatch(call, reply);
    if (!call.answered) {
        answer.clear();
        return;
    }
    if (status != 0) {
        answer.hold(encode_fault(call.call_id, call.context_id, 0, status));
        return;
    }
    try {
        if (call.protection.signs()) {
            const response_shape shape{call.call_id, call.context_id, call.max_fragment, call.protection};
            if (call.protection.signed_when_sent) {
                answer.rest = outgoing::unsigned_rest{shape};
            } else {
                make_protected_response(shape, answer.block.all().subspan(request_header_size), answer);
            }
        } else {
            make_plain_response(call, answer);
        }
    } catch (const std::bad_alloc&) {
        answer.hold(encode_fault(call.call_id, call.context_id, 0, fault_status::no_memory));
    }
}

}  // namespace platform::linux_rpc
