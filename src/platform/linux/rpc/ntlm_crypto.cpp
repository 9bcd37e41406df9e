#include "platform/linux/rpc/ntlm_crypto.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/provider.h>
#include <openssl/rand.h>

#include <algorithm>
#include <stdexcept>

#include "platform/linux/rpc/unicode.h"

namespace platform::linux_rpc {

namespace {

void require(bool done, const char* what) {
    if (!done) {
        ERR_clear_error();
        throw std::runtime_error(std::string("NTLM needs ") + what + ", which the installed OpenSSL does not give.");
    }
}

/// The private library context with the algorithms fetched once. Lives as long as the process: threads may still compute
/// while it ends.
struct algorithms {
    OSSL_LIB_CTX* context = OSSL_LIB_CTX_new();
    EVP_MD* md4 = nullptr;
    EVP_MD* md5 = nullptr;
    EVP_CIPHER* rc4 = nullptr;
    EVP_MAC* hmac = nullptr;

    algorithms() {
        require(context != nullptr, "a library context");
        require(OSSL_PROVIDER_load(context, "default") != nullptr, "the default provider");
        require(OSSL_PROVIDER_load(context, "legacy") != nullptr, "the legacy provider");
        md4 = EVP_MD_fetch(context, "MD4", nullptr);
        md5 = EVP_MD_fetch(context, "MD5", nullptr);
        rc4 = EVP_CIPHER_fetch(context, "RC4", nullptr);
        hmac = EVP_MAC_fetch(context, "HMAC", nullptr);
        require(md4 != nullptr, "MD4");
        require(md5 != nullptr, "MD5");
        require(rc4 != nullptr, "RC4");
        require(hmac != nullptr, "HMAC");
    }
};

const algorithms& library() {
    static const algorithms* const loaded = new algorithms;
    return *loaded;
}

struct digest_context_freer {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

secret_key digest(const EVP_MD* algorithm, byte_parts parts) {
    const std::unique_ptr<EVP_MD_CTX, digest_context_freer> context(EVP_MD_CTX_new());
    require(context != nullptr && EVP_DigestInit_ex2(context.get(), algorithm, nullptr) == 1, "a digest");
    for (const byte_view part : parts) {
        require(EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1, "a digest");
    }
    secret_key result;
    unsigned int size = 0;
    require(EVP_DigestFinal_ex(context.get(), result.writable().data(), &size) == 1 && size == secret_key::length, "a digest");
    return result;
}

}  // namespace

secret_key::secret_key(std::span<const std::uint8_t, length> bytes) {
    std::copy(bytes.begin(), bytes.end(), bytes_.begin());
}

secret_key::~secret_key() {
    wipe(bytes_);
}

void wipe(std::span<std::uint8_t> bytes) {
    OPENSSL_cleanse(bytes.data(), bytes.size());
}

void wipe(std::string& text) {
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

void wipe(std::u16string& text) {
    OPENSSL_cleanse(text.data(), text.size() * sizeof(char16_t));
    text.clear();
}

bool equal_constant_time(byte_view left, byte_view right) {
    return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

void random_bytes(std::span<std::uint8_t> bytes) {
    require(RAND_bytes_ex(library().context, bytes.data(), bytes.size(), 0) == 1, "random bytes");
}

secret_key md4(byte_parts parts) {
    return digest(library().md4, parts);
}

secret_key md5(byte_parts parts) {
    return digest(library().md5, parts);
}

secret_key hmac_md5(byte_view key, byte_parts parts) {
    secret_key result;
    hmac_md5_under_key(key).compute(parts, result.writable());
    return result;
}

void hmac_md5_under_key::freer::operator()(evp_mac_ctx_st* context) const {
    EVP_MAC_CTX_free(context);
}

hmac_md5_under_key::hmac_md5_under_key(byte_view key) : context_(EVP_MAC_CTX_new(library().hmac)) {
    char name[] = "MD5";
    const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, name, 0), OSSL_PARAM_construct_end()};
    require(context_ != nullptr && EVP_MAC_init(context_.get(), key.data(), key.size(), parameters) == 1, "HMAC-MD5");
}

void hmac_md5_under_key::compute(byte_parts parts, std::span<std::uint8_t, 16> digest) {
    require(EVP_MAC_init(context_.get(), nullptr, 0, nullptr) == 1, "HMAC-MD5");
    for (const byte_view part : parts) {
        require(EVP_MAC_update(context_.get(), part.data(), part.size()) == 1, "HMAC-MD5");
    }
    std::size_t size = 0;
    require(EVP_MAC_final(context_.get(), digest.data(), &size, digest.size()) == 1 && size == digest.size(), "HMAC-MD5");
}

void rc4_stream::freer::operator()(evp_cipher_ctx_st* context) const {
    EVP_CIPHER_CTX_free(context);
}

rc4_stream::rc4_stream(std::span<const std::uint8_t, 16> key) : context_(EVP_CIPHER_CTX_new()) {
    require(context_ != nullptr && EVP_EncryptInit_ex2(context_.get(), library().rc4, key.data(), nullptr, nullptr) == 1, "RC4");
}

void rc4_stream::apply(std::span<std::uint8_t> bytes) {
    constexpr std::size_t portion = 1U << 30;
    for (std::size_t at = 0; at < bytes.size(); at += portion) {
        const std::size_t size = std::min(portion, bytes.size() - at);
        int written = 0;
        require(EVP_EncryptUpdate(context_.get(), bytes.data() + at, &written, bytes.data() + at, static_cast<int>(size)) == 1,
                "RC4");
    }
}

secret_key nt_hash(std::u16string_view password) {
    std::vector<std::uint8_t> bytes = to_utf16le(password);
    secret_key hash = md4({bytes});
    wipe(bytes);
    return hash;
}

secret_key ntlm_v2_key(const secret_key& hash, std::u16string_view user, std::u16string_view domain) {
    return hmac_md5(hash.view(), {to_utf16le(upper_case(user)), to_utf16le(domain)});
}

}  // namespace platform::linux_rpc
