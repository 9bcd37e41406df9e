#include "platform/linux/crash.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "platform/linux/crash_signals.h"
#include "support/temporary_folder.h"

#if defined(__SANITIZE_THREAD__)
/// Who handles a crash takes memory in a signal's handler, and knows what that may cost.
extern "C" const char* __tsan_default_options() {
    return "report_signal_unsafe=0";
}
#endif

namespace {

using namespace platform;
using namespace platform::linux_os;
using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

linux_crash* under_test = nullptr;
void (*also_in_filter)() = nullptr;

/// Shows on standard error what it was called with.
std::int32_t showing_filter(const crash_record& record) {
    std::fprintf(stderr, "code %08x\n", record.code);
    for (const stack_frame& frame : under_test->walk_stack(record, 20)) {
        const code_address where = under_test->describe(frame.address);
        const std::string name = where.symbol && !where.symbol->undecorated.empty() ? where.symbol->undecorated[0] : "?";
        std::fprintf(stderr, "frame %s\n", frame.address == 0 ? "of nothing" : name.c_str());
    }
    if (also_in_filter != nullptr) {
        also_in_filter();
    }
    return 1;
}

/// A process as it starts, whatever watches over the tests: a sanitizer has its own ideas of crashes.
void become_ordinary() {
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        signal(number, SIG_DFL);
    }
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
    const rlimit no_core{};
    setrlimit(RLIMIT_CORE, &no_core);
}

void watch(crash_hooks hooks = {}) {
    static linux_crash crash;
    under_test = &crash;
    crash.set_hooks(std::move(hooks));
    crash_filter former = nullptr;
    ASSERT_EQ(crash.set_filter(showing_filter, former), 0U);
}

crash_hooks showing_hooks(std::optional<int> exit_code) {
    return {.signalled = [](const std::string& sentence) { std::fprintf(stderr, "%s\n", sentence.c_str()); },
            .uncaught =
                [exit_code](const std::exception* failure) {
                    std::fprintf(stderr, "uncaught %s\n", failure != nullptr ? failure->what() : "nothing known");
                    return exit_code;
                }};
}

__attribute__((noinline)) void touch_forbidden_memory() {
    auto* const page = static_cast<volatile char*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    std::fprintf(stderr, "%d\n", page[16]);
}

__attribute__((noinline)) void call_nothing() {
    void (*volatile nothing)() = nullptr;
    nothing();
    std::fprintf(stderr, "came back\n");
}

__attribute__((noinline)) int need_more_stack(int depth) {  // NOLINT(misc-no-recursion)
    volatile char room[16384];
    room[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : need_more_stack(depth + 1) + room[0];
}

__attribute__((noinline)) void throw_uncaught() {
    throw std::runtime_error("The robot is gone.");
}

class LinuxCrash : public ::testing::Test {
protected:
    LinuxCrash() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        also_in_filter = nullptr;
    }
};

using LinuxCrashDeathTest = LinuxCrash;

TEST_F(LinuxCrashDeathTest, AForbiddenAccessEndsByItsSignalBehindTheFilter) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch(showing_hooks({}));
            touch_forbidden_memory();
        },
        KilledBySignal(SIGSEGV),
        "Signal 11 .SIGSEGV. ends the process: memory could not be reached at address 0x[0-9a-f]+010.\n"
        "code c0000005\nframe .*touch_forbidden_memory.*\nframe ");
}

TEST_F(LinuxCrashDeathTest, AJumpToNowhereHasACaller) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            call_nothing();
        },
        KilledBySignal(SIGSEGV), "code c0000005\nframe of nothing\nframe .*call_nothing.*\nframe ");
}

TEST_F(LinuxCrashDeathTest, TheMainThreadMayRunOutOfStack) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            need_more_stack(1);
        },
        KilledBySignal(SIGSEGV), "code c00000fd\nframe .*need_more_stack");
}

TEST_F(LinuxCrashDeathTest, OtherThreadsMayRunOutOfStack) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            std::thread([] {
                stack_t none{};
                none.ss_flags = SS_DISABLE;
                sigaltstack(&none, nullptr);
                ready_current_thread_for_crash();
                need_more_stack(1);
            }).join();
        },
        KilledBySignal(SIGSEGV), "code c00000fd\nframe .*need_more_stack");
}

