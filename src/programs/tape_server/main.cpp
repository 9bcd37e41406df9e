#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <utility>

#include "command/erase_worker.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log.h"
#include "foundation/logging/log_writer.h"
#include "foundation/logging/quietly.h"
#include "foundation/util/command_line.h"
#include "host/diagnostics.h"
#include "host/entry.h"
#include "platform/linux/process.h"
#include "platform/linux/service_manager.h"
#include "platform/linux/settings_file.h"
#include "programs/tape_server/tape_server.h"

namespace {

constexpr int exit_bad_settings = 2;
constexpr int exit_failed_start = 3;

constexpr rlim_t enough_descriptors = 4096;  ///< for every connection and what the calls open

constexpr int largest_kept_block = 32 * 1024 * 1024;  ///< the most that the C library allows
constexpr int most_kept_memory = 128 * 1024 * 1024;
constexpr std::size_t memory_worth_giving_back = std::size_t{4} * 1024 * 1024;

/// Those that end the process, a terminal's end included: but for that whoever started the program may have asked to live on.
/// Under a service manager the last one means a reload.
sigset_t held_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    struct sigaction hang_up {};
    if (sigaction(SIGHUP, nullptr, &hang_up) == 0 && hang_up.sa_handler != SIG_IGN) {
        sigaddset(&signals, SIGHUP);
    }
    return signals;
}

/// Keeps the signals for `wait_for_end` or the service manager. Done before there is a second thread, so that no thread takes them.
/// A diagnostic is neither served nor managed, whatever the shell that it was started from says of a manager: Ctrl-C ends it at
/// once.
void hold_signals(const util::command_line_t& command_line) {
    signal(SIGPIPE, SIG_IGN);
    const bool managed = std::getenv("NOTIFY_SOCKET") != nullptr && !HasDiagnosticAction(command_line);
    if (managed || util::find_switch(command_line, u"-debug")) {
        const sigset_t signals = held_signals();
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
}

/// A process usually begins with fewer descriptors than it may have.
void allow_many_descriptors() {
    rlimit allowed{};
    if (getrlimit(RLIMIT_NOFILE, &allowed) == 0 && allowed.rlim_cur < enough_descriptors) {
        allowed.rlim_cur = std::min(allowed.rlim_max, enough_descriptors);
        setrlimit(RLIMIT_NOFILE, &allowed);
    }
}

/// An answer about a large library takes some buffers of many megabytes. Getting each from the kernel anew costs more than all the
/// work on them, so freed memory is kept for the next call, and given back when the server comes to rest.
void keep_freed_memory() {
    mallopt(M_MMAP_THRESHOLD, largest_kept_block);
    mallopt(M_TRIM_THRESHOLD, most_kept_memory);
}

void give_back_freed_memory() {
    if (mallinfo2().fordblks > memory_worth_giving_back) {
        malloc_trim(0);
    }
}

/// False when the process has been told to end, within the time or before.
bool wait_for_end(std::int64_t milliseconds) {
    const sigset_t signals = held_signals();
    timespec limit{};
    limit.tv_sec = milliseconds / 1000;
    limit.tv_nsec = milliseconds % 1000 * 1'000'000;
    return sigtimedwait(&signals, nullptr, &limit) < 0;
}

/// The entry handles no failure of its set-up, and neither does this program: it comes here, its reason goes to the log and to the
/// terminal, and the process ends with a code that says so. On other threads nothing of the kind is expected.
std::optional<int> tell_uncaught(const std::exception* failure) {
    const exc::runtime_exc_t unknown("Its kind is unknown.");
    const std::exception& shown = failure != nullptr ? *failure : unknown;
    const bool in_entry = gettid() == getpid();
    const char* const sentence = in_entry ? "The tape server can't be started." : "A failure has reached no handler.";
    logging::quietly([&] { g_libraryLog.LogError(sentence, shown); });
    std::cerr << "TarnoTapeSvc: " << sentence << '\n' << shown.what() << std::endl;
    return in_entry ? std::optional<int>(exit_failed_start) : std::nullopt;
}

void tell_signal(const std::string& sentence) {
    logging::quietly([&] { g_libraryLog.LogError(sentence); });
    std::cerr << "TarnoTapeSvc: " << sentence << std::endl;
}

/// A log that can't be opened leaves nothing behind but silence; whoever started the program is told here, once.
void report_missing_log() {
    static bool done = false;
    if (!std::exchange(done, true) && !logging::log_t::process_log()->initialized()) {
        std::cerr << "TarnoTapeSvc: The log file can't be opened, so that nothing is logged. The switch -log names another."
                  << std::endl;
    }
}

/// What there is to do on the main thread while the server serves.
void look_after_process() {
    report_missing_log();
    give_back_freed_memory();
}

}  // namespace

int main() {
    const util::command_line_t command_line = platform::linux_os::linux_process{}.command_line();
    hold_signals(command_line);
    allow_many_descriptors();
    keep_freed_memory();
    std::unique_ptr<tape_server::assembled_system> system;
    try {
        system = std::make_unique<tape_server::assembled_system>(
            platform::linux_os::read_paths(command_line, std::getenv("STATE_DIRECTORY")));
    } catch (const std::exception& e) {
        std::cerr << "TarnoTapeSvc: " << e.what() << '\n';
        return exit_bad_settings;
    }

    system->set_crash_hooks({.signalled = tell_signal, .uncaught = tell_uncaught});
    platform::linux_os::systemd_manager manager({.idle = look_after_process, .reload = [&system] { system->reload(); }});
    system->serve_under(manager);

    entry_environment environment;
    environment.pause = [](std::int64_t milliseconds) {
        look_after_process();
        return wait_for_end(milliseconds);
    };
    environment.start_warnings = system->warnings();
    for (const std::string& warning : environment.start_warnings) {
        std::cerr << "TarnoTapeSvc: " << warning << '\n';
    }
    const int code = RunTapeServer(environment);
    report_missing_log();
    std::cerr.flush();
    if (system->at_rest() && !EraseThreadsRunning()) {
        return code;
    }
    // Calls and erases in progress are not waited for: they can be minutes, even hours, from their end, and use the system until
    // then. What they have done to a virtual library is on the disk already.
    _exit(code);
}
