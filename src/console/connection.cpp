#include "console/connection.h"

#include <array>
#include <chrono>
#include <memory>
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
constexpr auth_level protection = auth_level::privacy;

platform::linux_rpc::syntax_id tape_interface() {
    return {platform::linux_rpc::uuid_from_text("d1c2c07a-d989-48cc-a423-b73ecd518d40"), 1, 0};
}

failure failure_of(const rpc_client_error& e) {
    switch (e.what_kind()) {
        case rpc_client_error::kind::rejected:
            return {exit_code::not_let_in, std::string("The server does not let this user in: ") + e.what()};
        case rpc_client_error::kind::unable:
            return {exit_code::not_let_in, e.what()};
        case rpc_client_error::kind::fault:
            return {e.status() == access_denied_fault ? exit_code::not_let_in : exit_code::bad_answer,
                    e.status() == access_denied_fault ? "The server does not let this user in: access is denied." : e.what()};
        case rpc_client_error::kind::connect_failed:
            return {exit_code::not_connected, std::string("The server can't be reached: ") + e.what()};
        default:
            return {exit_code::not_connected, std::string("The connection to the server was lost: ") + e.what() +
                                                  ". Whether the call was carried out is not known."};
    }
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
            throw failure_of(e);
        }
        const std::optional<call_answer> answer = decode_answer(reply);
        if (!answer) {
            throw failure(exit_code::bad_answer, "The server's answer can't be understood.");
        }
        if (!answer->success) {
            throw failure(exit_code::call_failed, text::wide_to_utf8(answer->error_message.value_or(u"")));
        }
        return text::wide_to_utf8(answer->output.value_or(u""));
    }

private:
    rpc_client client_;
    std::chrono::milliseconds time_out_;
};

}  // namespace

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
        rpc_client client = options.host.empty() ? rpc_client::connect_local(options.socket, connect_time_out)
                                                 : rpc_client::connect_tcp(options.host, options.port, connect_time_out);
        if (options.host.empty()) {
            client.bind(tape_interface(), connect_time_out);
        } else {
            client.bind(tape_interface(), connect_time_out, security_of(options), protection);
        }
        return std::make_unique<rpc_connection>(std::move(client), options.timeout_seconds);
    } catch (const rpc_client_error& e) {
        throw failure_of(e);
    } catch (const std::invalid_argument& e) {
        throw failure(exit_code::usage, std::string("The user can't be used: ") + e.what());
    }
}

}  // namespace console
