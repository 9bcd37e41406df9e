#include "platform/linux/rpc/gss_support.h"

#include <gssapi/gssapi_krb5.h>

#include <algorithm>
#include <system_error>

namespace platform::linux_rpc::gss {

namespace {

void add_messages(std::string& text, OM_uint32 status, int kind) {
    OM_uint32 more = 0;
    do {
        OM_uint32 minor = 0;
        buffer message;
        if (gss_display_status(&minor, status, kind, kerberos(), &more, message.place()) != GSS_S_COMPLETE) {
            return;
        }
        text += (text.empty() ? "" : ", ") + message.text();
    } while (more != 0);
}

}  // namespace

gss_buffer_desc describe(std::span<const std::uint8_t> bytes) {
    // The library's type knows no constant bytes; what takes a described input leaves it alone.
    return {bytes.size(), const_cast<std::uint8_t*>(bytes.data())};
}

gss_buffer_desc describe(std::string_view text) {
    return {text.size(), const_cast<char*>(text.data())};
}

gss_OID kerberos() {
    return const_cast<gss_OID>(gss_mech_krb5);
}

std::string failure_text(OM_uint32 major, OM_uint32 minor) {
    std::string text;
    // The mechanism's own words tell more; the general ones only say that it has some. Some refusals come with a code that only
    // says that nothing else has failed.
    if (minor != 0) {
        add_messages(text, minor, GSS_C_MECH_CODE);
        if (text == std::generic_category().message(0)) {
            text.clear();
        }
    }
    if (text.empty()) {
        add_messages(text, major, GSS_C_GSS_CODE);
    }
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    while (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

}  // namespace platform::linux_rpc::gss
