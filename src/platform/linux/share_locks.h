#pragma once

#include <cstdint>

namespace platform::linux_os {

/// Enters an opener in a file's sharing table, which other openers of this kind see, in this process or another: what it does
/// (`access`) and what it grants to others (`share`), as in files.h. Returns a system error number: 32 when an opener that is there
/// already forbids it. The entry lasts as long as the open file description; a dead process leaves none. A file system that has
/// no locks grants everything.
[[nodiscard]] std::uint32_t enter_sharing(int file, std::uint32_t access, std::uint32_t share);

}  // namespace platform::linux_os
