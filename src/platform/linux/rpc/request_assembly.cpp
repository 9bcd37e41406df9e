#include "platform/linux/rpc/request_assembly.h"

#include <algorithm>
#include <utility>

namespace platform::linux_rpc {

namespace {

/// A request gets memory for what its client announces, but for no more than so many times what has come.
constexpr std::size_t trusted_factor = 8;

}  // namespace

request_assembly::~request_assembly() {
    core_.pending_request_bytes.fetch_sub(held_bytes(), std::memory_order_relaxed);
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
    std::vector<std::uint8_t>& kept = to.call->stub;
    const std::size_t needed = kept.size() + stub.size();
    if (needed > kept.capacity()) {
        kept.reserve(to.stub_hint >= needed ? std::min(to.stub_hint, trusted_factor * needed) : 2 * needed);
    }
    kept.insert(kept.end(), stub.begin(), stub.end());
    const std::size_t pending = core_.pending_request_bytes.fetch_add(stub.size(), std::memory_order_relaxed) + stub.size();
    return pending <= core_.limits.pending_request_bytes;
}

std::unique_ptr<rpc_call> request_assembly::finish(request& whole) {
    std::unique_ptr<rpc_call> call = std::move(whole.call);
    if (!call->stub.empty()) {
        core_.pending_request_bytes.fetch_sub(call->stub.size(), std::memory_order_relaxed);
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
