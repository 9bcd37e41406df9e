#include "platform/linux/service_manager.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/errors.h"
#include "support/temporary_folder.h"

namespace {

using platform::service_state;
using platform::service_status;
using platform::linux_os::systemd_manager;

constexpr std::uint32_t no_manager = 1063;

service_status status_of(service_state state) {
    service_status status;
    status.state = state;
    status.wait_hint_ms = 5000;
    return status;
}

/// The manager's end of the protocol: the socket that NOTIFY_SOCKET names.
class notification_socket {
public:
    notification_socket() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_ = folder_.path() + "/notify";
        std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        const timeval limit{20, 0};
        EXPECT_EQ(setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)), 0);
        setenv("NOTIFY_SOCKET", path_.c_str(), 1);
    }
    ~notification_socket() { unsetenv("NOTIFY_SOCKET"); }
    notification_socket(const notification_socket&) = delete;
    notification_socket& operator=(const notification_socket&) = delete;

    /// The assignments of the next message.
    [[nodiscard]] std::vector<std::string> receive() const {
        std::array<char, 4096> data{};
        const ssize_t size = recv(socket_.get(), data.data(), data.size(), 0);
        std::vector<std::string> lines;
        std::istringstream text(size < 0 ? "nothing came" : std::string(data.data(), static_cast<std::size_t>(size)));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    void close() { socket_.reset(); }

private:
    test_support::temporary_folder folder_;
    platform::linux_os::descriptor socket_;
    std::string path_;
};

using words = std::vector<std::string>;

/// Signals are for the whole process: they are held as the server's main does.
class SystemdManager : public testing::Test {
protected:
    SystemdManager() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            sigaddset(&signals, signal);
        }
        pthread_sigmask(SIG_BLOCK, &signals, &former_);
    }
    ~SystemdManager() override { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }

    /// Runs a service that reports as the server does, and plays the manager beside it.
    template <typename Play>
    bool run(systemd_manager& manager, Play play) {
        std::thread player(play);
        const bool result = manager.run_dispatcher("TarnoTapeSvc", [this, &manager] {
            handle_ = manager.register_handler("TarnoTapeSvc", [this, &manager](std::uint32_t control) {
                controls_.push_back(control);
                manager.report(handle_, status_of(service_state::stop_pending));
                manager.report(handle_, status_of(service_state::stopped));
                return 0U;
            });
            manager.report(handle_, status_of(service_state::start_pending));
            if (starting_) {
                starting_();
            }
            if (start_works_) {
                manager.report(handle_, status_of(service_state::running));
            } else {
                manager.report(handle_, status_of(service_state::stop_pending));
                manager.report(handle_, status_of(service_state::stopped));
            }
        });
        player.join();
        return result;
    }

    static void expect_start(const notification_socket& socket) {
        EXPECT_EQ(socket.receive(), words{"STATUS=Setting up."});
        EXPECT_EQ(socket.receive(), (words{"STATUS=Starting.", "EXTEND_TIMEOUT_USEC=5000000"}));
    }

    static void expect_running(const notification_socket& socket) {
        EXPECT_EQ(socket.receive(), (words{"READY=1", "STATUS=Serving."}));
    }

    static void expect_stop(const notification_socket& socket) {
        EXPECT_EQ(socket.receive(), (words{"STOPPING=1", "STATUS=Stopping.", "EXTEND_TIMEOUT_USEC=5000000"}));
        EXPECT_EQ(socket.receive(), (words{"STOPPING=1", "STATUS=Stopped."}));
    }

    platform::service_status_handle handle_ = 0;
    std::vector<std::uint32_t> controls_;
    std::function<void()> starting_;
    bool start_works_ = true;

private:
    sigset_t former_{};
};

TEST_F(SystemdManager, WithoutASocketThereIsNone) {
    unsetenv("NOTIFY_SOCKET");
    systemd_manager manager;
    EXPECT_FALSE(manager.run_dispatcher("TarnoTapeSvc", [] { FAIL(); }));
    EXPECT_EQ(platform::linux_os::linux_errors{}.last_error(), no_manager);
}

TEST_F(SystemdManager, ASocketThatNobodyReadsIsNone) {
    notification_socket socket;
    socket.close();
    systemd_manager manager;
    EXPECT_FALSE(manager.run_dispatcher("TarnoTapeSvc", [] { FAIL(); }));
    EXPECT_EQ(platform::linux_os::linux_errors{}.last_error(), no_manager);
}

TEST_F(SystemdManager, TheTermSignalStops) {
    const notification_socket socket;
    systemd_manager manager;
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        expect_running(socket);
        kill(getpid(), SIGTERM);
        expect_stop(socket);
    }));
    EXPECT_EQ(controls_, (std::vector<std::uint32_t>{platform::service_control::stop}));
}

TEST_F(SystemdManager, SignalsInACrowdStopOnce) {
    const notification_socket socket;
    systemd_manager manager;
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        expect_running(socket);
        kill(getpid(), SIGINT);
        kill(getpid(), SIGTERM);
        kill(getpid(), SIGTERM);
        expect_stop(socket);
    }));
    EXPECT_EQ(controls_, (std::vector<std::uint32_t>{platform::service_control::stop}));
    // What came behind the stop goes nowhere: it would end the test's process.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    const timespec at_once{};
    while (sigtimedwait(&signals, nullptr, &at_once) > 0) {
    }
}

