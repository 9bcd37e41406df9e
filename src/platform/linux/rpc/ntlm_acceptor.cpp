#include "platform/linux/rpc/ntlm_acceptor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>

#include "platform/linux/rpc/little_endian.h"
#include "platform/linux/rpc/unicode.h"

namespace platform::linux_rpc {

namespace {

/// What the accounts file says of an account at the moment.
class account_standing final : public caller_standing {
public:
    account_standing(std::shared_ptr<account_source> accounts, std::u16string name)
        : accounts_(std::move(accounts)), name_(std::move(name)) {}

    [[nodiscard]] rank now() override {
        const std::uint64_t generation = accounts_->generation();
        std::uint64_t known = known_.load(std::memory_order_relaxed);
        if (known >> rank_bits != generation + 1) {
            known = (generation + 1) << rank_bits | static_cast<std::uint64_t>(look_up());
            known_.store(known, std::memory_order_relaxed);
        }
        return static_cast<rank>(known & ((1U << rank_bits) - 1));
    }

private:
    static constexpr unsigned rank_bits = 2;

    [[nodiscard]] rank look_up() const {
        const std::optional<account> found = accounts_->find(name_);
        if (!found || found->disabled) {
            return rank::shut_out;
        }
        return found->administrator ? rank::administrator : rank::known;
    }

    std::shared_ptr<account_source> accounts_;
    std::u16string name_;
    std::atomic<std::uint64_t> known_{0};  ///< the generation and one, and in the lowest bits the answer; 0: nothing is known yet
};

namespace flag = ntlm::flag;

constexpr std::uint32_t supported_flags = flag::unicode | flag::request_target | flag::sign | flag::seal | flag::ntlm |
                                          flag::always_sign | flag::extended_session_security | flag::version | flag::key_128 |
                                          flag::key_exchange | flag::key_56;
constexpr std::uint32_t required_flags = flag::unicode | flag::ntlm | flag::extended_session_security;
constexpr std::uint32_t key_strengths = flag::key_128 | flag::key_56;

/// Product version 6.1, which nobody interprets, and revision 15 of the security package.
constexpr ntlm::version_bytes package_version{6, 1, 0, 0, 0, 0, 0, 15};

constexpr std::size_t ntlm_v1_response_size = 24;
constexpr std::size_t longest_netbios_name = 15;

ntlm::av_pair text_pair(ntlm::av_id id, std::u16string_view text) {
    return {static_cast<std::uint16_t>(id), to_utf16le(text)};
}

/// Why the negotiated flags won't do; empty when they do.
std::string flags_fault(std::uint32_t flags) {
    if ((flags & flag::datagram) != 0) {
        return "it wants the connectionless variant";
    }
    if ((flags & required_flags) != required_flags) {
        return "it does without Unicode, NTLM or extended session security";
    }
    return (flags & key_strengths) == 0 ? "it allows keys of 40 bits only" : std::string();
}

/// Why a response can't be one of version 2; empty when it can.
std::string response_fault(const ntlm::authenticate_message& message) {
    if ((message.flags & flag::anonymous) != 0 || message.user.empty()) {
        return "it is anonymous";
    }
    if (message.nt_response.empty()) {
        return "it offers an LM response only";
    }
    if (message.nt_response.size() == ntlm_v1_response_size) {
        return "it offers NTLM version 1 only";
    }
    const bool version_2 = message.nt_response.size() >= ntlm::proof_size + ntlm::blob_header_size &&
                           message.nt_response[ntlm::proof_size] == 1 && message.nt_response[ntlm::proof_size + 1] == 1;
    return version_2 ? std::string() : "its response is malformed";
}

/// A name of the client's own making, for the log.
std::string shown(std::u16string_view name) {
    constexpr std::size_t longest_shown = 64;
    return printable(name.substr(0, longest_shown));
}

/// The AUTHENTICATE_MESSAGE as the integrity code covers it: the code itself counts as zeros.
bool mic_holds(std::span<const std::uint8_t> negotiate, std::span<const std::uint8_t> challenge,
               std::span<const std::uint8_t> authenticate, const secret_key& key) {
    static constexpr std::array<std::uint8_t, ntlm::mic_size> zeros{};
    const secret_key expected = hmac_md5(key.view(), {negotiate, challenge, authenticate.first(ntlm::mic_offset), zeros,
                                                      authenticate.subspan(ntlm::payload_offset_with_mic)});
    return equal_constant_time(expected.view(), authenticate.subspan(ntlm::mic_offset, ntlm::mic_size));
}

}  // namespace

ntlm_host_names ntlm_host_names::of(std::string_view fully_qualified) {
    std::u16string dns;
    if (!utf8_to_utf16(fully_qualified, dns) || dns.empty()) {
        dns = u"localhost";
    }
    const std::size_t dot = dns.find(u'.');
    const std::u16string netbios = upper_case(dns.substr(0, std::min(dot, longest_netbios_name)));
    return {netbios, netbios, dns, dot == std::u16string::npos ? dns : dns.substr(dot + 1)};
}

ntlm_acceptor::ntlm_acceptor(std::shared_ptr<const ntlm_acceptor_settings> settings) : settings_(std::move(settings)) {}

security_context::state ntlm_acceptor::accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    reply.clear();
    try {
        if (stage_ == stage::negotiate) {
            const std::string reason = take_negotiate(token, reply);
            return reason.empty() ? state::proceed : refuse(reason);
        }
        if (stage_ == stage::authenticate) {
            const std::string reason = take_authenticate(token);
            return reason.empty() ? state::complete : refuse(reason);
        }
        return refuse("a token came when none was due");
    } catch (const std::exception& error) {
        return refuse(error.what());
    }
}

