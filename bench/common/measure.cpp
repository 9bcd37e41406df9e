#include "common/measure.h"

#include <malloc.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace bench {

void fail(const std::string& reason) {
    throw std::runtime_error(reason);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double seconds_of(clockid_t clock) {
    timespec time{};
    if (clock_gettime(clock, &time) != 0) {
        fail("The clock of the process can't be read.");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double resident_kib(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmRSS:")) {
            return std::stod(line.substr(6));
        }
    }
    fail("The server's resident memory isn't told.");
}

std::size_t occurrences(const std::string& text, std::string_view part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

void keep_freed_memory() {
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
}

}  // namespace bench
