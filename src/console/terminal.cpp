#include "console/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <iostream>

namespace console {

namespace {

constexpr std::array<int, 4> ending_signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

/// What the signal handler writes: text that stays where it is for as long as this points to it.
std::atomic<const std::string*> noted{nullptr};
static_assert(std::atomic<const std::string*>::is_always_lock_free);

/// Only what a signal handler may do. The action is one-shot: raised again, the signal ends the process when this returns.
void tell_and_end(int number) {
    const std::string* note = noted.load();
    if (note != nullptr) {
        const ssize_t written = ::write(STDERR_FILENO, note->data(), note->size());
        (void)written;
    }
    ::raise(number);
}

void tell_at_the_end() {
    for (const int number : ending_signals) {
        struct sigaction former {};
        ::sigaction(number, nullptr, &former);
        // A signal that the caller has this process ignore, as nohup does, stays ignored.
        if (former.sa_handler == SIG_DFL) {
            struct sigaction action {};
            action.sa_handler = tell_and_end;
            action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
            ::sigaction(number, &action, nullptr);
        }
    }
}

bool somebody_looks() {
    return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace

terminal::~terminal() {
    noted = nullptr;
}

bool terminal::can_be_asked() const {
    return ::isatty(STDIN_FILENO) == 1;
}

std::optional<std::string> terminal::ask(const std::string& question) {
    std::cerr << question << std::flush;
    std::string line;
    return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

void terminal::show_progress(const std::string& line) {
    if (somebody_looks()) {
        std::cerr << '\r' << line << std::string(shown_ - std::min(shown_, line.size()), ' ') << std::flush;
        shown_ = line.size();
    }
}

void terminal::end_progress() {
    if (shown_ != 0) {
        std::cerr << std::endl;
        shown_ = 0;
    }
}

void terminal::note_for_interrupt(const std::string& note) {
    noted = nullptr;
    if (!note.empty()) {
        note_ = (somebody_looks() ? "\n" : "") + note + "\n";
        noted = &note_;
        tell_at_the_end();
    }
}

}  // namespace console