TEST_F(LinuxCrashDeathTest, AnAbortEndsAsOne) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch(showing_hooks({}));
            std::abort();
        },
        KilledBySignal(SIGABRT), "Signal 6 .SIGABRT. ends the process: it has sent it to itself.\ncode c0000409\nframe ");
}

TEST_F(LinuxCrashDeathTest, ASignalFromOutsideEndsAsItself) {
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        EXPECT_EXIT(
            {
                become_ordinary();
                watch();
                kill(getpid(), number);
                pause();
            },
            KilledBySignal(number), "code ");
    }
}

TEST_F(LinuxCrashDeathTest, ASignalThatWasIgnoredEndsToo) {
    EXPECT_EXIT(
        {
            become_ordinary();
            signal(SIGFPE, SIG_IGN);
            watch();
            kill(getpid(), SIGFPE);
            pause();
        },
        KilledBySignal(SIGFPE), "code c0000094");
}

TEST_F(LinuxCrashDeathTest, WhoHandledTheSignalBeforeHasTheLastWord) {
    EXPECT_EXIT(
        {
            become_ordinary();
            signal(SIGSEGV, [](int) { _exit(42); });
            watch();
            touch_forbidden_memory();
        },
        ExitedWithCode(42), "code c0000005");
}

TEST_F(LinuxCrashDeathTest, AnUncaughtExceptionHasItsStackAndItsExitCode) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch(showing_hooks(3));
            std::thread(throw_uncaught).join();
        },
        ExitedWithCode(3), "uncaught The robot is gone.\ncode 40000015\n(frame .*\n)*frame .*throw_uncaught");
}

TEST_F(LinuxCrashDeathTest, AnUncaughtExceptionWithoutExitCodeAborts) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch(showing_hooks({}));
            std::thread(throw_uncaught).join();
        },
        KilledBySignal(SIGABRT), "uncaught The robot is gone.\ncode 40000015\n");
}

TEST_F(LinuxCrashDeathTest, OtherUncaughtThingsAreToldToo) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch(showing_hooks(3));
            std::thread([] { throw 7; }).join();
        },
        ExitedWithCode(3), "uncaught nothing known\ncode 40000015\n");
    EXPECT_EXIT(
        {
            become_ordinary();
            watch(showing_hooks(3));
            std::terminate();
        },
        ExitedWithCode(3), "uncaught nothing known\ncode 40000015\n");
}

TEST_F(LinuxCrashDeathTest, WithoutHooksTheFormerTerminationTellsIt) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            std::thread(throw_uncaught).join();
        },
        KilledBySignal(SIGABRT), "code 40000015\n(.*\n)*.*The robot is gone.");
}

TEST_F(LinuxCrashDeathTest, ACrashInTheFilterIsTheEnd) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            also_in_filter = touch_forbidden_memory;
            kill(getpid(), SIGABRT);
            pause();
        },
        KilledBySignal(SIGSEGV), "code c0000409");
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            also_in_filter = [] { std::abort(); };
            touch_forbidden_memory();
        },
        KilledBySignal(SIGABRT), "code c0000005");
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            also_in_filter = throw_uncaught;
            std::thread(throw_uncaught).join();
        },
        KilledBySignal(SIGABRT), "code 40000015");
}

/// Whether the kernel has put a thread of this process to sleep.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(file, text);
    const std::size_t name_end = text.rfind(')');
    return name_end != std::string::npos && text.substr(name_end).starts_with(") S");
}

std::atomic<pid_t> other_thread{0};
std::atomic<bool> other_may_crash{false};

void start_another_thread() {
    std::thread([] {
        other_thread = gettid();
        while (!other_may_crash) {
            sched_yield();
        }
        raise(SIGFPE);
    }).detach();
}

/// In the filter: the other thread crashes, and is heard of no more.
void let_another_thread_crash() {
    other_may_crash = true;
    while (other_thread == 0 || !sleeps(other_thread)) {
        sched_yield();
    }
    std::fprintf(stderr, "the other one waits\n");
}

