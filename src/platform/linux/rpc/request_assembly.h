#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/linux/rpc/call.h"
#include "platform/linux/rpc/pdu.h"
#include "platform/linux/rpc/server_core.h"

namespace platform::linux_rpc {

/// Bytes of memory for a request of which so many stub bytes have come, at least as many: those that its client announced, once one
/// of 32 is there, or more than has come by a bounded factor. What is moved while it grows stays below a tenth of a
/// long request that announced its length.
[[nodiscard]] std::size_t stub_memory(std::size_t arrived, std::size_t announced);

/// The requests of one connection that fragments are still to come of: one at most, unless the client may multiplex. Their stub
/// data counts against what all connections together may leave incomplete; that of a long one in steps of 64 KiB, rounded up.
class request_assembly {
public:
    explicit request_assembly(server_core& core) : core_(core) {}
    ~request_assembly();
    request_assembly(const request_assembly&) = delete;
    request_assembly& operator=(const request_assembly&) = delete;

    struct request {
        std::unique_ptr<rpc_call> call;
        const void* security = nullptr;  ///< the authentication that all its fragments have to come under; null: none
        std::size_t stub_hint = 0;       ///< stub bytes of the whole request, as its first fragment says
        std::uint32_t refusal = 0;       ///< fault to answer the last fragment with; the stub data is not kept
        std::size_t fragment_stub = 0;   ///< stub bytes of its latest fragment, if that bore nothing else; else 0
    };

    [[nodiscard]] bool empty() const { return requests_.empty(); }
    [[nodiscard]] std::size_t size() const { return requests_.size(); }
    /// Stub bytes that are kept here.
    [[nodiscard]] std::size_t held_bytes() const;
    /// Null when no request of that call is incomplete. Valid until the next request begins or ends.
    [[nodiscard]] request* find(std::uint32_t call_id);

    /// A call to be filled in for a request that begins.
    [[nodiscard]] std::unique_ptr<rpc_call> make_call();
    request& begin(request begun);
    /// The only one that is incomplete; null when there are none or several.
    [[nodiscard]] request* sole() { return requests_.size() == 1 ? &requests_.front() : nullptr; }
    /// Keeps stub data until the rest is there; what was received in the request's spare memory is there already. False: that is
    /// more than all connections together may leave incomplete.
    [[nodiscard]] bool append(request& to, std::span<const std::uint8_t> stub);
    /// Takes a request out whose last fragment is there.
    [[nodiscard]] std::unique_ptr<rpc_call> finish(request& whole);
    /// Forgets the request of a call, if there is one.
    void drop(std::uint32_t call_id);
    /// Gives the object of a call back that has been served, so that the next one needs no memory.
    void take_back(std::unique_ptr<rpc_call> call);

private:
    server_core& core_;
    std::vector<request> requests_;
    std::unique_ptr<rpc_call> spare_call_;
};

}  // namespace platform::linux_rpc
