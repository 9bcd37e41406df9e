#include "platform/linux/rpc/endpoint_mapper.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "platform/linux/rpc/current_call.h"
#include "platform/linux/rpc/pdu.h"

namespace platform::linux_rpc {

namespace {

constexpr std::uint32_t not_registered = 0x16C9A0D6;
constexpr std::uint32_t cannot_perform = 0x16C9A0CD;
constexpr std::size_t longest_annotation = 63;
constexpr std::size_t floor_count = 5;
/// Room for the answer about an interface with one endpoint.
constexpr std::size_t usual_answer = 256;

/// First byte of a floor's left side: what the floor is about.
constexpr std::uint8_t floor_uuid = 0x0D;
constexpr std::uint8_t floor_connection_oriented = 0x0B;
constexpr std::uint8_t floor_tcp = 0x07;
constexpr std::uint8_t floor_ip = 0x09;

enum operation : std::uint16_t { ept_insert, ept_delete, ept_lookup, ept_map, ept_handle_free, ept_inq_object, ept_mgmt_delete };

void uuid_floor(wire_writer& out, const syntax_id& syntax) {
    out.u16(19);
    out.u8(floor_uuid);
    out.uuid(syntax.uuid);
    out.u16(syntax.major);
    out.u16(2);
    out.u16(syntax.minor);
}

/// An entry handle is made by this server and given back by the client: how many entries it has seen. Nothing is kept here
/// for a client that goes away.
void write_handle(wire_writer& out, std::uint32_t seen) {
    uuid_bytes uuid{};
    for (std::size_t i = 0; i < 4; ++i) {
        uuid[i] = static_cast<std::uint8_t>(seen >> (24 - 8 * i));
    }
    out.u32(0);
    out.uuid(uuid);
}

std::uint32_t read_handle(wire_reader& in) {
    in.skip(4);
    const uuid_bytes uuid = in.uuid();
    std::uint32_t seen = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        seen = seen << 8 | uuid[i];
    }
    return seen;
}

void write_tower(wire_writer& out, const std::vector<std::uint8_t>& tower) {
    out.align(4);
    out.u32(static_cast<std::uint32_t>(tower.size()));
    out.u32(static_cast<std::uint32_t>(tower.size()));
    out.bytes(tower);
}

}  // namespace

struct endpoint_mapper::inquiry {
    bool by_interface = false;
    syntax_id interface;
    std::uint32_t version_option = compatible;

    static constexpr std::uint32_t all_versions = 1;
    static constexpr std::uint32_t compatible = 2;
    static constexpr std::uint32_t exact = 3;
    static constexpr std::uint32_t major_only = 4;
    static constexpr std::uint32_t up_to = 5;

    [[nodiscard]] bool fits(const syntax_id& candidate) const {
        if (!by_interface) {
            return true;
        }
        if (candidate.uuid != interface.uuid) {
            return false;
        }
        const auto own = std::pair(candidate.major, candidate.minor);
        const auto asked = std::pair(interface.major, interface.minor);
        switch (version_option) {
            case all_versions:
                return true;
            case exact:
                return own == asked;
            case major_only:
                return own.first == asked.first;
            case up_to:
                return own <= asked;
            default:
                return own.first == asked.first && own.second >= asked.second;
        }
    }
};

void endpoint_mapper::enter(const syntax_id& interface, const std::string& annotation, const std::vector<std::uint16_t>& ports) {
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const entry& known) { return known.interface == interface; });
    for (const std::uint16_t port : ports) {
        entries_.push_back({interface, annotation.substr(0, longest_annotation), port});
    }
}

void endpoint_mapper::clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
}

rpc_interface endpoint_mapper::description() {
    rpc_interface described;
    described.uuid = uuid_from_text("e1af8308-5d1f-11c9-91a4-08002b14a0fa");
    described.major_version = 3;
    described.operations = 7;
    described.may_wait = [](const rpc_request&) { return false; };
    described.dispatch = [this](const rpc_request& request, rpc_reply& reply) { return dispatch(request, reply); };
    return described;
}

std::uint32_t endpoint_mapper::dispatch(const rpc_request& request, rpc_reply& reply) {
    wire_reader in(request.stub, request.little_endian);
    std::vector<std::uint8_t> stub;
    stub.reserve(usual_answer);
    wire_writer out(stub);
    std::uint32_t status = rpc_status::ok;
    switch (request.operation) {
        case ept_lookup:
            status = lookup(in, out);
            break;
        case ept_map:
            status = map(in, out);
            break;
        case ept_handle_free:
            write_handle(out, 0);
            out.u32(0);
            break;
        case ept_inq_object:
            out.uuid({});
            out.u32(0);
            break;
        default:
            out.u32(cannot_perform);
            break;
    }
    if (status == rpc_status::ok) {
        std::copy(stub.begin(), stub.end(), reply.allocate(stub.size()).begin());
    }
    return status;
}

std::vector<endpoint_mapper::entry> endpoint_mapper::matching(const inquiry& wanted) const {
    const std::lock_guard lock(mutex_);
    std::vector<entry> found;
    std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(found),
                 [&](const entry& candidate) { return wanted.fits(candidate.interface); });
    return found;
}

