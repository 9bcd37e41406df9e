#pragma once

#include <sys/un.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/rpc/network_loop.h"
#include "platform/linux/rpc/session.h"

namespace platform::linux_rpc {

/// A socket that listens. Owned and moved; closed at the end.
class listening_socket {
public:
    listening_socket() = default;
    ~listening_socket();
    listening_socket(listening_socket&& other) noexcept;
    listening_socket& operator=(listening_socket&& other) noexcept;
    listening_socket(const listening_socket&) = delete;
    listening_socket& operator=(const listening_socket&) = delete;

    /// Listens on a TCP port: `address` a numeric one, or empty for all; port 0 lets the system choose. Returns an RPC or
    /// system status, 0 for success.
    std::uint32_t open_tcp(const std::string& address, std::uint16_t port);
    /// Listens on a Unix-domain socket. A socket file that nobody answers on any more is replaced; 1740: somebody does, or the name
    /// belongs to what is no socket.
    std::uint32_t open_local(const std::string& path, std::uint32_t mode);

    [[nodiscard]] int handle() const { return handle_; }
    [[nodiscard]] int family() const { return family_; }
    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] const std::string& path() const { return path_; }
    /// Why the last opening failed, for the log: the system's own words, or ours where it has none.
    [[nodiscard]] const std::string& reason() const { return reason_; }

private:
    void close();
    /// Keeps the reason of a failure and closes; gives back the status.
    std::uint32_t fail(std::uint32_t status, std::string reason);
    std::uint32_t fail_by(int number);
    [[nodiscard]] std::uint32_t make_room(const std::string& path, const sockaddr_un& where);

    int handle_ = -1;
    int family_ = 0;
    std::uint16_t port_ = 0;
    std::string path_;  ///< of the socket file, which goes when the socket does
    std::string reason_;
};

/// Accepts connections and spreads them over the loops. Lives on the thread of `home`.
class listener final : public loop_client, public std::enable_shared_from_this<listener> {
public:
    listener(network_loop& home, std::vector<network_loop*> loops, listening_socket socket);

    void start();
    void stop();

    void on_ready(std::uint32_t events) override;
    void on_time() override;

private:
    void accept_some();
    bool take_in_waiting();
    void take_in(int accepted);

    network_loop& home_;
    std::vector<network_loop*> loops_;
    std::size_t next_ = 0;
    listening_socket socket_;
    bool short_ = false;  ///< of descriptors or memory, and said so
};

/// Status for an errno of a socket call.
[[nodiscard]] std::uint32_t status_of_errno(int number);

}  // namespace platform::linux_rpc
