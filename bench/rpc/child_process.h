#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// This program once more, in another role: started with `words` behind its name; ended with the object.
class child_process {
public:
    /// Waits until the child has told its port by `announce_port`. `one_cpu`: it and all its threads stay on the first CPU.
    child_process(const std::vector<std::string>& words, bool one_cpu);
    ~child_process();
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] double resident_kib() const;

private:
    pid_t process_ = -1;
    std::uint16_t port_ = 0;
};

/// The child's word that it serves.
void announce_port(std::uint16_t port);

/// Keeps the calling thread, and those that it makes, on the first CPU.
void stay_on_one_cpu();

/// The machine's CPUs that this process may use.
[[nodiscard]] unsigned usable_cpus();

}  // namespace bench
