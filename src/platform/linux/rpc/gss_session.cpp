#include "platform/linux/rpc/gss_session.h"

#include <gssapi/gssapi_ext.h>

#include <algorithm>
#include <array>

namespace platform::linux_rpc {

namespace {

/// No kind of key makes longer ones; a peer's may be of another kind than ours.
constexpr std::size_t longest_signature = 256;

gss_iov_buffer_desc piece(OM_uint32 type, std::span<std::uint8_t> bytes) {
    return {type, {bytes.size(), bytes.data()}};
}

/// A PDU in the pieces that the library takes: what is only signed, what is encrypted, and the signature.
class pdu_pieces {
public:
    pdu_pieces(bool with_headers, bool seals, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
               std::span<std::uint8_t> signature) {
        const std::span<std::uint8_t> body = pdu.subspan(body_offset, body_size);
        const OM_uint32 kept = seals ? GSS_IOV_BUFFER_TYPE_SIGN_ONLY : GSS_IOV_BUFFER_TYPE_DATA;
        if (with_headers) {
            add(piece(kept, pdu.first(body_offset)));
        }
        add(piece(GSS_IOV_BUFFER_TYPE_DATA, body));
        if (with_headers) {
            add(piece(kept, pdu.subspan(body_offset + body_size)));
        }
        add(piece(seals ? GSS_IOV_BUFFER_TYPE_HEADER : GSS_IOV_BUFFER_TYPE_MIC_TOKEN, signature));
    }

    [[nodiscard]] gss_iov_buffer_desc* data() { return pieces_.data(); }
    [[nodiscard]] int count() const { return static_cast<int>(count_); }
    [[nodiscard]] std::size_t signature_size() const { return pieces_[count_ - 1].buffer.length; }

private:
    void add(const gss_iov_buffer_desc& added) { pieces_[count_++] = added; }

    std::array<gss_iov_buffer_desc, 4> pieces_{};
    std::size_t count_ = 0;
};

/// An encrypting token of the newer kinds of keys (RFC 4121 4.2.6.2): TOK_ID 05 04, with the bit that says "sealed".
bool is_sealed_token(std::span<const std::uint8_t> signature) {
    constexpr std::size_t header_size = 16;
    constexpr std::uint8_t sealed = 2;
    return signature.size() >= header_size && signature[0] == 5 && signature[1] == 4 && (signature[2] & sealed) != 0;
}

std::string missing_flag(auth_level level, OM_uint32 flags) {
    if ((flags & GSS_C_DCE_STYLE) == 0 || (flags & GSS_C_MUTUAL_FLAG) == 0) {
        return "it doesn't authenticate in the three steps of this protocol";
    }
    if (level < auth_level::packet) {
        return {};
    }
    if ((flags & GSS_C_INTEG_FLAG) == 0) {
        return "it does without integrity";
    }
    if ((flags & GSS_C_SEQUENCE_FLAG) == 0 || (flags & GSS_C_REPLAY_FLAG) == 0) {
        return "it does without sequence numbers";
    }
    return level == auth_level::privacy && (flags & GSS_C_CONF_FLAG) == 0 ? "it does without confidentiality" : std::string();
}

}  // namespace

std::string gss_session::establish(OM_uint32 flags) {
    if (std::string fault = missing_flag(level_, flags); !fault.empty()) {
        return fault;
    }
    if (level_ >= auth_level::packet && !measure_signature()) {
        return "its kind of key can't protect PDUs";
    }
    established_ = true;
    return {};
}

bool gss_session::measure_signature() {
    std::array<std::uint8_t, 64> sample{};
    const bool seals = level_ == auth_level::privacy;
    pdu_pieces pieces(header_signing_, seals, sample, 24, 32, {});
    OM_uint32 minor = 0;
    const OM_uint32 major =
        seals ? gss_wrap_iov_length(&minor, context_.get(), 1, GSS_C_QOP_DEFAULT, nullptr, pieces.data(), pieces.count())
              : gss_get_mic_iov_length(&minor, context_.get(), GSS_C_QOP_DEFAULT, pieces.data(), pieces.count());
    signature_size_ = pieces.signature_size();
    return major == GSS_S_COMPLETE && signature_size_ != 0 && signature_size_ <= longest_signature;
}

void gss_session::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                          std::span<std::uint8_t> signature) {
    const bool seals = level == auth_level::privacy;
    pdu_pieces pieces(header_signing_, seals, pdu, body_offset, body_size, signature);
    OM_uint32 minor = 0;
    int sealed = 0;
    OM_uint32 major = GSS_S_NO_CONTEXT;
    if (established_) {
        major = seals ? gss_wrap_iov(&minor, context_.get(), 1, GSS_C_QOP_DEFAULT, &sealed, pieces.data(), pieces.count())
                      : gss_get_mic_iov(&minor, context_.get(), GSS_C_QOP_DEFAULT, pieces.data(), pieces.count());
    }
    if (major != GSS_S_COMPLETE || (seals && sealed == 0) || pieces.signature_size() != signature.size()) {
        std::ranges::fill(pdu.subspan(body_offset, body_size), std::uint8_t{0});
        std::ranges::fill(signature, std::uint8_t{0});
    }
}

bool gss_session::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                            std::span<const std::uint8_t> signature) {
    const bool seals = level == auth_level::privacy;
    if (!established_ || !plausible(signature, seals)) {
        return false;
    }
    std::array<std::uint8_t, longest_signature> working{};  // parts of it are decrypted in place
    std::ranges::copy(signature, working.begin());
    pdu_pieces pieces(header_signing_, seals, pdu, body_offset, body_size, std::span(working).first(signature.size()));
    OM_uint32 minor = 0;
    int sealed = 0;
    // Supplementary bits of the result tell of repeated and missing messages: nothing but plain success will do.
    const OM_uint32 major = seals ? gss_unwrap_iov(&minor, context_.get(), &sealed, nullptr, pieces.data(), pieces.count())
                                  : gss_verify_mic_iov(&minor, context_.get(), nullptr, pieces.data(), pieces.count());
    return major == GSS_S_COMPLETE && (!seals || sealed != 0);
}

/// The library is only given what has the form of a signature: the size of some others makes it end the process by an assertion.
/// Both sides sign with one key, so that the sizes are equal; encrypting, a peer may choose another filling.
bool gss_session::plausible(std::span<const std::uint8_t> signature, bool seals) const {
    const bool of_own_size = signature.size() == signature_size_;
    return signature.size() <= longest_signature && (seals && !of_own_size ? is_sealed_token(signature) : of_own_size);
}

std::vector<std::uint8_t> gss_session::sign(std::span<const std::uint8_t> text) {
    gss_buffer_desc message = gss::describe(text);
    gss::buffer signature;
    OM_uint32 minor = 0;
    const bool done =
        established_ && gss_get_mic(&minor, context_.get(), GSS_C_QOP_DEFAULT, &message, signature.place()) == GSS_S_COMPLETE;
    return done ? signature.bytes() : std::vector<std::uint8_t>();
}

bool gss_session::check(std::span<const std::uint8_t> text, std::span<const std::uint8_t> signature) {
    gss_buffer_desc message = gss::describe(text);
    gss_buffer_desc token = gss::describe(signature);
    OM_uint32 minor = 0;
    return established_ && gss_verify_mic(&minor, context_.get(), &message, &token, nullptr) == GSS_S_COMPLETE;
}

}  // namespace platform::linux_rpc
