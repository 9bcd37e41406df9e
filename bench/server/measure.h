#pragma once

#include <time.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

[[noreturn]] void fail(const std::string& reason);

[[nodiscard]] double median(std::vector<double> values);
[[nodiscard]] double seconds_of(clockid_t clock);
/// How often `part` stands in `text`.
[[nodiscard]] std::size_t occurrences(const std::string& text, std::string_view part);

/// Answers of many megabytes come and go in the benchmark: what getting their memory from the system costs is the caller's affair,
/// and doesn't belong to the server's time. Called first in `main`.
void keep_freed_memory();

}  // namespace bench
