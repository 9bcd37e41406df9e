#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "console/connection.h"
#include "platform/linux/rpc/rpc_client.h"

namespace bench {

/// The real server with the `settings.reg` of a folder: a process, listening when the constructor is through; ends with the object.
class server_process {
public:
    server_process(const std::filesystem::path& program, const std::filesystem::path& folder);
    ~server_process();
    server_process(const server_process&) = delete;
    server_process& operator=(const server_process&) = delete;

    [[nodiscard]] platform::linux_rpc::rpc_client connect() const;

    /// Empties the log, which grows by several megabytes with a large answer. Its pages are then there for the next lines: on a
    /// virtual machine the first touch of memory that its guest never used costs many times the write itself, in the host.
    void empty_log() const;

    /// CPU time of all threads so far, user and system, as soon as none of them is at work.
    [[nodiscard]] double settled_cpu_seconds() const;
    [[nodiscard]] double resident_mib() const;

private:
    void wait_until_listening() const;

    pid_t process_ = -1;
    std::string socket_;
    std::filesystem::path log_;
    clockid_t cpu_clock_ = 0;
};

/// The calls of one connection, which owns the server's devices.
class server_calls {
public:
    explicit server_calls(const server_process& server);

    /// The bytes of a request that can be sent again and again; the owner's name is added.
    [[nodiscard]] static std::vector<std::uint8_t> request(const std::string& procedure, console::argument_list arguments);
    /// The output of an answer that has to be a success.
    [[nodiscard]] static std::string output_of(const std::vector<std::uint8_t>& reply);

    std::vector<std::uint8_t> send(const std::vector<std::uint8_t>& stub);
    /// Seconds from the first byte of the request to the last of the reply.
    double timed(const std::vector<std::uint8_t>& stub, std::vector<std::uint8_t>& reply);

private:
    platform::linux_rpc::rpc_client client_;
};

}  // namespace bench
