#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>

struct evp_cipher_ctx_st;
struct evp_mac_ctx_st;

namespace platform::linux_rpc {

/// What NTLM computes with (MS-NLMP 3.3, 3.4, 6). Two of the algorithms, MD4 and RC4, live in OpenSSL's legacy provider
/// only, which is loaded together with the default one in a library context of our own: nothing else in the process gets
/// them. A failure of the library throws `std::runtime_error`; the first use of any function tells whether it can be had.

using byte_view = std::span<const std::uint8_t>;
using byte_parts = std::initializer_list<byte_view>;

/// 16 bytes that nobody may find in memory later: wiped when they go.
class secret_key {
public:
    static constexpr std::size_t length = 16;

    secret_key() = default;
    explicit secret_key(std::span<const std::uint8_t, length> bytes);
    secret_key(const secret_key&) = default;
    secret_key& operator=(const secret_key&) = default;
    ~secret_key();

    [[nodiscard]] std::span<const std::uint8_t, length> view() const { return bytes_; }
    [[nodiscard]] std::span<std::uint8_t, length> writable() { return bytes_; }

private:
    std::array<std::uint8_t, length> bytes_{};
};

void wipe(std::span<std::uint8_t> bytes);
void wipe(std::string& text);
void wipe(std::u16string& text);

/// Compares in a time that depends on the sizes alone.
[[nodiscard]] bool equal_constant_time(byte_view left, byte_view right);

/// Bytes from the system's generator.
void random_bytes(std::span<std::uint8_t> bytes);

/// Each digest runs over the parts one behind the other.
[[nodiscard]] secret_key md4(byte_parts parts);
[[nodiscard]] secret_key md5(byte_parts parts);
[[nodiscard]] secret_key hmac_md5(byte_view key, byte_parts parts);

/// HMAC-MD5 under one key many times over, without the key's set-up each time. Used by one thread at a time.
class hmac_md5_under_key {
public:
    explicit hmac_md5_under_key(byte_view key);
    void compute(byte_parts parts, std::span<std::uint8_t, 16> digest);

private:
    struct freer {
        void operator()(evp_mac_ctx_st* context) const;
    };
    std::unique_ptr<evp_mac_ctx_st, freer> context_;
};

/// An RC4 key stream that goes on from call to call.
class rc4_stream {
public:
    explicit rc4_stream(std::span<const std::uint8_t, 16> key);
    /// Encrypts or decrypts in place.
    void apply(std::span<std::uint8_t> bytes);

private:
    struct freer {
        void operator()(evp_cipher_ctx_st* context) const;
    };
    std::unique_ptr<evp_cipher_ctx_st, freer> context_;
};

/// MD4 of the password's UTF-16LE form: what the accounts file keeps, and as good as the password to whoever reads it.
[[nodiscard]] secret_key nt_hash(std::u16string_view password);

/// The key that answers challenges: of the hash, the user's name in upper case and the domain as it was sent.
[[nodiscard]] secret_key ntlm_v2_key(const secret_key& hash, std::u16string_view user, std::u16string_view domain);

}  // namespace platform::linux_rpc
