#include "platform/linux/rpc/ntlm_messages.h"

#include <algorithm>

#include "platform/linux/rpc/little_endian.h"
#include "platform/linux/rpc/unicode.h"

namespace platform::linux_rpc::ntlm {

namespace {

using byte_view = std::span<const std::uint8_t>;

constexpr std::array<std::uint8_t, 8> signature{'N', 'T', 'L', 'M', 'S', 'S', 'P', 0};
constexpr std::uint32_t negotiate_type = 1;
constexpr std::uint32_t challenge_type = 2;
constexpr std::uint32_t authenticate_type = 3;

// Fixed parts. NEGOTIATE comes in three lengths: without the supplied names, with them, with the version behind.
constexpr std::size_t negotiate_short_size = 16;
constexpr std::size_t negotiate_names_size = 32;
constexpr std::size_t negotiate_full_size = 40;
constexpr std::size_t challenge_fixed_size = 48;
constexpr std::size_t challenge_full_size = 56;
constexpr std::size_t authenticate_fixed_size = 64;
constexpr std::size_t authenticate_full_size = 72;

bool is_message(byte_view message, std::uint32_t type, std::size_t smallest) {
    return message.size() >= smallest && std::equal(signature.begin(), signature.end(), message.begin()) &&
           load_le32(message, signature.size()) == type;
}

/// A field descriptor: length, room, offset from the start of the message.
struct field {
    std::size_t length = 0;
    std::size_t offset = 0;
};

field load_field(byte_view message, std::size_t at) {
    return {load_le16(message, at), load_le32(message, at + 4)};
}

/// The offset of an empty field means nothing, and clients write what they like there.
bool lies_within(const field& described, std::size_t fixed_size, std::size_t message_size) {
    return described.length == 0 || (described.offset >= fixed_size && described.offset <= message_size &&
                                     described.length <= message_size - described.offset);
}

/// Takes the fields of one message; the first one that lies makes the whole message void.
class field_reader {
public:
    field_reader(byte_view message, std::size_t fixed_size)
        : message_(message), fixed_size_(fixed_size), payload_offset_(message.size()) {}

    void take(std::size_t at, std::vector<std::uint8_t>& bytes) {
        const byte_view found = locate(at);
        bytes.assign(found.begin(), found.end());
    }

    void take(std::size_t at, std::u16string& text) { sound_ = from_utf16le(locate(at), text) && sound_; }

    [[nodiscard]] bool sound() const { return sound_; }
    [[nodiscard]] std::size_t payload_offset() const { return payload_offset_; }

private:
    byte_view locate(std::size_t at) {
        const field described = load_field(message_, at);
        if (!lies_within(described, fixed_size_, message_.size())) {
            sound_ = false;
            return {};
        }
        if (described.length == 0) {
            return {};
        }
        payload_offset_ = std::min(payload_offset_, described.offset);
        return message_.subspan(described.offset, described.length);
    }

