#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

/// Samba's endpoint mapper with two workers, on loopback; ended with the object. It takes no other port than its well-known one.
class samba_server {
public:
    static constexpr std::uint16_t port = 135;

    /// Why it can't be had on this machine; empty when it can.
    [[nodiscard]] static std::string lack();
    /// `folder` takes its configuration and its state. Waits until it answers.
    explicit samba_server(const std::string& folder);
    ~samba_server();
    samba_server(const samba_server&) = delete;
    samba_server& operator=(const samba_server&) = delete;

private:
    pid_t process_ = -1;
};

}  // namespace bench
