#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/linux/rpc/client_security.h"
#include "platform/linux/rpc/security_context.h"

namespace rpc_test {

/// An authentication that proves nothing, for tests of the protocol around it: the client says "hello", the server
/// "challenge", the client "secret" (anything else is refused). Signatures are 16 bytes made of a running number and all
/// bytes in front of them; privacy turns every bit of the body around.
class toy_signer {
public:
    void protect(platform::linux_rpc::auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                 std::span<std::uint8_t> signature);
    bool unprotect(platform::linux_rpc::auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                   std::span<const std::uint8_t> signature);

private:
    std::uint64_t sent_ = 0;
    std::uint64_t received_ = 0;
};

class toy_provider final : public platform::linux_rpc::security_provider {
public:
    explicit toy_provider(std::uint8_t type = 10) : type_(type) {}
    std::uint8_t auth_type() const override { return type_; }
    bool supports(platform::linux_rpc::auth_level level) const override { return level != refused_level; }
    std::unique_ptr<platform::linux_rpc::security_context> create(platform::linux_rpc::auth_level level) override;

    platform::linux_rpc::auth_level refused_level = platform::linux_rpc::auth_level::none;

private:
    std::uint8_t type_;
};

class toy_client final : public platform::linux_rpc::client_security {
public:
    explicit toy_client(std::string secret = "secret", bool by_alter_context = false)
        : secret_(std::move(secret)), by_alter_context_(by_alter_context) {}
    std::uint8_t auth_type() const override { return 10; }
    std::vector<std::uint8_t> next_token(std::span<const std::uint8_t> server_token) override;
    state current_state() const override { return state_; }
    bool ends_by_alter_context() const override { return by_alter_context_; }
    std::size_t signature_size() const override { return 16; }
    void protect(platform::linux_rpc::auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                 std::span<std::uint8_t> signature) override {
        signer_.protect(level, pdu, offset, size, signature);
    }
    bool unprotect(platform::linux_rpc::auth_level level, std::span<std::uint8_t> pdu, std::size_t offset, std::size_t size,
                   std::span<const std::uint8_t> signature) override {
        return signer_.unprotect(level, pdu, offset, size, signature);
    }

private:
    std::string secret_;
    bool by_alter_context_;
    state state_ = state::proceed;
    toy_signer signer_;
};

}  // namespace rpc_test
