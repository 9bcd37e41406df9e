#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// What the entry asks of the program that it runs in.
struct entry_environment {
    /// Waits for about so many milliseconds; false when the process has been told to end. Left empty, the entry waits on the
    /// system's clock and serves for ever.
    std::function<bool(std::int64_t milliseconds)> pause;
    /// Sentences about the start from before there was a log; they stand in it behind the banner.
    std::vector<std::string> start_warnings;
};

/// The program from its set-up to its end, on the system that is installed. Returns the process's exit code:
/// - with `-debug` it serves from the console until the environment's pause says otherwise, then 0;
/// - with the switch of a diagnostic action it does that and nothing else, then 0, whatever came of it;
/// - else it serves under the service manager until that stops it, then 0, also when the start has failed;
/// - with no service manager to serve under, 1.
/// Failures of the set-up leave as exceptions. They are meant for nobody but the system's crash filter: a dump with the stack of
/// the failure wants them uncaught.
[[nodiscard]] int RunTapeServer(const entry_environment& environment);

/// The lines that start a run in the log.
void WriteStartBanner();

/// Writes about 50 MiB of known lines to the log.
void RunLogTest();
