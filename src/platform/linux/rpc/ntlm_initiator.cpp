#include "platform/linux/rpc/ntlm_initiator.h"

#include <algorithm>
#include <stdexcept>

#include "platform/linux/rpc/little_endian.h"
#include "platform/linux/rpc/unicode.h"
#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

namespace {

namespace flag = ntlm::flag;

constexpr std::uint32_t required_flags =
    flag::unicode | flag::ntlm | flag::extended_session_security | flag::key_128 | flag::key_exchange;
constexpr std::uint32_t offered_flags =
    required_flags | flag::request_target | flag::sign | flag::seal | flag::always_sign | flag::version;
constexpr ntlm::version_bytes package_version{6, 1, 0, 0, 0, 0, 0, 15};
constexpr std::size_t lm_response_size = 24;
constexpr std::size_t time_size = 8;
/// The response repeats the server's names, and its length has to fit into 16 bits.
constexpr std::size_t largest_target_info = 32768;

}  // namespace

ntlm_credentials ntlm_credentials::of(std::string_view name, std::string_view password) {
    const std::size_t separator = name.find('\\');
    const bool qualified = separator != std::string_view::npos;
    ntlm_credentials made;
    std::u16string wide_password;
    if (!utf8_to_utf16(qualified ? name.substr(0, separator) : std::string_view(), made.domain) ||
        !utf8_to_utf16(qualified ? name.substr(separator + 1) : name, made.user) || made.user.empty()) {
        throw std::invalid_argument("The user's name is empty or no well-formed UTF-8.");
    }
    const bool converted = utf8_to_utf16(password, wide_password);
    made.hash = nt_hash(wide_password);
    wipe(wide_password);
    if (!converted) {
        throw std::invalid_argument("The password is no well-formed UTF-8.");
    }
    return made;
}

ntlm_initiator::ntlm_initiator(ntlm_credentials credentials, ntlm_environment environment)
    : credentials_(std::move(credentials)), environment_(std::move(environment)) {}

std::uint8_t ntlm_initiator::auth_type() const {
    return rpc_authn::ntlm;
}

std::vector<std::uint8_t> ntlm_initiator::next_token(std::span<const std::uint8_t> server_token) {
    if (state_ != state::proceed) {
        return refuse();
    }
    if (negotiate_token_.empty()) {
        if (!server_token.empty()) {
            return refuse();
        }
        negotiate_token_ = ntlm::encode_negotiate(offered_flags, package_version);
        return negotiate_token_;
    }
    const auto challenge = ntlm::decode_challenge(server_token);
    if (!challenge || (challenge->flags & required_flags) != required_flags) {
        return refuse();
    }
    return answer(*challenge, server_token);
}

std::vector<std::uint8_t> ntlm_initiator::answer(const ntlm::challenge_message& challenge,
                                                 std::span<const std::uint8_t> challenge_token) {
    std::optional<ntlm::av_pairs> pairs = ntlm::decode_av_pairs(challenge.target_info);
    if (!pairs || challenge.target_info.size() > largest_target_info) {
        return refuse();
    }
    std::erase_if(*pairs, [](const ntlm::av_pair& pair) { return pair.id == static_cast<std::uint16_t>(ntlm::av_id::flags); });
    const ntlm::av_pair* const stamp = ntlm::find_pair(*pairs, ntlm::av_id::timestamp);
    std::vector<std::uint8_t> time(time_size);
    if (stamp == nullptr) {
        store_le64(time, 0, environment_.now());
    } else if (stamp->value.size() == time_size) {
        time = stamp->value;
    } else {
        return refuse();
    }
    with_mic_ = stamp != nullptr;
    if (with_mic_) {
        pairs->push_back({static_cast<std::uint16_t>(ntlm::av_id::flags), {ntlm::av_flag_mic, 0, 0, 0}});
    }
    const std::vector<std::uint8_t> blob = build_blob(*pairs, time);
    const secret_key key = ntlm_v2_key(credentials_.hash, credentials_.user, credentials_.domain);
    const secret_key proof = hmac_md5(key.view(), {challenge.challenge, blob});
    const secret_key base = hmac_md5(key.view(), {proof.view()});

    secret_key exported;
    environment_.random(exported.writable());
    secret_key encrypted = exported;
    rc4_stream(base.view()).apply(encrypted.writable());

    ntlm::authenticate_message message;
    message.flags = offered_flags & challenge.flags;
    message.domain = credentials_.domain;
    message.user = credentials_.user;
    message.workstation = credentials_.workstation;
    message.version = package_version;
    // Zeros: an LM response would only give a listener more to work on.
    message.lm_response.assign(lm_response_size, 0);
    message.nt_response.assign(proof.view().begin(), proof.view().end());
    message.nt_response.insert(message.nt_response.end(), blob.begin(), blob.end());
    message.encrypted_session_key.assign(encrypted.view().begin(), encrypted.view().end());
    std::vector<std::uint8_t> token = ntlm::encode_authenticate(message, with_mic_);
    if (with_mic_) {
        const secret_key mic = hmac_md5(exported.view(), {negotiate_token_, challenge_token, token});
        std::copy(mic.view().begin(), mic.view().end(), token.begin() + ntlm::mic_offset);
    }
    session_.emplace(ntlm_role::client, message.flags, exported);
    state_ = state::complete;
    return token;
}

std::vector<std::uint8_t> ntlm_initiator::build_blob(const ntlm::av_pairs& pairs, std::span<const std::uint8_t> time) {
    std::vector<std::uint8_t> blob(ntlm::blob_header_size);
    blob[0] = 1;
    blob[1] = 1;
    std::copy(time.begin(), time.end(), blob.begin() + 8);
    environment_.random(std::span(blob).subspan(16, 8));
    const std::vector<std::uint8_t> encoded = ntlm::encode_av_pairs(pairs);
    blob.insert(blob.end(), encoded.begin(), encoded.end());
    blob.insert(blob.end(), 4, 0);
    return blob;
}

void ntlm_initiator::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                             std::span<std::uint8_t> signature) {
    if (session_) {
        const bool seal = level == auth_level::privacy;
        session_->protect(pdu, pdu.subspan(body_offset, seal ? body_size : 0), signature.first<ntlm_session::signature_size>());
    }
}

bool ntlm_initiator::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                               std::span<const std::uint8_t> signature) {
    const bool seal = level == auth_level::privacy;
    return session_ && session_->unprotect(pdu, pdu.subspan(body_offset, seal ? body_size : 0), signature);
}

std::vector<std::uint8_t> ntlm_initiator::sign_list(std::span<const std::uint8_t> list) {
    return session_ ? session_->sign(list) : std::vector<std::uint8_t>();
}

bool ntlm_initiator::check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) {
    return session_ && session_->verify(list, signature);
}

void ntlm_initiator::list_is_signed() {
    if (session_) {
        session_->restart_key_streams();
    }
}

std::vector<std::uint8_t> ntlm_initiator::refuse() {
    state_ = state::refused;
    session_.reset();
    return {};
}

}  // namespace platform::linux_rpc
