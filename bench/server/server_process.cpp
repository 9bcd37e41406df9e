#include "server/server_process.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

#include "common/measure.h"
#include "common/server_settings.h"
#include "console/call_codec.h"
#include "foundation/text/conversion.h"

namespace bench {

namespace {

namespace fs = std::filesystem;
using clock_type = std::chrono::steady_clock;
using platform::linux_rpc::rpc_client;

constexpr std::chrono::seconds call_time_out{60};
constexpr char owner[] = "BENCH";

/// In the child process: becomes the server, which ends with its parent.
[[noreturn]] void run_server(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    execv(arguments.front(), arguments.data());
    _exit(127);
}

}  // namespace

server_process::server_process(const fs::path& program, const fs::path& folder)
    : socket_(folder / local_socket_name), log_(folder / "server.log") {
    const std::vector<std::string> words = {program, "-debug", "-settings", folder / "settings.reg",    "-state", folder / "state",
                                            "-log",  log_,     "-port",     std::to_string(free_port())};
    process_ = fork();
    if (process_ == 0) {
        run_server(words);
    }
    if (process_ < 0) {
        fail("The server can't be started.");
    }
    wait_until_listening();
    if (clock_getcpuclockid(process_, &cpu_clock_) != 0) {
        fail("The server's clock can't be had.");
    }
}

server_process::~server_process() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
}

rpc_client server_process::connect() const {
    return rpc_client::connect_local(socket_, call_time_out);
}

void server_process::empty_log() const {
    fs::resize_file(log_, 0);
}

double server_process::settled_cpu_seconds() const {
    double last = seconds_of(cpu_clock_);
    for (int look = 0; look < 1000; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const double now = seconds_of(cpu_clock_);
        if (now == last) {
            return now;
        }
        last = now;
    }
    fail("The server doesn't come to rest.");
}

double server_process::resident_mib() const {
    return resident_kib(process_) / 1024;
}

void server_process::wait_until_listening() const {
    for (int look = 0; look < 3000; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        try {
            (void)connect();
            return;
        } catch (const platform::linux_rpc::rpc_client_error&) {
            if (waitpid(process_, nullptr, WNOHANG) != 0) {
                fail("The server ended instead of listening.");
            }
        }
    }
    fail("The server doesn't listen.");
}

server_calls::server_calls(const server_process& server) : client_(server.connect()) {
    client_.bind({platform::linux_rpc::uuid_from_text("d1c2c07a-d989-48cc-a423-b73ecd518d40"), 1, 0}, call_time_out);
    (void)output_of(send(request("SetOwnerName", {{"NewOwnerName", owner}})));
}

std::vector<std::uint8_t> server_calls::request(const std::string& procedure, console::argument_list arguments) {
    arguments.emplace_back("OwnerName", owner);
    return console::encode_call(text::utf8_to_wide(procedure), text::utf8_to_wide(console::input_xml(arguments)));
}

std::string server_calls::output_of(const std::vector<std::uint8_t>& reply) {
    const auto answer = console::decode_answer(reply);
    if (!answer || !answer->success) {
        fail("A call failed: " + (answer ? text::wide_to_utf8(answer->error_message.value_or(u"")) : std::string("no answer")));
    }
    return text::wide_to_utf8(answer->output.value_or(u""));
}

std::vector<std::uint8_t> server_calls::send(const std::vector<std::uint8_t>& stub) {
    return client_.call(0, stub, call_time_out);
}

double server_calls::timed(const std::vector<std::uint8_t>& stub, std::vector<std::uint8_t>& reply) {
    const auto began = clock_type::now();
    reply = send(stub);
    return std::chrono::duration<double>(clock_type::now() - began).count();
}

}  // namespace bench