std::uint32_t endpoint_mapper::lookup(wire_reader& in, wire_writer& out) {
    constexpr std::uint32_t by_interface = 1;
    constexpr std::uint32_t by_object = 2;
    const std::uint32_t kind = in.u32();
    uuid_bytes object{};
    if (in.u32() != 0) {
        object = in.uuid();
    }
    inquiry wanted;
    if (in.u32() != 0) {
        wanted.interface.uuid = in.uuid();
        wanted.interface.major = in.u16();
        wanted.interface.minor = in.u16();
    }
    wanted.version_option = in.u32();
    wanted.by_interface = (kind & by_interface) != 0;
    const std::uint32_t seen = read_handle(in);
    const std::uint32_t max_entries = in.u32();
    if (in.failed()) {
        return rpc_status::bad_stub_data;
    }
    std::vector<entry> found = matching(wanted);
    if ((kind & by_object) != 0 && object != uuid_bytes{}) {
        found.clear();  // no entry here is bound to an object
    }
    const std::size_t from = std::min<std::size_t>(seen, found.size());
    const std::size_t count = std::min<std::size_t>(max_entries, found.size() - from);
    write_handle(out, from + count < found.size() ? static_cast<std::uint32_t>(from + count) : 0);
    out.u32(static_cast<std::uint32_t>(count));
    out.u32(max_entries);
    out.u32(0);
    out.u32(static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        const std::string& annotation = found[from + i].annotation;
        out.align(4);
        out.uuid({});
        out.u32(static_cast<std::uint32_t>(i + 1));
        out.u32(0);
        out.u32(static_cast<std::uint32_t>(annotation.size() + 1));
        out.bytes({reinterpret_cast<const std::uint8_t*>(annotation.c_str()), annotation.size() + 1});
    }
    const call_scene* scene = current_call();
    for (std::size_t i = 0; i < count; ++i) {
        write_tower(out, encode_tower(found[from + i].interface, found[from + i].port, scene != nullptr ? scene->local_ipv4 : 0));
    }
    out.align(4);
    out.u32(count == 0 ? not_registered : 0);
    return rpc_status::ok;
}

std::uint32_t endpoint_mapper::map(wire_reader& in, wire_writer& out) {
    if (in.u32() != 0) {
        (void)in.uuid();
    }
    inquiry wanted;
    bool understood = false;
    if (in.u32() != 0) {
        in.skip(4);
        const auto asked = decode_tower(in.bytes(in.u32()));
        in.align(4);
        understood = asked.has_value();
        wanted.by_interface = true;
        wanted.interface = asked.value_or(syntax_id{});
    }
    (void)read_handle(in);
    const std::uint32_t max_towers = in.u32();
    if (in.failed()) {
        return rpc_status::bad_stub_data;
    }
    std::vector<entry> found;
    if (understood) {
        found = matching(wanted);
    }
    found.resize(std::min<std::size_t>(found.size(), max_towers));
    write_handle(out, 0);
    out.u32(static_cast<std::uint32_t>(found.size()));
    out.u32(max_towers);
    out.u32(0);
    out.u32(static_cast<std::uint32_t>(found.size()));
    for (std::size_t i = 0; i < found.size(); ++i) {
        out.u32(static_cast<std::uint32_t>(i + 1));
    }
    const call_scene* scene = current_call();
    for (const entry& match : found) {
        write_tower(out, encode_tower(match.interface, match.port, scene != nullptr ? scene->local_ipv4 : 0));
    }
    out.align(4);
    out.u32(found.empty() ? not_registered : 0);
    return rpc_status::ok;
}

std::vector<std::uint8_t> encode_tower(const syntax_id& interface, std::uint16_t port, std::uint32_t ipv4) {
    std::vector<std::uint8_t> tower;
    wire_writer out(tower);
    out.u16(floor_count);
    uuid_floor(out, interface);
    uuid_floor(out, ndr_transfer_syntax());
    out.u16(1);
    out.u8(floor_connection_oriented);
    out.u16(2);
    out.u16(0);
    out.u16(1);
    out.u8(floor_tcp);
    out.u16(2);
    out.u8(static_cast<std::uint8_t>(port >> 8));
    out.u8(static_cast<std::uint8_t>(port & 0xFF));
    out.u16(1);
    out.u8(floor_ip);
    out.u16(4);
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.u8(static_cast<std::uint8_t>(ipv4 >> shift & 0xFF));
    }
    return tower;
}

std::optional<syntax_id> decode_tower(std::span<const std::uint8_t> tower) {
    wire_reader in(tower, true);
    if (in.u16() != floor_count) {
        return std::nullopt;
    }
    std::array<syntax_id, 2> uuids;
    for (syntax_id& syntax : uuids) {
        const bool shaped = in.u16() == 19 && in.u8() == floor_uuid;
        syntax.uuid = in.uuid();
        syntax.major = in.u16();
        if (!shaped || in.u16() != 2) {
            return std::nullopt;
        }
        syntax.minor = in.u16();
    }
    for (const std::uint8_t protocol : {floor_connection_oriented, floor_tcp, floor_ip}) {
        if (in.u16() != 1 || in.u8() != protocol) {
            return std::nullopt;
        }
        in.skip(in.u16());
    }
    if (in.failed() || uuids[1] != ndr_transfer_syntax()) {
        return std::nullopt;
    }
    return uuids[0];
}

}  // namespace platform::linux_rpc
