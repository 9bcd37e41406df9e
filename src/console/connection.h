#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace console {

/// Exit codes, by kind of failure.
enum class exit_code : int {
    done = 0,
    call_failed = 1,    ///< the server did the call and says that it failed
    usage = 2,          ///< the command line makes no sense
    not_connected = 3,  ///< nobody answers, or the connection was lost
    not_let_in = 4,     ///< the server refuses this user
    bad_answer = 5,     ///< the answer can't be understood
    still_running = 6   ///< nothing failed: the task that was asked after has not ended
};

/// A failure that ends the command with its own exit code; `what()` is what the person reads.
class failure : public std::runtime_error {
public:
    failure(exit_code code, const std::string& text) : std::runtime_error(text), code_(code) {}
    [[nodiscard]] exit_code code() const { return code_; }

private:
    exit_code code_;
};

/// Runs what reads an answer. Whatever it throws means that the answer can't be understood.
template <typename Read>
auto understand(const Read& read) {
    try {
        return read();
    } catch (const std::exception& e) {
        throw failure(exit_code::bad_answer, std::string("The server's answer can't be understood: ") + e.what());
    }
}

struct connection_options {
    std::string host;  ///< empty: the local socket
    std::uint16_t port = 6166;
    std::string socket = "/run/tarno-tape/rpc.sock";
    std::string authentication = "negotiate";  ///< for a host: "negotiate", "kerberos" or "ntlm"
    std::string user;  ///< for a host: "user" or "DOMAIN\user" of NTLM; empty: Kerberos, with the user's tickets
    std::string password;
    std::string service;  ///< the server's Kerberos principal, "class/host" or with "@REALM"; empty: TarnoTapeSvc/HOST
    std::int64_t timeout_seconds = 3600;  ///< for one call; moves may take minutes
};

/// The failure that a text of the server means: most say that the call failed, some that the caller isn't let in. What a person can
/// do about it here is added.
[[nodiscard]] failure failure_told(const std::string& text);

using argument_list = std::vector<std::pair<std::string, std::string>>;

/// One connection to a tape server.
class connection {
public:
    virtual ~connection() = default;
    /// Calls a procedure; the output XML as it came, UTF-8. Throws `failure`: with the server's own text when it says that
    /// the call failed. A text that can't be sent (not UTF-8) is a usage failure.
    virtual std::string call(const std::string& procedure, const argument_list& arguments) = 0;
};

/// Connects at once. Throws `failure`.
[[nodiscard]] std::unique_ptr<connection> open_connection(const connection_options& options);

/// The input XML of a call: one element for each argument, in order.
[[nodiscard]] std::string input_xml(const argument_list& arguments);

}  // namespace console