TEST_F(LinuxCrashDeathTest, ACrashOfAnotherThreadWaitsForTheEndOfTheFirst) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            also_in_filter = let_another_thread_crash;
            start_another_thread();
            touch_forbidden_memory();
        },
        KilledBySignal(SIGSEGV), "code c0000005\n(frame .*\n)*the other one waits\n$");
}

TEST_F(LinuxCrashDeathTest, AFilterThatHangsIsGivenUp) {
    EXPECT_EXIT(
        {
            become_ordinary();
            watch();
            also_in_filter = [] {
                const unsigned left = alarm(0);
                std::fprintf(stderr, "left %s\n", left > 0 && left <= linux_crash::seconds_for_a_crash ? "as promised" : "wrong");
                kill(getpid(), SIGALRM);
                for (;;) {
                    pause();
                }
            };
            touch_forbidden_memory();
        },
        KilledBySignal(SIGSEGV), "left as promised\nThe handling of a crash has taken too long. The process ends without it.\n");
}

TEST_F(LinuxCrash, LeavesSignalsAndExceptionsAsTheyWere) {
    struct sigaction before {};
    struct sigaction after {};
    sigaction(SIGSEGV, nullptr, &before);
    const std::terminate_handler terminate = std::get_terminate();
    {
        linux_crash crash;
        EXPECT_NE(std::get_terminate(), terminate);
        crash_filter former = nullptr;
        EXPECT_EQ(crash.set_filter(showing_filter, former), 0U);
        sigaction(SIGSEGV, nullptr, &after);
        EXPECT_NE(before.sa_sigaction, after.sa_sigaction);
    }
    sigaction(SIGSEGV, nullptr, &after);
    EXPECT_EQ(before.sa_sigaction, after.sa_sigaction);
    EXPECT_EQ(std::get_terminate(), terminate);
}

TEST_F(LinuxCrash, KnowsItsOwnFunctionsAndThoseOfLibraries) {
    linux_crash crash;
    const code_address own = crash.describe(reinterpret_cast<std::uintptr_t>(&call_nothing) + 1);
    EXPECT_EQ(own.module, "test_platform");
    ASSERT_TRUE(own.symbol);
    EXPECT_EQ(own.symbol->displacement, 1);
    EXPECT_EQ(own.symbol->undecorated, (std::vector<std::string>{"(anonymous namespace)::call_nothing()"}));
    EXPECT_EQ(own.symbol_type, 6U);
    const code_address theirs = crash.describe(reinterpret_cast<std::uintptr_t>(&std::set_terminate));
    ASSERT_TRUE(theirs.symbol);
    EXPECT_EQ(theirs.symbol->undecorated, (std::vector<std::string>{"std::set_terminate(void (*)())"}));
}

TEST_F(LinuxCrash, ListsTheModulesWithTheProgramFirst) {
    linux_crash crash;
    const loaded_modules loaded = crash.modules();
    EXPECT_TRUE(loaded.tells_errors);
    ASSERT_GT(loaded.modules.size(), 2U);
    EXPECT_TRUE(loaded.modules[0].path.ends_with(u"/test_platform"));
    for (const loaded_module& each : loaded.modules) {
        EXPECT_LT(each.start, each.end);
        EXPECT_FALSE(each.path.empty());
    }
    const auto here = reinterpret_cast<std::uintptr_t>(&call_nothing);
    EXPECT_LE(loaded.modules[0].start, here);
    EXPECT_GT(loaded.modules[0].end, here);
}

TEST_F(LinuxCrash, ADumpIsGuardedByItsFolder) {
    const test_support::temporary_folder place;
    linux_crash crash;
    const int folder = open(place.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(folder, 0);
    std::u16string path;
    for (const char letter : place.path() + "/dump") {
        path += static_cast<char16_t>(letter);
    }
    std::unique_ptr<dump_guard> guard = crash.guard_dump(path);
    ASSERT_NE(guard, nullptr);
    EXPECT_NE(flock(folder, LOCK_EX | LOCK_NB), 0);
    guard.reset();
    EXPECT_EQ(flock(folder, LOCK_EX | LOCK_NB), 0);
    close(folder);
    EXPECT_EQ(crash.guard_dump(u"/there/is/no/such/folder/dump"), nullptr);
}

}  // namespace
