#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace platform::linux_rpc {

/// Authentication levels of the connection-oriented protocol (C706 13.1.2.1, MS-RPCE 2.2.1.1.8).
enum class auth_level : std::uint8_t { none = 1, connect = 2, call = 3, packet = 4, integrity = 5, privacy = 6 };

/// What becomes of a caller after it has proved who it is: rights can be taken away and given while the connection lasts. Callable
/// from any thread: several calls of a connection may be served at a time.
class caller_standing {
public:
    enum class rank : std::uint8_t {
        shut_out,      ///< the caller couldn't prove who it is any more: it counts for nothing, whatever else is known of it
        known,         ///< others decide whether it is an administrator
        administrator  ///< by the mechanism's own word
    };

    virtual ~caller_standing() = default;
    [[nodiscard]] virtual rank now() = 0;
};

/// Who calls, as the mechanism has proved it.
struct client_identity {
    std::string name;            ///< "DOMAIN\user", "user@REALM", or the local user's name
    bool authenticated = false;  ///< false: nothing else means anything
    bool administrator = false;  ///< the mechanism's own word: an account added as administrator
    bool local = false;          ///< came over the local socket; `uid` and `gid` are the kernel's word
    uid_t uid = 0;
    gid_t gid = 0;
    std::string local_account{};  ///< the local user that the mechanism maps a remote caller to, if any: its groups count
    /// Finds `local_account` out, when a call needs it: that may block. Empty: it is known, or there is none to find.
    std::function<std::string()> find_local_account{};
    std::shared_ptr<caller_standing> standing{};  ///< asked at each call, in the place of `administrator`, when it is there
};

/// The acceptor's side of one authentication on one connection, and afterwards the protection of its PDUs. Used by one
/// thread at a time.
class security_context {
public:
    enum class state : std::uint8_t {
        proceed,   ///< `reply` goes to the client, more tokens are to come
        complete,  ///< the client is who `identity()` says; `reply`, if not empty, goes to it
        refused    ///< not let in; the context is dead
    };

    virtual ~security_context() = default;

    /// Takes the next token of the client.
    virtual state accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) = 0;
    [[nodiscard]] virtual const client_identity& identity() const = 0;

    /// Told once, before the first PDU is protected: whether both sides agreed to sign PDU headers too (MS-RPCE 3.3.1.5.2.2).
    /// A mechanism whose signature covers the whole PDU anyway has nothing to do.
    virtual void header_signing(bool agreed) { (void)agreed; }

    /// Bytes of the signature that a PDU ends with which is protected here. A client's own may be of another size.
    [[nodiscard]] virtual std::size_t signature_size() const = 0;

    /// Protects an outgoing PDU. `pdu` is everything in front of the signature, with all length fields final: header, body,
    /// padding, and the 8 bytes in front of the signature (sec_trailer). `body` is the range within it that privacy encrypts
    /// in place: stub data and padding. Writes `signature_size()` bytes to `signature`.
    virtual void protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                         std::span<std::uint8_t> signature) = 0;

    /// Checks an incoming PDU of the same shape, decrypting `body` in place at privacy. False: it was tampered with,
    /// replayed or out of order.
    [[nodiscard]] virtual bool unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset,
                                         std::size_t body_size, std::span<const std::uint8_t> signature) = 0;
};

/// One kind of authentication that the server offers.
class security_provider {
public:
    virtual ~security_provider() = default;
    /// auth_type on the wire: 9, 10 or 16.
    [[nodiscard]] virtual std::uint8_t auth_type() const = 0;
    /// False: what it needs of this machine isn't there, so that it can't be offered. Doesn't change during its life.
    [[nodiscard]] virtual bool ready() const { return true; }
    /// Whether it can serve this level.
    [[nodiscard]] virtual bool supports(auth_level level) const = 0;
    [[nodiscard]] virtual std::unique_ptr<security_context> create(auth_level level) = 0;
};

}  // namespace platform::linux_rpc
