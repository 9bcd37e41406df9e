#include "platform/linux/rpc/gss_acceptor.h"

#include <gssapi/gssapi_ext.h>
#include <gssapi/gssapi_krb5.h>

#include <algorithm>
#include <array>

#include "platform/linux/rpc/spnego_der.h"

namespace platform::linux_rpc {

namespace {

constexpr std::uint8_t ap_request_tag = 0x6E;  // [APPLICATION 14]
constexpr std::uint8_t ap_reply_tag = 0x6F;    // [APPLICATION 15]
constexpr std::array<std::uint8_t, 2> ap_request_id{1, 0};

/// The AP-REQ within a token: in the form of DCE/RPC it comes bare, but some clients frame it as elsewhere (RFC 4121 4.1). Empty
/// when there is none.
std::span<const std::uint8_t> bare_request(std::span<const std::uint8_t> token) {
    if (!token.empty() && token[0] == der::tag::application) {
        der::reader outside(token);
        const auto framed = outside.take(der::tag::application);
        der::reader inside(framed);
        const auto mechanism = inside.take(der::tag::object_identifier);
        if (!outside.finished() || inside.failed() || !std::ranges::equal(mechanism, spnego::mechanism::kerberos)) {
            return {};
        }
        token = framed.subspan(2 + mechanism.size());
        if (token.size() < ap_request_id.size() || !std::ranges::equal(token.first(ap_request_id.size()), ap_request_id)) {
            return {};
        }
        token = token.subspan(ap_request_id.size());
    }
    // Nothing else may get through: by its first bytes the library would choose among all mechanisms that are installed.
    return !token.empty() && token[0] == ap_request_tag ? token : std::span<const std::uint8_t>();
}

}  // namespace

std::string local_account_of(const std::string& principal) {
    gss_buffer_desc text = gss::describe(principal);
    gss::name name;
    gss::buffer account;
    OM_uint32 minor = 0;
    if (gss_import_name(&minor, &text, const_cast<gss_OID>(GSS_KRB5_NT_PRINCIPAL_NAME), name.place()) != GSS_S_COMPLETE ||
        gss_localname(&minor, name.get(), gss::kerberos(), account.place()) != GSS_S_COMPLETE) {
        return {};
    }
    std::string found = account.text();
    return found.find('\0') == std::string::npos ? found : std::string();
}

gss_acceptor::gss_acceptor(std::shared_ptr<const gss_acceptor_settings> settings, auth_level level)
    : settings_(std::move(settings)), session_(level) {}

security_context::state gss_acceptor::accept(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    reply.clear();
    std::string reason;
    switch (stage_) {
        case stage::request:
            token = bare_request(token);
            reason = token.empty() ? "its first token is no Kerberos AP-REQ" : take(token, reply);
            break;
        case stage::confirmation:
            reason = token.empty() || token[0] != ap_reply_tag ? "its second token is no Kerberos AP-REP" : take(token, reply);
            break;
        default:
            reason = "a token came when none was due";
    }
    if (!reason.empty()) {
        return refuse(reason);
    }
    return stage_ == stage::complete ? state::complete : state::proceed;
}

std::string gss_acceptor::take(std::span<const std::uint8_t> token, std::vector<std::uint8_t>& reply) {
    gss_buffer_desc input = gss::describe(token);
    gss::buffer output;
    OM_uint32 minor = 0;
    OM_uint32 flags = 0;
    const OM_uint32 major =
        gss_accept_sec_context(&minor, session_.context(), settings_->credential.get(), &input, GSS_C_NO_CHANNEL_BINDINGS, nullptr,
                               nullptr, output.place(), &flags, nullptr, nullptr);
    if (GSS_ERROR(major)) {
        return gss::failure_text(major, minor);
    }
    const bool more = (major & GSS_S_CONTINUE_NEEDED) != 0;
    if (more != (stage_ == stage::request)) {
        return "it doesn't authenticate in the three steps of this protocol";
    }
    reply = output.bytes();
    if (more) {
        stage_ = stage::confirmation;
        return {};
    }
    return establish(flags);
}

std::string gss_acceptor::establish(OM_uint32 flags) {
    gss::name client;
    gss::buffer name;
    OM_uint32 minor = 0;
    OM_uint32 major =
        gss_inquire_context(&minor, *session_.context(), client.place(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    if (major == GSS_S_COMPLETE) {
        major = gss_display_name(&minor, client.get(), name.place(), nullptr);
    }
    if (major != GSS_S_COMPLETE) {
        return gss::failure_text(major, minor);
    }
    identity_.name = name.text();
    if ((flags & GSS_C_ANON_FLAG) != 0) {
        return "it is anonymous";
    }
    if (std::string fault = session_.establish(flags); !fault.empty()) {
        return fault;
    }
    identity_.find_local_account = [principal = identity_.name] { return local_account_of(principal); };
    identity_.authenticated = true;
    stage_ = stage::complete;
    return {};
}

void gss_acceptor::protect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                           std::span<std::uint8_t> signature) {
    session_.protect(level, pdu, body_offset, body_size, signature);
}

bool gss_acceptor::unprotect(auth_level level, std::span<std::uint8_t> pdu, std::size_t body_offset, std::size_t body_size,
                             std::span<const std::uint8_t> signature) {
    return session_.unprotect(level, pdu, body_offset, body_size, signature);
}

security_context::state gss_acceptor::refuse(const std::string& reason) {
    stage_ = stage::dead;
    if (settings_->report) {
        const std::string who = identity_.name.empty() ? "an unnamed client" : "[" + identity_.name + "]";
        settings_->report("Kerberos authentication of " + who + " was refused: " + reason + ".");
    }
    identity_ = client_identity();
    return state::refused;
}

}  // namespace platform::linux_rpc