    byte_view message_;
    std::size_t fixed_size_;
    std::size_t payload_offset_;
    bool sound_ = true;
};

std::vector<std::uint8_t> start_message(std::uint32_t type, std::size_t fixed_size) {
    std::vector<std::uint8_t> message(fixed_size);
    std::copy(signature.begin(), signature.end(), message.begin());
    store_le32(message, signature.size(), type);
    return message;
}

/// Appends a payload and describes it in the fixed part.
void put_field(std::vector<std::uint8_t>& message, std::size_t at, byte_view payload) {
    const auto length = static_cast<std::uint16_t>(payload.size());
    store_le16(message, at, length);
    store_le16(message, at + 2, length);
    store_le32(message, at + 4, static_cast<std::uint32_t>(message.size()));
    message.insert(message.end(), payload.begin(), payload.end());
}

void put_version(std::vector<std::uint8_t>& message, std::size_t at, const version_bytes& version) {
    std::copy(version.begin(), version.end(), message.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace

std::optional<negotiate_message> decode_negotiate(byte_view message) {
    if (!is_message(message, negotiate_type, negotiate_short_size)) {
        return std::nullopt;
    }
    negotiate_message decoded;
    decoded.flags = load_le32(message, 12);
    const bool names = (decoded.flags & (flag::domain_supplied | flag::workstation_supplied)) != 0;
    if (names && message.size() < negotiate_names_size) {
        return std::nullopt;
    }
    // The names say nothing that is used here, but a message that lies about them is nobody's honest one.
    const auto lies = [&](std::uint32_t supplied, std::size_t at) {
        return (decoded.flags & supplied) != 0 && !lies_within(load_field(message, at), negotiate_names_size, message.size());
    };
    if (lies(flag::domain_supplied, 16) || lies(flag::workstation_supplied, 24)) {
        return std::nullopt;
    }
    return decoded;
}

std::optional<challenge_message> decode_challenge(byte_view message) {
    if (!is_message(message, challenge_type, challenge_fixed_size)) {
        return std::nullopt;
    }
    challenge_message decoded;
    decoded.flags = load_le32(message, 20);
    std::copy_n(message.begin() + 24, decoded.challenge.size(), decoded.challenge.begin());
    field_reader fields(message, challenge_fixed_size);
    fields.take(12, decoded.target_name);
    fields.take(40, decoded.target_info);
    if (message.size() >= challenge_full_size && (decoded.flags & flag::version) != 0) {
        std::copy_n(message.begin() + challenge_fixed_size, decoded.version.size(), decoded.version.begin());
    }
    return fields.sound() ? std::optional(std::move(decoded)) : std::nullopt;
}

std::optional<authenticate_message> decode_authenticate(byte_view message) {
    if (!is_message(message, authenticate_type, authenticate_fixed_size)) {
        return std::nullopt;
    }
    authenticate_message decoded;
    field_reader fields(message, authenticate_fixed_size);
    fields.take(12, decoded.lm_response);
    fields.take(20, decoded.nt_response);
    fields.take(28, decoded.domain);
    fields.take(36, decoded.user);
    fields.take(44, decoded.workstation);
    fields.take(52, decoded.encrypted_session_key);
    decoded.flags = load_le32(message, 60);
    decoded.payload_offset = fields.payload_offset();
    if (decoded.payload_offset >= authenticate_full_size && (decoded.flags & flag::version) != 0) {
        std::copy_n(message.begin() + authenticate_fixed_size, decoded.version.size(), decoded.version.begin());
    }
    return fields.sound() ? std::optional(std::move(decoded)) : std::nullopt;
}

std::optional<av_pairs> decode_av_pairs(byte_view bytes) {
    constexpr std::size_t header_size = 4;
    av_pairs pairs;
    for (std::size_t at = 0; at + header_size <= bytes.size();) {
        const std::uint16_t id = load_le16(bytes, at);
        const std::size_t length = load_le16(bytes, at + 2);
        at += header_size;
        if (id == static_cast<std::uint16_t>(av_id::end)) {
            return length == 0 ? std::optional(std::move(pairs)) : std::nullopt;
        }
        if (length > bytes.size() - at) {
            return std::nullopt;
        }
        const byte_view value = bytes.subspan(at, length);
        pairs.push_back({id, {value.begin(), value.end()}});
        at += length;
    }
    return std::nullopt;
}

const av_pair* find_pair(const av_pairs& pairs, av_id id) {
    const auto found =
        std::find_if(pairs.begin(), pairs.end(), [id](const av_pair& pair) { return pair.id == static_cast<std::uint16_t>(id); });
    return found == pairs.end() ? nullptr : &*found;
}

std::vector<std::uint8_t> encode_negotiate(std::uint32_t flags, const version_bytes& version) {
    std::vector<std::uint8_t> message = start_message(negotiate_type, negotiate_full_size);
    store_le32(message, 12, flags);
    put_version(message, negotiate_names_size, version);
    return message;
}

std::vector<std::uint8_t> encode_challenge(const challenge_message& message) {
    std::vector<std::uint8_t> encoded = start_message(challenge_type, challenge_full_size);
    store_le32(encoded, 20, message.flags);
    std::copy(message.challenge.begin(), message.challenge.end(), encoded.begin() + 24);
    put_version(encoded, challenge_fixed_size, message.version);
    put_field(encoded, 12, to_utf16le(message.target_name));
    put_field(encoded, 40, message.target_info);
    return encoded;
}

std::vector<std::uint8_t> encode_authenticate(const authenticate_message& message, bool with_mic) {
    std::vector<std::uint8_t> encoded =
        start_message(authenticate_type, with_mic ? payload_offset_with_mic : authenticate_full_size);
    store_le32(encoded, 60, message.flags);
    put_version(encoded, authenticate_fixed_size, message.version);
    put_field(encoded, 28, to_utf16le(message.domain));
    put_field(encoded, 36, to_utf16le(message.user));
    put_field(encoded, 44, to_utf16le(message.workstation));
    put_field(encoded, 12, message.lm_response);
    put_field(encoded, 20, message.nt_response);
    put_field(encoded, 52, message.encrypted_session_key);
    return encoded;
}

std::vector<std::uint8_t> encode_av_pairs(const av_pairs& pairs) {
    std::vector<std::uint8_t> bytes;
    const auto put16 = [&bytes](std::size_t value) {
        bytes.push_back(static_cast<std::uint8_t>(value & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>((value >> 8) & 0xFF));
    };
    for (const av_pair& pair : pairs) {
        put16(pair.id);
        put16(pair.value.size());
        bytes.insert(bytes.end(), pair.value.begin(), pair.value.end());
    }
    put16(static_cast<std::size_t>(av_id::end));
    put16(0);
    return bytes;
}

}  // namespace platform::linux_rpc::ntlm
