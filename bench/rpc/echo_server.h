#pragma once

#include <cstddef>

namespace bench {

/// The floor: takes `request` bytes and answers with `answer` bytes, again and again, and looks at none of them. One thread
/// with an epoll for each CPU. Tells its port and serves until the process is killed.
[[noreturn]] void run_echo_server(std::size_t request, std::size_t answer);

}  // namespace bench
