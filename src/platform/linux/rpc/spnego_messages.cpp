#include "platform/linux/rpc/spnego_messages.h"

#include <algorithm>

#include "platform/linux/rpc/spnego_der.h"

namespace platform::linux_rpc::spnego {

namespace {

using byte_view = std::span<const std::uint8_t>;
namespace tag = der::tag;

/// 1.3.6.1.5.5.2
constexpr std::array<std::uint8_t, 6> negotiation{0x2B, 0x06, 0x01, 0x05, 0x05, 0x02};

std::vector<std::uint8_t> copy(byte_view bytes) {
    return {bytes.begin(), bytes.end()};
}

bool take_mechanisms(byte_view list, std::vector<mechanism_id>& mechanisms) {
    der::reader reader(list);
    while (!reader.finished()) {
        const byte_view id = reader.take(tag::object_identifier);
        if (id.empty() || mechanisms.size() == most_mechanisms) {
            return false;
        }
        mechanisms.push_back(copy(id));
    }
    return !mechanisms.empty();
}

/// Passes over an optional field that nobody here reads.
void pass(der::reader& fields, std::uint8_t number) {
    if (fields.next_tag() == tag::context(number)) {
        fields.skip();
    }
}

/// Fields behind the known ones: there the definition leaves room for more.
bool pass_rest(der::reader& fields) {
    while (!fields.failed() && !fields.finished()) {
        fields.skip();
    }
    return !fields.failed();
}

byte_view take_octets(der::reader& fields, std::uint8_t number) {
    return fields.next_tag() == tag::context(number) ? fields.take_within(tag::context(number), tag::octet_string) : byte_view();
}

std::vector<std::uint8_t> field(std::uint8_t number, std::uint8_t inner, byte_view contents) {
    return der::element(tag::context(number), {der::element(inner, {contents})});
}

std::vector<std::uint8_t> optional_field(std::uint8_t number, std::uint8_t inner, byte_view contents) {
    return contents.empty() ? std::vector<std::uint8_t>() : field(number, inner, contents);
}

}  // namespace

mechanism_id mechanism_of_bare(byte_view token) {
    constexpr std::array<std::uint8_t, 8> ntlm_signature{'N', 'T', 'L', 'M', 'S', 'S', 'P', 0};
    if (token.size() >= ntlm_signature.size() && std::ranges::equal(token.first(ntlm_signature.size()), ntlm_signature)) {
        return mechanism::ntlm;
    }
    der::reader framed(der::reader(token).take(tag::application));  // RFC 2743 3.1
    return std::ranges::equal(framed.take(tag::object_identifier), mechanism::kerberos) ? mechanism::kerberos : mechanism_id();
}

std::optional<init_message> decode_init(byte_view token) {
    der::reader outside(token);
    der::reader framed(outside.take(tag::application));
    const byte_view framing = framed.take(tag::object_identifier);
    der::reader choice(framed.take(tag::context(0)));
    der::reader fields(choice.take(tag::sequence));
    if (!outside.finished() || !framed.finished() || !choice.finished() || !std::ranges::equal(framing, negotiation)) {
        return std::nullopt;
    }
    init_message message;
    const byte_view listed = fields.take(tag::context(0));
    der::reader list(listed);
    const byte_view mechanisms = list.take(tag::sequence);
    if (!list.finished() || !take_mechanisms(mechanisms, message.mechanisms)) {
        return std::nullopt;
    }
    message.mechanism_list = copy(listed);
    pass(fields, 1);  // flags, which aren't protected and therefore mean nothing
    message.token = copy(take_octets(fields, 2));
    if (!pass_rest(fields)) {
        return std::nullopt;
    }
    return message;
}

std::optional<response_message> decode_response(byte_view token) {
    der::reader outside(token);
    der::reader choice(outside.take(tag::context(1)));
    der::reader fields(choice.take(tag::sequence));
    if (!outside.finished() || !choice.finished()) {
        return std::nullopt;
    }
    response_message message;
    if (fields.next_tag() == tag::context(0)) {
        const byte_view state = fields.take_within(tag::context(0), tag::enumerated);
        if (state.size() != 1 || state[0] > static_cast<std::uint8_t>(neg_state::request_mic)) {
            return std::nullopt;
        }
        message.state = static_cast<neg_state>(state[0]);
    }
    if (fields.next_tag() == tag::context(1)) {
        message.mechanism = copy(fields.take_within(tag::context(1), tag::object_identifier));
    }
    message.token = copy(take_octets(fields, 2));
    message.list_mic = copy(take_octets(fields, 3));
    if (!pass_rest(fields)) {
        return std::nullopt;
    }
    return message;
}

std::vector<std::uint8_t> encode_mechanism_list(std::span<const mechanism_id> mechanisms) {
    std::vector<std::uint8_t> ids;
    for (const mechanism_id& id : mechanisms) {
        const std::vector<std::uint8_t> encoded = der::element(tag::object_identifier, {id});
        ids.insert(ids.end(), encoded.begin(), encoded.end());
    }
    return der::element(tag::sequence, {ids});
}

std::vector<std::uint8_t> encode_init(byte_view mechanism_list, byte_view token) {
    const std::vector<std::uint8_t> fields =
        der::element(tag::sequence, {der::element(tag::context(0), {mechanism_list}), optional_field(2, tag::octet_string, token)});
    return der::element(tag::application,
                        {der::element(tag::object_identifier, {negotiation}), der::element(tag::context(0), {fields})});
}

std::vector<std::uint8_t> encode_response(const response_message& message) {
    std::vector<std::uint8_t> state;
    if (message.state) {
        state = field(0, tag::enumerated, std::array{static_cast<std::uint8_t>(*message.state)});
    }
    const std::vector<std::uint8_t> fields =
        der::element(tag::sequence,
                     {state, optional_field(1, tag::object_identifier, message.mechanism),
                      optional_field(2, tag::octet_string, message.token), optional_field(3, tag::octet_string, message.list_mic)});
    return der::element(tag::context(1), {fields});
}

}  // namespace platform::linux_rpc::spnego
