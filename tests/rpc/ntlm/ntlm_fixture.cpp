#include "rpc/ntlm/ntlm_fixture.h"

#include "platform/linux/rpc/little_endian.h"

namespace ntlm_testing {

namespace rpc = platform::linux_rpc;

bytes from_hex(std::string_view digits) {
    bytes decoded;
    int pending = -1;
    for (const char digit : digits) {
        if (digit == ' ' || digit == '\n') {
            continue;
        }
        const int value = digit <= '9' ? digit - '0' : digit - 'a' + 10;
        if (pending < 0) {
            pending = value;
        } else {
            decoded.push_back(static_cast<std::uint8_t>(pending * 16 + value));
            pending = -1;
        }
    }
    return decoded;
}

std::string to_hex(std::span<const std::uint8_t> data) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : data) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 0xF]);
    }
    return text;
}

void table_source::add(const std::string& name, std::u16string_view password, bool administrator, bool disabled) {
    rpc::account added;
    added.name = name;
    added.hash = rpc::nt_hash(password);
    added.administrator = administrator;
    added.disabled = disabled;
    table_.put(added);
}

std::optional<rpc::account> table_source::find(std::u16string_view name) {
    const rpc::account* const found = table_.find(name);
    return found == nullptr ? std::nullopt : std::optional(*found);
}

rpc::ntlm_environment scripted_environment(std::vector<bytes> blocks, std::uint64_t now) {
    const auto next = std::make_shared<std::size_t>(0);
    const auto random = [blocks = std::move(blocks), next](std::span<std::uint8_t> wanted) {
        const bytes& block = blocks.at((*next)++);
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            wanted[i] = block[i % block.size()];
        }
    };
    return {random, [now] { return now; }};
}

rpc::ntlm_acceptor server::acceptor() const {
    const auto settings = std::make_shared<rpc::ntlm_acceptor_settings>();
    settings->names = rpc::ntlm_host_names::of("server.example.com");
    settings->accounts = accounts;
    settings->environment = environment;
    settings->report = [kept = reports](const std::string& sentence) { kept->push_back(sentence); };
    return rpc::ntlm_acceptor(settings);
}

const std::string_view sample_challenge =
    "4e544c4d53535000 02000000 0c000c00 38000000 33828ae2 0123456789abcdef 0000000000000000 24002400 44000000"
    "060070170000000f 530065007200760065007200"
    "02000c00 44006f006d00610069006e00 01000c00 530065007200760065007200 00000000";

const std::string_view sample_authenticate =
    "4e544c4d53535000 03000000 18001800 6c000000 54005400 84000000 0c000c00 48000000 08000800 54000000 10001000 5c000000"
    "10001000 d8000000 358288e2 0501280a0000000f"
    "44006f006d00610069006e00 5500730065007200 43004f004d0050005500540045005200"
    "86c35097ac9cec102554764a57cccc19aaaaaaaaaaaaaaaa"
    "68cd0ab851e51c96aabc927bebef6a1c 0101000000000000 0000000000000000 aaaaaaaaaaaaaaaa 00000000"
    "02000c00 44006f006d00610069006e00 01000c00 530065007200760065007200 00000000 00000000"
    "c5dad2544fc9799094ce1ce90bc9d03e";

bytes short_negotiate(std::uint32_t flags) {
    bytes message = from_hex("4e544c4d53535000 01000000 00000000 0000000000000000 0000000000000000");
    rpc::store_le32(message, 12, flags);
    return message;
}

}  // namespace ntlm_testing
