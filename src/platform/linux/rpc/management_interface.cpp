#include "platform/linux/rpc/management_interface.h"

#include <algorithm>
#include <array>

#include "platform/errors.h"
#include "platform/linux/rpc/wire.h"

namespace platform::linux_rpc {

namespace {

enum operation : std::uint16_t { inq_if_ids, inq_stats, is_server_listening, stop_server_listening, inq_princ_name };
constexpr std::uint16_t operation_count = 5;

void write_interface_ids(const server_core& core, wire_writer& out) {
    const std::vector<syntax_id> ids = core.interfaces.registered();
    const auto count = static_cast<std::uint32_t>(ids.size());
    std::uint32_t referent = 1;
    out.u32(referent++);  // pointer to the vector, which is conformant: its size stands in front of it
    out.u32(count);
    out.u32(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        out.u32(referent++);
    }
    for (const syntax_id& id : ids) {
        out.align(4);
        out.syntax(id);
    }
    out.align(4);
    out.u32(rpc_status::ok);
}

std::uint32_t write_statistics(const server_core& core, wire_reader& in, wire_writer& out) {
    const std::uint32_t asked = in.u32();
    if (in.failed()) {
        return rpc_status::bad_stub_data;
    }
    const std::array<std::uint32_t, 4> values{core.counters.calls_in.total(), core.counters.calls_out.total(),
                                              core.counters.pdus_in.total(), core.counters.pdus_out.total()};
    const std::uint32_t count = std::min<std::uint32_t>(asked, values.size());
    out.u32(count);
    out.u32(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        out.u32(values[i]);
    }
    out.u32(rpc_status::ok);
    return rpc_status::ok;
}

std::uint32_t write_principal(const server_core& core, wire_reader& in, wire_writer& out) {
    const std::uint32_t service = in.u32();
    const std::uint32_t room = in.u32();
    if (in.failed()) {
        return rpc_status::bad_stub_data;
    }
    const std::string* principal = core.security.principal(service);
    const std::string name = principal != nullptr ? *principal : std::string();
    std::uint32_t status = principal != nullptr ? rpc_status::ok : rpc_status::unknown_authn_service;
    std::uint32_t length = static_cast<std::uint32_t>(name.size()) + 1;
    if (length > room) {
        status = error::insufficient_buffer;
        length = 0;
    }
    out.u32(room);
    out.u32(0);
    out.u32(length);
    out.bytes({reinterpret_cast<const std::uint8_t*>(name.c_str()), length});
    out.align(4);
    out.u32(status);
    return rpc_status::ok;
}

std::uint32_t answer(server_core& core, const rpc_request& request, std::vector<std::uint8_t>& stub) {
    wire_reader in(request.stub, request.little_endian);
    wire_writer out(stub);
    switch (request.operation) {
        case inq_if_ids:
            write_interface_ids(core, out);
            return rpc_status::ok;
        case inq_stats:
            return write_statistics(core, in, out);
        case is_server_listening:
            out.u32(rpc_status::ok);
            out.u32(core.listening ? 1 : 0);
            return rpc_status::ok;
        case stop_server_listening:
            out.u32(error::access_denied);
            return rpc_status::ok;
        default:
            return write_principal(core, in, out);
    }
}

}  // namespace

rpc_interface management_interface(server_core& core) {
    rpc_interface described;
    described.uuid = uuid_from_text("afa8bd80-7d8a-11c9-bef4-08002b102989");
    described.major_version = 1;
    described.operations = operation_count;
    described.may_wait = [](const rpc_request&) { return false; };
    described.dispatch = [&core](const rpc_request& request, rpc_reply& reply) {
        std::vector<std::uint8_t> stub;
        const std::uint32_t status = answer(core, request, stub);
        if (status == rpc_status::ok) {
            std::copy(stub.begin(), stub.end(), reply.allocate(stub.size()).begin());
        }
        return status;
    };
    return described;
}

}  // namespace platform::linux_rpc
