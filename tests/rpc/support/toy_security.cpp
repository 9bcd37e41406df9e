#include "rpc/support/toy_security.h"

#include <algorithm>
#include <array>
#include <string>

namespace rpc_test {

using namespace platform::linux_rpc;

namespace {

using signature_bytes = std::array<std::uint8_t, 16>;

signature_bytes sign(std::span<const std::uint8_t> pdu, std::uint64_t number) {
    std::uint64_t sum = 14695981039346656037ULL + number;
    for (const std::uint8_t byte : pdu) {
        sum = (sum ^ byte) * 1099511628211ULL;
    }
    signature_bytes made{};
    for (std::size_t i = 0; i < 8; ++i) {
        made[i] = static_cast<std::uint8_t>(sum >> (8 * i));
        made[8 + i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
    return made;
}

void turn_around(std::span<std::uint8_t> body) {
    std::transform(body.begin(), body.end(), body.begin(), [](std::uint8_t byte) { return static_cast<std::uint8_t>(~byte); });
}

bool same(std::span<const std::uint8_t> token, const std::string& text) {
    return std::equal(token.begin(), token.end(), text.begin(), text.end());
}

class toy_context final : public security_context {
public:
    state accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) override {
        if (!greeted_ && same(token, "hello")) {
            greeted_ = true;
            const std::string challenge = "challenge";
            reply.assign(challenge.begin(), challenge.end());
            return state::proceed;
        }
        if (!greeted_ || !same(token, "secret")) {
            return state::refused;
        }
        identity_.authenticated = true;
        identity_.name = "TOY\\user";
        return state::complete;
    }
    const client_identity& identity() const override { return identity_; }
    std::size_t signature_size() const override { return 16; }
    void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                 std::span<std::uint8_t> signature) override {
        signer_.protect(level, pdu, offset, size, signature);
    }
    bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                   std::span<const std::uint8_t> signature) override {
        return signer_.unprotect(level, pdu, offset, size, signature);
    }

private:
    bool greeted_ = false;
    client_identity identity_;
    toy_signer signer_;
};

}  // namespace

void toy_signer::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                         std::span<std::uint8_t> signature) {
    const signature_bytes made = sign(pdu, sent_++);
    std::copy(made.begin(), made.end(), signature.begin());
    if (level == auth_level::privacy) {
        turn_around(pdu.subspan(offset, size));
    }
}

bool toy_signer::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                           std::span<const std::uint8_t> signature) {
    if (level == auth_level::privacy) {
        turn_around(pdu.subspan(offset, size));
    }
    const signature_bytes made = sign(pdu, received_++);
    return std::equal(made.begin(), made.end(), signature.begin(), signature.end());
}

std::unique_ptr<security_context> toy_provider::create(auth_level) {
    return std::make_unique<toy_context>();
}

std::vector<std::uint8_t> toy_client::next_token(std::span<const std::uint8_t> server_token) {
    std::string token = "hello";
    if (!server_token.empty()) {
        state_ = same(server_token, "challenge") ? state::complete : state::refused;
        token = secret_;
    }
    return {token.begin(), token.end()};
}

}  // namespace rpc_test
