#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform::tape_library {

/// Whole files through the port's `files`. Numbers are system error numbers, 0 for success.

[[nodiscard]] std::u16string join_path(const std::u16string& folder, const std::u16string& name);
/// Where a path that may be relative points to, counted from the folder.
[[nodiscard]] std::u16string resolve_path(const std::u16string& folder, const std::u16string& path);

std::uint32_t read_whole(const std::u16string& path, std::string& content);

/// Replaces the file in one step: after a crash at any moment it holds the old content or the new one, and after a return of 0
/// the new one for good. Uses the name with ".new" behind it.
std::uint32_t write_durably(const std::u16string& path, std::string_view content);

}  // namespace platform::tape_library
