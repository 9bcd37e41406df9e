#include "console/connection.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string_view>
#include <utility>

#include "console/call_codec.h"
#include "foundation/text/conversion.h"
#include "foundation/winxml/xml.h"
#include "platform/linux/rpc/gss_initiator.h"
#include "platform/linux/rpc/ntlm_initiator.h"
#include "platform/linux/rpc/rpc_client.h"
#include "platform/linux/rpc/spnego_initiator.h"

namespace console {

namespace {

using platform::linux_rpc::auth_level;
using platform::linux_rpc::client_security;
using platform::linux_rpc::gss_initiator;
using platform::linux_rpc::ntlm_credentials;
using platform::linux_rpc::ntlm_initiator;
using platform::linux_rpc::rpc_client;
using platform::linux_rpc::rpc_client_error;
using platform::linux_rpc::spnego_initiator;

constexpr std::chrono::seconds connect_time_out{15};
constexpr std::uint16_t do_rpc_operation = 0;
constexpr std::uint32_t access_denied_fault = 5;
constexpr std::uint32_t no_memory_fault = 0x1C00001B;
constexpr std::uint32_t too_busy_fault = 0x1C010014;
constexpr auth_level protection = auth_level::privacy;

platform::linux_rpc::syntax_id tape_interface() {
    return {platform::linux_rpc::uuid_from_text("d1c2c07a-d989-48cc-a423-b73ecd518d40"), 1, 0};
}

std::string with_full_stop(const std::string& sentence) {
    return sentence.ends_with('.') ? sentence : sentence + ".";
}

failure failure_of_fault(std::uint32_t status) {
    switch (status) {
        case access_denied_fault:
            return {exit_code::not_let_in, "The server does not let this user in: access is denied."};
        case too_busy_fault:
            return {exit_code::call_failed,
                    "The server has too many calls in progress. This one was not carried out: try again later."};
        case no_memory_fault:
            return {exit_code::call_failed, "The server has no memory for this call, which was not carried out."};
        default: {
            std::array<char, 64> text{};
            std::snprintf(text.data(), text.size(), "The server refused the call: fault 0x%X.", status);
            return {exit_code::bad_answer, text.data()};
        }
    }
}

/// While there is no connection yet, no call can have been carried out.
failure failure_to_connect(const rpc_client_error& e) {
    switch (e.what_kind()) {
        case rpc_client_error::kind::rejected:
            return {exit_code::not_let_in,
                    "The server does not let this user in: " + with_full_stop(e.what()) + " The server's log says why."};
        case rpc_client_error::kind::unable:
            return {exit_code::not_let_in, with_full_stop(e.what()) + " An account of the server itself is named by --user."};
        case rpc_client_error::kind::fault:
            return failure_of_fault(e.status());
        case rpc_client_error::kind::connect_failed:
            return {exit_code::not_connected, "The server can't be reached: " + with_full_stop(e.what())};
        default:
            return {exit_code::not_connected, with_full_stop(e.what())};
    }
}

failure failure_of_call(const rpc_client_error& e) {
    if (e.what_kind() == rpc_client_error::kind::lost || e.what_kind() == rpc_client_error::kind::timed_out) {
        return {exit_code::not_connected, with_full_stop(e.what()) + " Whether the call was carried out is not known."};
    }
    return failure_to_connect(e);
}

/// A user's name and password are NTLM's; without them Kerberos takes the tickets that are there.
std::unique_ptr<client_security> security_of(const connection_options& options) {
    const bool kerberos = options.user.empty();
    if (options.authentication == (kerberos ? "ntlm" : "kerberos")) {
        throw failure(exit_code::usage,
                      kerberos ? "NTLM needs a user." : "Kerberos takes no user here, but the tickets that kinit has got.");
    }
    std::vector<spnego_initiator::candidate> candidates;
    if (kerberos) {
        auto mechanism =
            std::make_unique<gss_initiator>(options.service.empty() ? "TarnoTapeSvc/" + options.host : options.service, protection);
        if (options.authentication == "kerberos") {
            return mechanism;
        }
        candidates.push_back(spnego_initiator::kerberos(std::move(mechanism)));
    } else {
        auto mechanism = std::make_unique<ntlm_initiator>(ntlm_credentials::of(options.user, options.password));
        if (options.authentication == "ntlm") {
            return mechanism;
        }
        candidates.push_back(spnego_initiator::ntlm(std::move(mechanism)));
    }
    return std::make_unique<spnego_initiator>(std::move(candidates));
}

class rpc_connection : public connection {
public:
    rpc_connection(rpc_client client, std::int64_t timeout_seconds)
        : client_(std::move(client)), time_out_(std::chrono::seconds(timeout_seconds)) {}

    std::string call(const std::string& procedure, const argument_list& arguments) override {
        std::vector<std::uint8_t> request;
        try {
            request = encode_call(text::utf8_to_wide(procedure), text::utf8_to_wide(input_xml(arguments)));
        } catch (const std::exception& e) {
            throw failure(exit_code::usage, std::string("The arguments can't be sent: ") + e.what());
        }
        std::vector<std::uint8_t> reply;
        try {
            reply = client_.call(do_rpc_operation, request, time_out_);
        } catch (const rpc_client_error& e) {
            throw failure_of_call(e);
        }
        const std::optional<call_answer> answer = decode_answer(reply);
        if (!answer) {
            throw failure(exit_code::bad_answer, "The server's answer can't be understood.");
        }
        if (!answer->success) {
            throw failure_told(text::wide_to_utf8(answer->error_message.value_or(u"")));
        }
        return text::wide_to_utf8(answer->output.value_or(u""));
    }

private:
    rpc_client client_;
    std::chrono::milliseconds time_out_;
};

}  // namespace

failure failure_told(const std::string& text) {
    constexpr std::array<std::string_view, 2> refusals = {"RPC client is not a member of built-in Administrators group.",
                                                          "Auth context not available"};
    if (std::any_of(refusals.begin(), refusals.end(), [&](std::string_view refusal) { return text.find(refusal) != text.npos; })) {
        return {exit_code::not_let_in, text};
    }
    if (text.find("isn't current owner. You have to change current owner") != text.npos) {
        return {exit_code::call_failed, text +
                                            "\n'tarnoctl owner' shows the owner. Act for it by --owner or $TARNO_OWNER, or make "
                                            "another one the owner by 'tarnoctl owner NAME'."};
    }
    return {exit_code::call_failed, text.empty() ? "The call failed, and the server doesn't say why." : text};
}

std::string input_xml(const argument_list& arguments) {
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "InputArguments");
    for (const auto& [name, value] : arguments) {
        winxml::set_attribute(winxml::add_element(root, name), "value", value);
    }
    return winxml::serialize_xml(document);
}

std::unique_ptr<connection> open_connection(const connection_options& options) {
    try {
        std::unique_ptr<client_security> security = options.host.empty() ? nullptr : security_of(options);
        rpc_client client = options.host.empty() ? rpc_client::connect_local(options.socket, connect_time_out)
                                                 : rpc_client::connect_tcp(options.host, options.port, connect_time_out);
        if (options.host.empty()) {
            client.bind(tape_interface(), connect_time_out);
        } else {
            client.bind(tape_interface(), connect_time_out, std::move(security), protection);
        }
        return std::make_unique<rpc_connection>(std::move(client), options.timeout_seconds);
    } catch (const rpc_client_error& e) {
        throw failure_to_connect(e);
    } catch (const std::invalid_argument& e) {
        throw failure(exit_code::usage, std::string("The user can't be used: ") + e.what());
    }
}

}  // namespace console
