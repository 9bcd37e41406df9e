#include "platform/linux/crash_signals.h"

#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/linux/crash_record.h"

namespace platform::linux_os {

namespace {

constexpr std::array handled_signals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

constexpr std::size_t alternate_stack_size = std::size_t{256} * 1024;  ///< only what is used of it takes memory

/// What the handlers know. They may run at any moment until the process's last one, so this is never gone.
struct machinery {
    std::atomic<crash_filter> filter{nullptr};
    std::atomic<bool> handles_signals{false};
    crash_hooks hooks;
    std::terminate_handler former_terminate = nullptr;
    std::array<struct sigaction, handled_signals.size()> former{};
    std::atomic<pid_t> crashed_thread{0};
    std::atomic<int> signal{SIGABRT};  ///< of the crash that is handled
};

machinery& the() {
    static auto& only = *new machinery;
    return only;
}

/// As it was before this handled it; a signal that was ignored then has its default action: the process can't go on.
void put_back(int signal) {
    for (std::size_t index = 0; index < handled_signals.size(); ++index) {
        if (handled_signals[index] == signal) {
            struct sigaction action = the().former[index];
            if ((action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN) {
                action.sa_handler = SIG_DFL;
            }
            sigaction(signal, &action, nullptr);
        }
    }
}

void unblock(int signal) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// The handling of a crash hangs, on a lock that the crash has left locked for instance. It is given up.
void on_watchdog(int /*signal*/) {
    constexpr std::string_view farewell = "The handling of a crash has taken too long. The process ends without it.\n";
    static_cast<void>(!write(STDERR_FILENO, farewell.data(), farewell.size()));
    const int signal = the().signal;
    ::signal(signal, SIG_DFL);
    unblock(signal);
    syscall(SYS_tgkill, getpid(), gettid(), signal);
}

void start_watchdog() {
    struct sigaction action {};
    action.sa_handler = on_watchdog;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    unblock(SIGALRM);
    alarm(linux_crash::seconds_for_a_crash);
}

/// Whether this is the crash that is to be handled. False: it happened in the handling of that one. The crash of another thread
/// stays here until the process ends.
bool is_first_crash(int signal) {
    pid_t first = 0;
    if (the().crashed_thread.compare_exchange_strong(first, gettid())) {
        the().signal = signal;
        start_watchdog();
        return true;
    }
    while (first != gettid()) {
        pause();
    }
    return false;
}

void run_filter(const crash_record& record) {
    if (const crash_filter filter = the().filter) {
        filter(record);
    }
}

/// The signal is sent again as it came and waits, since it is blocked here, for the handler's end. So a core dump shows the crash
/// itself, and the process ends even if what went wrong wouldn't go wrong again.
void on_signal(int signal, siginfo_t* info, void* context) {
    if (is_first_crash(signal)) {
        if (the().hooks.signalled) {
            the().hooks.signalled(describe_signal(*info));
        }
        const native_crash native{static_cast<ucontext_t*>(context), true};
        run_filter(record_of_signal(*info, native));
    }
    put_back(signal);
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0) {
        syscall(SYS_tgkill, getpid(), gettid(), signal);
    }
}

/// What the program says of the exception in flight.
std::optional<int> tell_uncaught() {
    const std::exception_ptr failure = std::current_exception();
    try {
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
    } catch (const std::exception& e) {
        return the().hooks.uncaught(&e);
    } catch (...) {
        return the().hooks.uncaught(nullptr);
    }
    return the().hooks.uncaught(nullptr);
}

[[noreturn]] void on_terminate() {
    std::optional<int> exit_code;
    if (is_first_crash(SIGABRT)) {
        ucontext_t context{};
        getcontext(&context);
        if (the().hooks.uncaught) {
            exit_code = tell_uncaught();
        }
        const native_crash native{&context, false};
        run_filter(record_of_failure(native));
    }
    if (exit_code) {
        _exit(*exit_code);
    }
    if (!the().hooks.uncaught && the().former_terminate != nullptr) {
        the().former_terminate();
    }
    signal(SIGABRT, SIG_DFL);
    std::abort();
}

/// Who crashed for want of stack can't use what is left of it.
class alternate_stack {
public:
    alternate_stack() = default;
    alternate_stack(const alternate_stack&) = delete;
    alternate_stack& operator=(const alternate_stack&) = delete;

    ~alternate_stack() {
        if (memory_ == nullptr) {
            return;
        }
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
        munmap(memory_, guard_size() + alternate_stack_size);
    }

    /// A value of `errno`.
    int make() {
        stack_t present{};
        if (memory_ != nullptr || (sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE) == 0)) {
            return 0;
        }
        void* const memory = mmap(nullptr, guard_size() + alternate_stack_size, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            return errno;
        }
        stack_t own{};
        own.ss_sp = static_cast<char*>(memory) + guard_size();
        own.ss_size = alternate_stack_size;
        if (mprotect(memory, guard_size(), PROT_NONE) != 0 || sigaltstack(&own, nullptr) != 0) {
            const int failure = errno;
            munmap(memory, guard_size() + alternate_stack_size);
            return failure;
        }
        memory_ = memory;
        return 0;
    }

private:
    static std::size_t guard_size() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

    void* memory_ = nullptr;
};

alternate_stack& own_alternate_stack() {
    thread_local alternate_stack own;
    return own;
}

int handle_signals() {
    if (const int failure = own_alternate_stack().make()) {
        return failure;
    }
    struct sigaction action {};
    action.sa_sigaction = on_signal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    // A crash within the handler finds its signal blocked, and the kernel ends the process at once.
    sigfillset(&action.sa_mask);
    sigdelset(&action.sa_mask, SIGALRM);
    for (std::size_t index = 0; index < handled_signals.size(); ++index) {
        sigaction(handled_signals[index], &action, &the().former[index]);
    }
    the().handles_signals = true;
    return 0;
}

}  // namespace

void handle_uncaught_exceptions() {
    the().former_terminate = std::set_terminate(on_terminate);
}

void set_crash_hooks(crash_hooks hooks) {
    the().hooks = std::move(hooks);
}

int set_crash_filter(crash_filter filter, crash_filter& former) {
    if (filter != nullptr && !the().handles_signals) {
        if (const int failure = handle_signals()) {
            return failure;
        }
    }
    former = the().filter.exchange(filter);
    return 0;
}

void stop_handling_crashes() {
    if (the().handles_signals.exchange(false)) {
        for (std::size_t index = 0; index < handled_signals.size(); ++index) {
            sigaction(handled_signals[index], &the().former[index], nullptr);
        }
    }
    std::set_terminate(the().former_terminate);
    the().filter = nullptr;
    the().hooks = {};
}

void ready_current_thread_for_crash() {
    if (the().handles_signals) {
        static_cast<void>(own_alternate_stack().make());
    }
}

}  // namespace platform::linux_os
