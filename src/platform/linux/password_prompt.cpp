#include "platform/linux/password_prompt.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "platform/linux/rpc/ntlm_crypto.h"

namespace platform::linux_os {

namespace {

constexpr std::size_t longest_password = 1024;

void show(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(STDERR_FILENO, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return;
        }
        text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
}

volatile std::sig_atomic_t interrupted = 0;

void note_signal(int number) {
    interrupted = number;
}

/// Turns the echo off for as long as it lives. Signals that would end the process in between only interrupt the waiting for
/// input, so that the terminal never stays mute; they are raised again when it has its echo back. They are blocked but for
/// the waiting: one that came just before it would be noticed by the next line only.
class silent_terminal {
public:
    silent_terminal() {
        if (::tcgetattr(STDIN_FILENO, &former_) != 0) {
            throw std::system_error(errno, std::generic_category(), "Cannot read the terminal's settings");
        }
        sigset_t blocked{};
        sigemptyset(&blocked);
        for (const int number : signals) {
            sigaddset(&blocked, number);
        }
        ::sigprocmask(SIG_BLOCK, &blocked, &former_mask_);
        struct sigaction noting {};
        noting.sa_handler = note_signal;
        for (std::size_t i = 0; i < signals.size(); ++i) {
            ::sigaction(signals[i], &noting, &actions_[i]);
        }
        termios silent = former_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }

    ~silent_terminal() {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &former_);
        for (std::size_t i = 0; i < signals.size(); ++i) {
            ::sigaction(signals[i], &actions_[i], nullptr);
        }
        ::sigprocmask(SIG_SETMASK, &former_mask_, nullptr);
        if (interrupted != 0) {
            ::raise(interrupted);
        }
    }

    silent_terminal(const silent_terminal&) = delete;
    silent_terminal& operator=(const silent_terminal&) = delete;

    /// Until there is input. False: a signal came.
    [[nodiscard]] bool wait_for_input() const {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        while (::ppoll(&input, 1, nullptr, &former_mask_) < 0) {
            if (errno != EINTR || interrupted != 0) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr std::array<int, 4> signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

    termios former_{};
    sigset_t former_mask_{};
    std::array<struct sigaction, signals.size()> actions_{};
};

/// One line without its end, from the terminal if there is one. Byte by byte and without a buffer of the library's: no copy of
/// the password stays behind.
std::string read_line(const silent_terminal* terminal) {
    std::string line;
    line.reserve(longest_password + 2);
    for (;;) {
        char next = 0;
        const bool ready = terminal == nullptr || terminal->wait_for_input();
        const ssize_t count = ready ? ::read(STDIN_FILENO, &next, 1) : -1;
        if (ready && count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            platform::linux_rpc::wipe(line);
            throw std::runtime_error("The password could not be read.");
        }
        if (count == 0 || next == '\n') {
            break;
        }
        line.push_back(next);
        if (line.size() > longest_password) {
            platform::linux_rpc::wipe(line);
            throw std::runtime_error("The password is longer than 1024 bytes.");
        }
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

std::string read_once(const std::string& account) {
    const silent_terminal silence;
    show("Password of '" + account + "': ");
    return read_line(&silence);
}

std::string read_twice(const std::string& account) {
    const silent_terminal silence;
    show("New password of '" + account + "': ");
    std::string password = read_line(&silence);
    show("The same again: ");
    std::string repeated = read_line(&silence);
    const bool same = password == repeated;
    platform::linux_rpc::wipe(repeated);
    if (!same) {
        platform::linux_rpc::wipe(password);
        throw std::runtime_error("The two passwords differ.");
    }
    return password;
}

bool has_terminal() {
    return ::isatty(STDIN_FILENO) == 1;
}

std::string not_empty(std::string password) {
    if (password.empty()) {
        throw std::runtime_error("An empty password is not accepted.");
    }
    return password;
}

}  // namespace

std::string read_password(const std::string& account) {
    return not_empty(has_terminal() ? read_once(account) : read_line(nullptr));
}

std::string read_new_password(const std::string& account) {
    return not_empty(has_terminal() ? read_twice(account) : read_line(nullptr));
}

}  // namespace platform::linux_os
