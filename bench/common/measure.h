#pragma once

#include <sys/types.h>
#include <time.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// Ends the benchmark with a sentence for its user.
[[noreturn]] void fail(const std::string& reason);

[[nodiscard]] double median(std::vector<double> values);
[[nodiscard]] double seconds_of(clockid_t clock);
/// Memory that a process has at the moment.
[[nodiscard]] double resident_kib(pid_t process);
/// How often `part` stands in `text`.
[[nodiscard]] std::size_t occurrences(const std::string& text, std::string_view part);

/// Answers of many megabytes come and go in the benchmark: what getting their memory from the system costs is the caller's affair,
/// and doesn't belong to the server's time. Called first in `main`.
void keep_freed_memory();

}  // namespace bench