void ntlm_acceptor::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                            std::span<std::uint8_t> signature) {
    if (session_) {
        const bool seal = level == auth_level::privacy;
        session_->protect(pdu, pdu.subspan(body_offset, seal ? body_size : 0), signature.first<ntlm_session::signature_size>());
    }
}

bool ntlm_acceptor::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                              std::span<const std::uint8_t> signature) {
    const bool seal = level == auth_level::privacy;
    return session_ && session_->unprotect(pdu, pdu.subspan(body_offset, seal ? body_size : 0), signature);
}

bool ntlm_acceptor::agreed_to_sign() const {
    return (flags_ & (flag::sign | flag::seal)) != 0;
}

std::vector<std::uint8_t> ntlm_acceptor::sign_list(std::span<const std::uint8_t> list) {
    return session_ ? session_->sign(list) : std::vector<std::uint8_t>();
}

bool ntlm_acceptor::check_list(std::span<const std::uint8_t> list, std::span<const std::uint8_t> signature) {
    return session_ && session_->verify(list, signature);
}

void ntlm_acceptor::list_is_signed() {
    if (session_) {
        session_->restart_key_streams();
    }
}

std::string ntlm_acceptor::take_negotiate(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    const auto message = ntlm::decode_negotiate(token);
    if (!message) {
        return "its first token is no NTLM NEGOTIATE";
    }
    if (std::string fault = flags_fault(message->flags); !fault.empty()) {
        return fault;
    }
    ntlm::challenge_message challenge;
    flags_ = (message->flags & supported_flags) | flag::target_info;
    challenge.flags = flags_;
    if ((flags_ & flag::request_target) != 0) {
        challenge.flags |= flag::target_type_server;
        challenge.target_name = settings_->names.netbios_computer;
    }
    if ((flags_ & flag::version) != 0) {
        challenge.version = package_version;
    }
    settings_->environment.random(challenge_);
    challenge.challenge = challenge_;
    challenge.target_info = target_info();
    negotiate_token_.assign(token.begin(), token.end());
    challenge_token_ = ntlm::encode_challenge(challenge);
    reply = challenge_token_;
    stage_ = stage::authenticate;
    return {};
}

std::vector<std::uint8_t> ntlm_acceptor::target_info() const {
    const ntlm_host_names& names = settings_->names;
    std::vector<std::uint8_t> time(8);
    store_le64(time, 0, settings_->environment.now());
    return ntlm::encode_av_pairs({text_pair(ntlm::av_id::netbios_domain, names.netbios_domain),
                                  text_pair(ntlm::av_id::netbios_computer, names.netbios_computer),
                                  text_pair(ntlm::av_id::dns_domain, names.dns_domain),
                                  text_pair(ntlm::av_id::dns_computer, names.dns_computer),
                                  {static_cast<std::uint16_t>(ntlm::av_id::timestamp), time}});
}

