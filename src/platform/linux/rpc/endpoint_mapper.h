#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/rpc/wire.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

/// The endpoint mapper (C706 appendix O, MS-RPCE 2.2.1.2): tells clients on which TCP port an interface is. Only this process
/// enters anything; the remote operations that would change the map are refused. Callable from any thread.
class endpoint_mapper {
public:
    /// Enters an interface with its ports, replacing a former entry of it. The annotation is cut to 63 characters.
    void enter(const syntax_id& interface, const std::string& annotation, const std::vector<std::uint16_t>& ports);
    void clear();

    /// The interface to offer. It refers to this object.
    [[nodiscard]] rpc_interface description();

private:
    struct entry {
        syntax_id interface;
        std::string annotation;
        std::uint16_t port = 0;
    };
    struct inquiry;

    std::uint32_t dispatch(const rpc_request& request, rpc_reply& reply);
    std::uint32_t lookup(wire_reader& in, wire_writer& out);
    std::uint32_t map(wire_reader& in, wire_writer& out);
    [[nodiscard]] std::vector<entry> matching(const inquiry& wanted) const;

    mutable std::mutex mutex_;
    std::vector<entry> entries_;
};

/// The five floors of a tower for an interface over NDR and TCP (C706 appendix I). `ipv4` in host byte order.
[[nodiscard]] std::vector<std::uint8_t> encode_tower(const syntax_id& interface, std::uint16_t port, std::uint32_t ipv4);
/// The interface that a tower asks for. Nothing: it isn't one for NDR over connections by TCP and IP.
[[nodiscard]] std::optional<syntax_id> decode_tower(std::span<const std::uint8_t> tower);

}  // namespace platform::linux_rpc
