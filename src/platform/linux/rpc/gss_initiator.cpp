#include "platform/linux/rpc/gss_initiator.h"

#include <gssapi/gssapi_ext.h>
#include <gssapi/gssapi_krb5.h>

#include "platform/rpc_runtime.h"

namespace platform::linux_rpc {

namespace {

constexpr OM_uint32 wanted_flags =
    GSS_C_DCE_STYLE | GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_INTEG_FLAG | GSS_C_CONF_FLAG;

}  // namespace

gss_initiator::gss_initiator(std::string service, auth_level level) : service_(std::move(service)), session_(level) {}

std::uint8_t gss_initiator::auth_type() const {
    return rpc_authn::kerberos;
}

/// A service without a realm is named by its host: the system's Kerberos then finds the realm out.
std::string gss_initiator::import_service() {
    std::string text = service_;
    const std::size_t separator = text.find('/');
    const bool by_host = text.find('@') == std::string::npos && separator != std::string::npos;
    if (by_host) {
        text[separator] = '@';
    }
    gss_buffer_desc described = gss::describe(text);
    OM_uint32 minor = 0;
    const OM_uint32 major =
        gss_import_name(&minor, &described, by_host ? GSS_C_NT_HOSTBASED_SERVICE : const_cast<gss_OID>(GSS_KRB5_NT_PRINCIPAL_NAME),
                        target_.place());
    return GSS_ERROR(major) ? gss::failure_text(major, minor) : std::string();
}

std::vector<std::uint8_t> gss_initiator::next_token(std::span<const std::uint8_t> server_token) {
    const bool first = !target_;
    if (state_ != state::proceed || first != server_token.empty()) {
        return refuse("a token came when none was due");
    }
    if (first) {
        if (const std::string fault = import_service(); !fault.empty()) {
            return refuse(fault);
        }
    }
    gss_buffer_desc input = gss::describe(server_token);
    gss::buffer output;
    OM_uint32 minor = 0;
    OM_uint32 flags = 0;
    const OM_uint32 major = gss_init_sec_context(&minor, GSS_C_NO_CREDENTIAL, session_.context(), target_.get(), gss::kerberos(),
                                                 wanted_flags, GSS_C_INDEFINITE, GSS_C_NO_CHANNEL_BINDINGS,
                                                 first ? GSS_C_NO_BUFFER : &input, nullptr, output.place(), &flags, nullptr);
    if (GSS_ERROR(major)) {
        return refuse(gss::failure_text(major, minor));
    }
    if (((major & GSS_S_CONTINUE_NEEDED) != 0) != first) {
        return refuse("the server doesn't authenticate in the three steps of this protocol");
    }
    if (!first) {
        if (const std::string fault = session_.establish(flags); !fault.empty()) {
            return refuse(fault);
        }
        state_ = state::complete;
    }
    return output.bytes();
}

void gss_initiator::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                            std::span<std::uint8_t> signature) {
    session_.protect(level, pdu, body_offset, body_size, signature);
}

bool gss_initiator::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                              std::span<const std::uint8_t> signature) {
    return session_.unprotect(level, pdu, body_offset, body_size, signature);
}

std::vector<std::uint8_t> gss_initiator::refuse(const std::string& reason) {
    state_ = state::refused;
    reason_ = reason;
    return {};
}

}  // namespace platform::linux_rpc