std::string ntlm_acceptor::take_authenticate(std::span<const std::uint8_t> token) {
    const auto message = ntlm::decode_authenticate(token);
    if (!message) {
        return "its second token is no well-formed NTLM AUTHENTICATE";
    }
    claimed_ = shown(message->domain) + "\\" + shown(message->user) + "] at [" + shown(message->workstation);
    if (std::string fault = response_fault(*message); !fault.empty()) {
        return fault;
    }
    // A client may take offers back, but can't take what wasn't offered.
    flags_ &= message->flags | flag::target_info;
    if (std::string fault = flags_fault(flags_); !fault.empty()) {
        return fault;
    }
    return verify(*message, token);
}

std::string ntlm_acceptor::verify(const ntlm::authenticate_message& message, std::span<const std::uint8_t> token) {
    const std::span<const std::uint8_t> response(message.nt_response);
    const auto proof = response.first(ntlm::proof_size);
    const auto blob = response.subspan(ntlm::proof_size);
    const auto pairs = ntlm::decode_av_pairs(blob.subspan(ntlm::blob_header_size));
    if (!pairs) {
        return "its response is malformed";
    }
    // The same is computed for an account that doesn't exist, so that the time of the answer doesn't tell which ones do.
    const std::optional<account> found = settings_->accounts->find(message.user);
    const secret_key hash = found ? found->hash : secret_key();
    const secret_key key = ntlm_v2_key(hash, message.user, message.domain);
    const secret_key expected = hmac_md5(key.view(), {challenge_, blob});
    const bool proved = equal_constant_time(expected.view(), proof);
    if (!found) {
        return "there is no such account";
    }
    if (!proved) {
        return "the password is wrong";
    }
    if (found->disabled) {
        return "the account is disabled";
    }
    std::string fault = establish(message, token, hmac_md5(key.view(), {expected.view()}), *pairs);
    if (fault.empty()) {
        std::string computer;
        if (!utf16_to_utf8(settings_->names.netbios_computer, computer)) {
            return "this machine has no name";
        }
        identity_.name = computer + "\\" + found->name;
        identity_.administrator = found->administrator;
        identity_.standing = std::make_shared<account_standing>(settings_->accounts, message.user);
        identity_.authenticated = true;
    }
    return fault;
}

std::string ntlm_acceptor::establish(const ntlm::authenticate_message& message, std::span<const std::uint8_t> token,
                                     const secret_key& session_base_key, const ntlm::av_pairs& pairs) {
    secret_key exported = session_base_key;
    if ((flags_ & flag::key_exchange) != 0) {
        if (message.encrypted_session_key.size() != secret_key::length) {
            return "its session key is malformed";
        }
        std::copy_n(message.encrypted_session_key.begin(), secret_key::length, exported.writable().begin());
        rc4_stream(session_base_key.view()).apply(exported.writable());
    }
    const ntlm::av_pair* const announced = ntlm::find_pair(pairs, ntlm::av_id::flags);
    if (announced != nullptr && announced->value.size() != sizeof(std::uint32_t)) {
        return "its response is malformed";
    }
    if (announced != nullptr && (load_le32(announced->value, 0) & ntlm::av_flag_mic) != 0) {
        const bool room = token.size() >= ntlm::payload_offset_with_mic && message.payload_offset >= ntlm::payload_offset_with_mic;
        if (!room || !mic_holds(negotiate_token_, challenge_token_, token, exported)) {
            return "its integrity code is wrong: the messages were changed on their way";
        }
        with_mic_ = true;
    }
    session_.emplace(ntlm_role::server, flags_, exported);
    negotiate_token_.clear();
    challenge_token_.clear();
    negotiate_token_.shrink_to_fit();
    challenge_token_.shrink_to_fit();
    stage_ = stage::complete;
    return {};
}

security_context::state ntlm_acceptor::refuse(const std::string& reason) {
    stage_ = stage::dead;
    session_.reset();
    identity_ = client_identity();
    if (settings_->report) {
        const std::string who = claimed_.empty() ? "an unnamed client" : "[" + claimed_ + "]";
        settings_->report("NTLM authentication of " + who + " was refused: " + reason + ".");
    }
    return state::refused;
}

}  // namespace platform::linux_rpc
