// What the server's start costs: from exec to listening, against a bare process that opens a socket. See README.md.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "common/measure.h"
#include "common/server_settings.h"
#include "server/server_process.h"

namespace {

namespace fs = std::filesystem;
using clock_type = std::chrono::steady_clock;

constexpr int warm_up_rounds = 3;
constexpr int rounds = 25;
constexpr time_t patience_seconds = 60;

/// The manager's end of the notification protocol: the processes tell it when they are ready.
class manager {
public:
    explicit manager(const fs::path& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string name = path;
        const timeval limit{patience_seconds, 0};
        if (name.size() >= sizeof(address.sun_path)) {
            bench::fail("The folder's path is too long for a socket.");
        }
        std::strcpy(address.sun_path, name.c_str());
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
            setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) != 0 ||
            setenv("NOTIFY_SOCKET", name.c_str(), 1) != 0) {
            bench::fail("The notification socket can't be made.");
        }
    }
    ~manager() { close(socket_); }
    manager(const manager&) = delete;
    manager& operator=(const manager&) = delete;

    [[nodiscard]] std::string receive() const {
        std::array<char, 4096> data{};
        const ssize_t size = recv(socket_, data.data(), data.size(), 0);
        if (size < 0) {
            bench::fail("A process doesn't get ready.");
        }
        return {data.data(), static_cast<std::size_t>(size)};
    }

private:
    int socket_;
};

/// Milliseconds from the start of a process.
struct start_times {
    double first_word = 0;  ///< to the first message
    double ready = 0;
};

double milliseconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double, std::milli>(clock_type::now() - begin).count();
}

/// `errors`: where standard error goes.
pid_t spawn(const std::vector<std::string>& words, int errors = STDERR_FILENO) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (errors != STDERR_FILENO) {
        posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    }
    pid_t process = -1;
    const int failure = posix_spawn(&process, arguments.front(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        bench::fail("A process can't be started: " + words.front());
    }
    return process;
}

/// Starts the process, waits until it is ready and ends it.
start_times start_once(const manager& from, const std::vector<std::string>& words) {
    start_times times;
    const auto begin = clock_type::now();
    const pid_t process = spawn(words);
    std::string message = from.receive();
    times.first_word = milliseconds_since(begin);
    while (message.find("READY=1") == std::string::npos) {
        if (message.find("STOPPING=1") != std::string::npos) {
            bench::fail("The server's start failed.");
        }
        message = from.receive();
    }
    times.ready = milliseconds_since(begin);
    kill(process, SIGTERM);
    waitpid(process, nullptr, 0);
    return times;
}

/// One kind of process, and what its starts took.
class measured_start {
public:
    measured_start(const manager& from, std::vector<std::string> words, fs::path log = {})
        : from_(from), words_(std::move(words)), log_(std::move(log)) {}

    void measure(bool stops_by_message) {
        if (!log_.empty()) {
            fs::remove(log_);
        }
        const start_times times = start_once(from_, words_);
        if (stops_by_message) {
            // Its last words: the next process has to find an empty socket.
            while (from_.receive().find("Stopped.") == std::string::npos) {
            }
        }
        first_word_.push_back(times.first_word);
        ready_.push_back(times.ready);
    }

    void forget() {
        first_word_.clear();
        ready_.clear();
    }
    [[nodiscard]] double first_word() const { return bench::median(first_word_); }
    [[nodiscard]] double ready() const { return bench::median(ready_); }

private:
    const manager& from_;
    std::vector<std::string> words_;
    fs::path log_;
    std::vector<double> first_word_;
    std::vector<double> ready_;
};

/// Milliseconds from the start of a server whose settings aren't there to its saying so: the program and its libraries are loaded,
/// and nothing else is done.
double time_of_loading(const std::string& program, const fs::path& folder) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        bench::fail("A pipe can't be made.");
    }
    const auto begin = clock_type::now();
    const pid_t process = spawn({program, "-settings", folder / "absent.reg", "-state", folder / "state"}, ends[1]);
    char first = 0;
    const bool told = read(ends[0], &first, 1) == 1;
    const double result = milliseconds_since(begin);
    int status = 0;
    waitpid(process, &status, 0);
    close(ends[0]);
    close(ends[1]);
    if (!told || !WIFEXITED(status) || WEXITSTATUS(status) != 2) {
        bench::fail("The server without settings didn't end as it should.");
    }
    return result;
}

std::vector<std::string> server_words(const std::string& program, const fs::path& folder, const std::string& libraries) {
    fs::create_directories(folder);
    bench::write_settings(folder / "settings.reg", libraries);
    return {program,
            "-settings",
            folder / "settings.reg",
            "-state",
            folder / "state",
            "-log",
            folder / "server.log",
            "-port",
            std::to_string(bench::free_port())};
}

struct figures {
    double bare = 0;
    double loading = 0;
    double set_up = 0;   ///< without a library, to the hand-over to the manager
    double library = 0;  ///< what the library adds to that
    double serving = 0;  ///< from the hand-over to listening
    double server = 0;
};

void report(const figures& of, const fs::path& json) {
    std::cerr << "bare process: " << of.bare << " ms\nserver: " << of.server
              << " ms, of which\n  loading the program and its libraries: " << of.loading
              << " ms\n  settings, log, banner, callers: " << of.set_up - of.loading << " ms\n  virtual library: " << of.library
              << " ms\n  endpoints and listening: " << of.serving << " ms\n";
    std::cout << "start_ms_vs_bare " << of.server / of.bare << '\n';
    std::ofstream file(json);
    file << "{\n  \"start_ms_vs_bare\": " << of.server / of.bare << ",\n  \"rounds\": " << rounds << ",\n  \"bare_ms\": " << of.bare
         << ",\n  \"server_ms\": " << of.server << ",\n  \"loading_ms\": " << of.loading
         << ",\n  \"set_up_ms\": " << of.set_up - of.loading << ",\n  \"virtual_library_ms\": " << of.library
         << ",\n  \"listening_ms\": " << of.serving << "\n}\n";
    if (!file.flush()) {
        bench::fail("The results can't be written to " + json.string() + ".");
    }
}

figures measure(const std::string& program, const std::string& bare_program, const fs::path& folder) {
    const manager from(folder / "notify");
    const fs::path example = fs::absolute("examples/library-24/library.xml");
    fs::create_directories(folder / "server" / "library");
    fs::copy_file(example, folder / "server" / "library" / "library.xml");
    measured_start bare(from, {bare_program});
    measured_start server(from, server_words(program, folder / "server", "library"), folder / "server" / "server.log");
    measured_start without(from, server_words(program, folder / "without", ""), folder / "without" / "server.log");
    std::vector<double> loading;
    for (int round = -warm_up_rounds; round < rounds; ++round) {
        if (round == 0) {
            bare.forget();
            server.forget();
            without.forget();
            loading.clear();
        }
        bare.measure(false);
        server.measure(true);
        without.measure(true);
        loading.push_back(time_of_loading(program, folder));
    }
    figures result;
    result.bare = bare.ready();
    result.server = server.ready();
    result.loading = bench::median(loading);
    result.set_up = without.first_word();
    result.library = server.first_word() - without.first_word();
    result.serving = server.ready() - server.first_word();
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: bench_start SERVER-PROGRAM BARE-PROGRAM EMPTY-FOLDER RESULTS.json\n";
        return 2;
    }
    try {
        report(measure(argv[1], argv[2], argv[3]), argv[4]);
        return EXIT_SUCCESS;
    } catch (const std::exception& e) {
        std::cerr << "bench_start: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
