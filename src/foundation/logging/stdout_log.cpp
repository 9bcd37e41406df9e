#include "foundation/logging/stdout_log.h"

#include <cstdio>

namespace logging::receiver {

namespace {

constexpr std::size_t border_length = 74;

}  // namespace

stdout_log_file_t::stdout_log_file_t() {
    write_border();
}

stdout_log_file_t::~stdout_log_file_t() {
    write_border();
}

void stdout_log_file_t::write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    // Whoever follows the output through a pipe shall see an entry when it is made.
    std::fflush(stdout);
}

void stdout_log_file_t::write_border() {
    stdout_log_file_t::write(std::string(border_length, '/') + line_end_);
}

}  // namespace logging::receiver
