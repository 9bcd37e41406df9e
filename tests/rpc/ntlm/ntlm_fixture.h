#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/rpc/ntlm_acceptor.h"
#include "platform/linux/rpc/ntlm_initiator.h"

namespace ntlm_testing {

using bytes = std::vector<std::uint8_t>;

/// Bytes from hexadecimal digits; blanks don't count.
bytes from_hex(std::string_view digits);
std::string to_hex(std::span<const std::uint8_t> data);

/// Accounts in memory.
class table_source : public platform::linux_rpc::account_source {
public:
    void add(const std::string& name, std::u16string_view password, bool administrator = false, bool disabled = false);
    std::optional<platform::linux_rpc::account> find(std::u16string_view name) override;

private:
    platform::linux_rpc::account_table table_;
};

/// A generator whose bytes are known: each request gets the next of the given blocks, repeated to the size asked for.
platform::linux_rpc::ntlm_environment scripted_environment(std::vector<bytes> blocks, std::uint64_t now = 0);

/// A server's settings with its accounts and the sentences that it reported.
struct server {
    std::shared_ptr<table_source> accounts = std::make_shared<table_source>();
    std::shared_ptr<std::vector<std::string>> reports = std::make_shared<std::vector<std::string>>();
    platform::linux_rpc::ntlm_environment environment = platform::linux_rpc::ntlm_environment::of_system();

    [[nodiscard]] platform::linux_rpc::ntlm_acceptor acceptor() const;
};

/// Parts of the sample exchange of MS-NLMP 4.2: user "User", domain "Domain", password "Password", server "Server".
extern const std::string_view sample_challenge;
extern const std::string_view sample_authenticate;

/// A NEGOTIATE without names and version, as small clients send it.
bytes short_negotiate(std::uint32_t flags);
inline constexpr std::uint32_t usual_flags = 0xE2088235;

}  // namespace ntlm_testing
