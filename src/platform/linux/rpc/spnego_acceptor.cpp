#include "platform/linux/rpc/spnego_acceptor.h"

#include <algorithm>

namespace platform::linux_rpc {

using spnego::neg_state;

spnego_acceptor::spnego_acceptor(std::shared_ptr<const spnego_settings> settings, auth_level level)
    : settings_(std::move(settings)), level_(level) {}

security_context::state spnego_acceptor::accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    reply.clear();
    if (state_ != state::proceed) {
        return refuse("a token came when none was due");
    }
    if (chosen_ == nullptr) {
        state_ = take_first(token, reply);
    } else {
        state_ = bare_ ? take_bare(token, reply) : take_response(token, reply);
    }
    return state_;
}

const client_identity& spnego_acceptor::identity() const {
    static const client_identity nobody;
    return state_ == state::complete ? chosen_->identity() : nobody;
}

void spnego_acceptor::header_signing(bool agreed) {
    header_signing_ = agreed;
}

std::size_t spnego_acceptor::signature_size() const {
    return state_ == state::complete ? chosen_->signature_size() : 0;
}

void spnego_acceptor::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                              std::span<std::uint8_t> signature) {
    if (state_ == state::complete) {
        chosen_->protect(level, pdu, body_offset, body_size, signature);
    }
}

bool spnego_acceptor::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                std::span<const std::uint8_t> signature) {
    return state_ == state::complete && chosen_->unprotect(level, pdu, body_offset, body_size, signature);
}

bool spnego_acceptor::choose(const std::vector<spnego::mechanism_id>& offered, std::size_t& chosen) {
    for (chosen = 0; chosen < offered.size(); ++chosen) {
        for (const auto& provider : settings_->providers) {
            const auto known = provider->mechanisms();
            if (provider->ready() && provider->supports(level_) && std::ranges::find(known, offered[chosen]) != known.end()) {
                chosen_ = provider->create_negotiable(level_);
                chosen_->header_signing(header_signing_);
                return true;
            }
        }
    }
    return false;
}

security_context::state spnego_acceptor::take_first(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    const spnego::mechanism_id alone = spnego::mechanism_of_bare(token);
    if (alone.empty()) {
        return take_init(token, reply);
    }
    bare_ = true;
    std::size_t chosen = 0;
    return choose({alone}, chosen) ? take_bare(token, reply) : refuse("it knows none of the mechanisms that are offered here");
}

security_context::state spnego_acceptor::take_bare(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    const state inner = chosen_->accept(token, reply);
    return inner == state::refused ? refuse() : inner;
}

security_context::state spnego_acceptor::take_init(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    const auto message = spnego::decode_init(token);
    if (!message) {
        return refuse("its first token is no well-formed offer");
    }
    std::size_t chosen = 0;
    if (!choose(message->mechanisms, chosen)) {
        return refuse("it knows none of the mechanisms that are offered here");
    }
    list_ = message->mechanism_list;
    list_must_be_signed_ = chosen != 0;
    spnego::response_message answer;
    answer.mechanism = message->mechanisms[chosen];
    answer.state = list_must_be_signed_ ? neg_state::request_mic : neg_state::accept_incomplete;
    // The token that comes along is the favourite's: of no use to another mechanism, which begins with the next one.
    if (!list_must_be_signed_ && !message->token.empty()) {
        const state inner = chosen_->accept(message->token, answer.token);
        if (inner != state::proceed) {
            // Both mechanisms take at least two tokens of the client.
            return refuse(inner == state::complete ? "its mechanism ended before its time" : "");
        }
    }
    reply = spnego::encode_response(answer);
    return state::proceed;
}

security_context::state spnego_acceptor::take_response(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    const auto message = spnego::decode_response(token);
    if (!message) {
        return refuse("a token of it is malformed");
    }
    if (message->state == neg_state::reject) {
        return refuse("it wants the chosen mechanism no more");
    }
    spnego::response_message answer;
    const state inner = chosen_->accept(message->token, answer.token);
    if (inner == state::refused) {
        return refuse();
    }
    if (inner == state::proceed) {
        if (!message->list_mic.empty()) {
            return refuse("it signed the list of mechanisms before its time");
        }
        answer.state = neg_state::accept_incomplete;
    } else if (finish(*message, answer) != state::complete) {
        return state::refused;
    }
    reply = spnego::encode_response(answer);
    return inner;
}

security_context::state spnego_acceptor::finish(const spnego::response_message& message, spnego::response_message& answer) {
    answer.state = neg_state::accept_completed;
    // Where nothing is ever signed, the list can't be either (RFC 4178 5); but nobody gets there by striking flags out on the way
    // to a level that counts on signatures.
    const bool can_be_signed = level_ >= auth_level::packet || chosen_->agreed_to_sign();
    if ((list_must_be_signed_ && can_be_signed) || chosen_->demands_signed_list() || !message.list_mic.empty()) {
        if (message.list_mic.empty()) {
            return refuse("it didn't sign the list of mechanisms");
        }
        if (!chosen_->check_list(list_, message.list_mic)) {
            return refuse("the list of mechanisms was changed on its way");
        }
        answer.list_mic = chosen_->sign_list(list_);
        if (answer.list_mic.empty()) {
            return refuse("the list of mechanisms can't be signed");
        }
        chosen_->list_is_signed();
    }
    list_.clear();
    list_.shrink_to_fit();
    return state::complete;
}

security_context::state spnego_acceptor::refuse(const std::string& reason) {
    state_ = state::refused;
    if (!reason.empty() && settings_->report) {
        const std::string who = chosen_ && chosen_->identity().authenticated ? "[" + chosen_->identity().name + "]" : "a client";
        settings_->report("Negotiation with " + who + " was refused: " + reason + ".");
    }
    chosen_.reset();
    return state_;
}

}  // namespace platform::linux_rpc