TEST_F(SystemdManager, AStopDuringTheStartWaitsForItsEnd) {
    const notification_socket socket;
    systemd_manager manager;
    std::atomic<bool> told{false};
    starting_ = [&] {
        kill(getpid(), SIGTERM);
        while (!told) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(controls_.empty());
    };
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        told = true;
        expect_running(socket);
        expect_stop(socket);
    }));
    EXPECT_EQ(controls_, (std::vector<std::uint32_t>{platform::service_control::stop}));
}

TEST_F(SystemdManager, AFailedStartSaysSoToTheEnd) {
    const notification_socket socket;
    systemd_manager manager;
    start_works_ = false;
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        EXPECT_EQ(socket.receive(),
                  (words{"STOPPING=1", "STATUS=The start has failed; the log says why. Stopping.", "EXTEND_TIMEOUT_USEC=5000000"}));
        EXPECT_EQ(socket.receive(), (words{"STOPPING=1", "STATUS=The start has failed; the log says why. Stopped."}));
    }));
    EXPECT_TRUE(controls_.empty());
}

TEST_F(SystemdManager, HangUpReloads) {
    const notification_socket socket;
    int reloads = 0;
    systemd_manager manager({.idle = {}, .reload = [&] { ++reloads; }});
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        expect_running(socket);
        for (int round = 0; round < 2; ++round) {
            timespec before{};
            clock_gettime(CLOCK_MONOTONIC, &before);
            kill(getpid(), SIGHUP);
            const words reloading = socket.receive();
            ASSERT_EQ(reloading.size(), 3u);
            EXPECT_EQ(reloading[0], "RELOADING=1");
            const std::string stamp = "MONOTONIC_USEC=";
            ASSERT_EQ(reloading[1].substr(0, stamp.size()), stamp);
            EXPECT_GE(std::stoll(reloading[1].substr(stamp.size())), before.tv_sec * 1'000'000LL + before.tv_nsec / 1000);
            EXPECT_EQ(reloading[2], "STATUS=Reading the settings again.");
            expect_running(socket);
        }
        kill(getpid(), SIGTERM);
        expect_stop(socket);
    }));
    EXPECT_EQ(reloads, 2);
    EXPECT_EQ(controls_, (std::vector<std::uint32_t>{platform::service_control::stop}));
}

TEST_F(SystemdManager, TheIdleHookIsCalledWhileTheServiceLives) {
    const notification_socket socket;
    std::atomic<int> calls{0};
    systemd_manager manager({.idle = [&] { ++calls; }, .reload = {}, .idle_ms = 1});
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        expect_running(socket);
        while (calls < 3) {
            std::this_thread::yield();
        }
        kill(getpid(), SIGTERM);
        expect_stop(socket);
    }));
}

TEST_F(SystemdManager, AManagerThatKeepsWatchGetsSignsOfLife) {
    const notification_socket socket;
    setenv("WATCHDOG_USEC", "2000", 1);
    systemd_manager manager({.idle = {}, .reload = {}, .idle_ms = 1'000'000});
    const words sign{"WATCHDOG=1"};
    EXPECT_TRUE(run(manager, [&] {
        const auto next = [&] {
            words message = socket.receive();
            while (message == sign) {
                message = socket.receive();
            }
            return message;
        };
        EXPECT_EQ(next(), words{"STATUS=Setting up."});
        EXPECT_EQ(next(), (words{"STATUS=Starting.", "EXTEND_TIMEOUT_USEC=5000000"}));
        EXPECT_EQ(next(), (words{"READY=1", "STATUS=Serving."}));
        for (int signs = 0; signs < 5; ++signs) {
            EXPECT_EQ(socket.receive(), sign);
        }
        kill(getpid(), SIGTERM);
        EXPECT_EQ(next(), (words{"STOPPING=1", "STATUS=Stopping.", "EXTEND_TIMEOUT_USEC=5000000"}));
        EXPECT_EQ(next(), (words{"STOPPING=1", "STATUS=Stopped."}));
    }));
    unsetenv("WATCHDOG_USEC");
}

TEST_F(SystemdManager, AWatchOverAnotherProcessIsNotThisOnes) {
    const notification_socket socket;
    setenv("WATCHDOG_USEC", "2000", 1);
    setenv("WATCHDOG_PID", "1", 1);
    std::atomic<int> calls{0};
    systemd_manager manager({.idle = [&] { ++calls; }, .reload = {}, .idle_ms = 1});
    EXPECT_TRUE(run(manager, [&] {
        expect_start(socket);
        expect_running(socket);
        while (calls < 5) {
            std::this_thread::yield();
        }
        kill(getpid(), SIGTERM);
        expect_stop(socket);
    }));
    unsetenv("WATCHDOG_PID");
    unsetenv("WATCHDOG_USEC");
}

TEST_F(SystemdManager, AServiceWithoutAHandlerEndsWithTheSignal) {
    const notification_socket socket;
    systemd_manager manager;
    std::thread player([&] {
        EXPECT_EQ(socket.receive(), words{"STATUS=Setting up."});
        kill(getpid(), SIGTERM);
    });
    EXPECT_TRUE(manager.run_dispatcher("TarnoTapeSvc", [] {}));
    player.join();
}

TEST_F(SystemdManager, AReportOfNobodyIsRefused) {
    const notification_socket socket;
    systemd_manager manager;
    EXPECT_FALSE(manager.report(0, status_of(service_state::running)));
    EXPECT_EQ(platform::linux_os::linux_errors{}.last_error(), platform::error::invalid_handle);
}

}  // namespace
