#include "platform/linux/rpc/request_assembly.h"

#include <algorithm>
#include <utility>

namespace platform::linux_rpc {

namespace {

/// A request gets memory for all that its client announces when one part of so many has come. It is address space: the system
/// gives pages for what is written there.
constexpr std::size_t trusted_factor = 32;
/// Until then what it gets grows so much faster than what comes; the first piece is worth a move.
constexpr std::size_t growth = 4;
constexpr std::size_t first_piece = std::size_t{64} * 1024;

/// The stub data of a long request is counted by so many bytes at a time: all network threads share the one count.
constexpr std::size_t counted_at_once = std::size_t{64} * 1024;

/// What so many stub bytes count for, never less than they are.
constexpr std::size_t counted(std::size_t bytes) {
    return bytes <= counted_at_once ? bytes : (bytes + counted_at_once - 1) / counted_at_once * counted_at_once;
}

}  // namespace

std::size_t stub_memory(std::size_t arrived, std::size_t announced) {
    if (announced < arrived) {
        return 2 * arrived;
    }
    if (announced <= first_piece || announced / trusted_factor <= arrived) {
        return announced;
    }
    return std::min(std::max(first_piece, growth * arrived), std::max(first_piece, announced / trusted_factor));
}

request_assembly::~request_assembly() {
    for (const request& held : requests_) {
        core_.pending_request_bytes.fetch_sub(counted(held.call->stub.size()), std::memory_order_relaxed);
    }
}

std::size_t request_assembly::held_bytes() const {
    std::size_t bytes = 0;
    for (const request& held : requests_) {
        bytes += held.call->stub.size();
    }
    return bytes;
}

request_assembly::request* request_assembly::find(std::uint32_t call_id) {
    const auto found = std::ranges::find_if(requests_, [call_id](const request& one) { return one.call->call_id == call_id; });
    return found == requests_.end() ? nullptr : &*found;
}

std::unique_ptr<rpc_call> request_assembly::make_call() {
    return spare_call_ ? std::move(spare_call_) : std::make_unique<rpc_call>();
}

request_assembly::request& request_assembly::begin(request begun) {
    return requests_.emplace_back(std::move(begun));
}

bool request_assembly::append(request& to, std::span<const std::uint8_t> stub) {
    byte_block& kept = to.call->stub;
    const std::size_t before = kept.size();
    const std::size_t needed = before + stub.size();
    const std::span<std::uint8_t> spare = kept.spare();
    if (stub.data() == spare.data() && stub.size() <= spare.size()) {
        kept.extend(stub.size());
    } else {
        if (needed > kept.capacity()) {
            kept.reserve(stub_memory(needed, to.stub_hint));
        }
        kept.append(stub);
    }
    const std::size_t more = counted(needed) - counted(before);
    return more == 0 ||
           core_.pending_request_bytes.fetch_add(more, std::memory_order_relaxed) + more <= core_.limits.pending_request_bytes;
}

std::unique_ptr<rpc_call> request_assembly::finish(request& whole) {
    std::unique_ptr<rpc_call> call = std::move(whole.call);
    if (!call->stub.empty()) {
        core_.pending_request_bytes.fetch_sub(counted(call->stub.size()), std::memory_order_relaxed);
    }
    requests_.erase(requests_.begin() + (&whole - requests_.data()));
    return call;
}

void request_assembly::drop(std::uint32_t call_id) {
    if (request* const found = find(call_id)) {
        take_back(finish(*found));
    }
}

void request_assembly::take_back(std::unique_ptr<rpc_call> call) {
    call->target.reset();
    call->borrowed_stub = {};
    call->stub = {};
    call->own_identity.reset();
    spare_call_ = std::move(call);
}

}  // namespace platform::linux_rpc
