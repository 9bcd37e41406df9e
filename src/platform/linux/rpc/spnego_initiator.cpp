#include "platform/linux/rpc/spnego_initiator.h"

#include <algorithm>

#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

using spnego::neg_state;

spnego_initiator::candidate spnego_initiator::kerberos(std::unique_ptr<negotiable_initiator> mechanism) {
    return {{spnego::mechanism::kerberos_misprinted, spnego::mechanism::kerberos}, std::move(mechanism)};
}

spnego_initiator::candidate spnego_initiator::ntlm(std::unique_ptr<negotiable_initiator> mechanism) {
    return {{spnego::mechanism::ntlm}, std::move(mechanism)};
}

spnego_initiator::spnego_initiator(std::vector<candidate> candidates) : candidates_(std::move(candidates)) {}

std::uint8_t spnego_initiator::auth_type() const {
    return rpc_authn::negotiate;
}

void spnego_initiator::header_signing(bool agreed) {
    for (const candidate& each : candidates_) {
        each.mechanism->header_signing(agreed);
    }
}

std::size_t spnego_initiator::signature_size() const {
    return state_ == state::complete ? chosen().signature_size() : 0;
}

void spnego_initiator::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                               std::span<std::uint8_t> signature) {
    if (state_ == state::complete) {
        chosen().protect(level, pdu, body_offset, body_size, signature);
    }
}

bool spnego_initiator::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                                 std::span<const std::uint8_t> signature) {
    return state_ == state::complete && chosen().unprotect(level, pdu, body_offset, body_size, signature);
}

std::vector<std::uint8_t> spnego_initiator::next_token(std::span<const std::uint8_t> server_token) {
    if (state_ != state::proceed) {
        return refuse("a token came when none was due");
    }
    if (stage_ == stage::start) {
        return server_token.empty() ? offer() : refuse("the server spoke first");
    }
    const auto message = spnego::decode_response(server_token);
    if (!message) {
        return refuse("the server's answer is malformed");
    }
    if (message->state == neg_state::reject) {
        return refuse("the server takes none of the mechanisms that are offered");
    }
    if (stage_ == stage::last_word) {
        take_last_word(*message);
        return {};
    }
    if (stage_ == stage::offered) {
        return follow_choice(*message);
    }
    return message->state == neg_state::accept_completed ? refuse("the server ends the exchange before its time")
                                                         : feed(message->token);
}

std::vector<std::uint8_t> spnego_initiator::offer() {
    std::vector<std::uint8_t> token;
    while (!candidates_.empty() && token.empty()) {
        token = chosen().next_token({});
        if (chosen().current_state() == state::refused) {
            reason_ = chosen().reason();
            candidates_.erase(candidates_.begin());
            token.clear();
        }
    }
    if (candidates_.empty()) {
        return refuse(reason_);
    }
    std::vector<spnego::mechanism_id> names;
    for (const candidate& each : candidates_) {
        names.insert(names.end(), each.names.begin(), each.names.end());
    }
    list_ = spnego::encode_mechanism_list(names);
    stage_ = stage::offered;
    return spnego::encode_init(list_, token);
}

std::vector<std::uint8_t> spnego_initiator::follow_choice(const spnego::response_message& message) {
    stage_ = stage::exchange;
    list_must_be_signed_ = message.state == neg_state::request_mic;
    if (message.state == neg_state::accept_completed) {
        return refuse("the server ends the exchange before its time");
    }
    const auto chosen_one = std::ranges::find_if(candidates_, [&](const candidate& each) {
        return message.mechanism.empty() || std::ranges::find(each.names, message.mechanism) != each.names.end();
    });
    if (chosen_one == candidates_.end()) {
        return refuse("the server has chosen a mechanism that wasn't offered");
    }
    if (chosen_one == candidates_.begin()) {
        return feed(message.token);
    }
    if (!message.token.empty()) {
        return refuse("the server answers a mechanism that hasn't begun");
    }
    list_must_be_signed_ = true;
    std::iter_swap(candidates_.begin(), chosen_one);
    return feed({});
}

std::vector<std::uint8_t> spnego_initiator::feed(std::span<const std::uint8_t> token) {
    spnego::response_message answer;
    answer.state = neg_state::accept_incomplete;
    answer.token = chosen().next_token(token);
    if (chosen().current_state() == state::refused || answer.token.empty()) {
        return refuse(chosen().reason());
    }
    if (chosen().current_state() == state::complete) {
        stage_ = stage::last_word;
        signed_ = list_must_be_signed_ || chosen().demands_signed_list();
        if (signed_) {
            answer.list_mic = chosen().sign_list(list_);
        }
    }
    return spnego::encode_response(answer);
}

void spnego_initiator::take_last_word(const spnego::response_message& message) {
    if (message.state != neg_state::accept_completed || !message.token.empty()) {
        refuse("the server doesn't end the exchange");
    } else if (signed_ && message.list_mic.empty()) {
        refuse("the server didn't sign the list of mechanisms");
    } else if (!message.list_mic.empty() && !chosen().check_list(list_, message.list_mic)) {
        refuse("the list of mechanisms was changed on its way");
    } else {
        if (signed_) {
            chosen().list_is_signed();
        }
        state_ = state::complete;
    }
}

std::vector<std::uint8_t> spnego_initiator::refuse(const std::string& reason) {
    state_ = state::refused;
    reason_ = reason;
    return {};
}

}  // namespace platform::linux_rpc
