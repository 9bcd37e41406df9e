#include "rpc/child_process.h"

#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "common/measure.h"

namespace bench {

unsigned usable_cpus() {
    cpu_set_t usable;
    CPU_ZERO(&usable);
    if (sched_getaffinity(0, sizeof(usable), &usable) != 0) {
        fail("The usable CPUs aren't told.");
    }
    return static_cast<unsigned>(std::max(CPU_COUNT(&usable), 1));
}

void stay_on_one_cpu() {
    cpu_set_t usable;
    CPU_ZERO(&usable);
    if (sched_getaffinity(0, sizeof(usable), &usable) != 0) {
        fail("The usable CPUs aren't told.");
    }
    std::size_t first = 0;
    while (!CPU_ISSET(first, &usable)) {
        ++first;
    }
    CPU_ZERO(&usable);
    CPU_SET(first, &usable);
    if (sched_setaffinity(0, sizeof(usable), &usable) != 0) {
        fail("The process can't be kept on one CPU.");
    }
}

void announce_port(std::uint16_t port) {
    const std::string line = std::to_string(port) + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        fail("The port can't be told.");
    }
}

child_process::child_process(const std::vector<std::string>& words, bool one_cpu) {
    int channel[2];
    if (pipe(channel) != 0) {
        fail("There is no pipe to be had.");
    }
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(channel[1], STDOUT_FILENO);
        close(channel[0]);
        close(channel[1]);
        if (one_cpu) {
            stay_on_one_cpu();
        }
        std::vector<char*> arguments{const_cast<char*>("bench_rpc")};
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        execv("/proc/self/exe", arguments.data());
        _exit(127);
    }
    close(channel[1]);
    std::string line;
    char letter = 0;
    while (process_ > 0 && read(channel[0], &letter, 1) == 1 && letter != '\n') {
        line += letter;
    }
    close(channel[0]);
    if (std::from_chars(line.data(), line.data() + line.size(), port_).ec != std::errc{} || port_ == 0) {
        fail("A server of the benchmark didn't start.");
    }
}

child_process::~child_process() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

double child_process::resident_kib() const {
    return bench::resident_kib(process_);
}

}  // namespace bench
