#include "platform/linux/crash_record.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace platform;
using namespace platform::linux_os;

constexpr std::uint64_t stack = 0x7FFF00000000;

siginfo_t signal_of(int number, int reason, std::uint64_t address = 0) {
    siginfo_t info{};
    info.si_signo = number;
    info.si_code = reason;
    info.si_addr = reinterpret_cast<void*>(static_cast<std::uintptr_t>(address));
    return info;
}

std::uint32_t code(int number, int reason, std::uint64_t address = 0) {
    return crash_code_of(signal_of(number, reason, address), stack);
}

TEST(CrashRecord, EverySignalHasItsCode) {
    EXPECT_EQ(code(SIGSEGV, SEGV_MAPERR, 0x10), 0xC0000005U);
    EXPECT_EQ(code(SIGSEGV, SEGV_ACCERR, 0x10), 0xC0000005U);
    EXPECT_EQ(code(SIGSEGV, SI_KERNEL), 0xC0000005U);
    EXPECT_EQ(code(SIGSEGV, SI_USER), 0xC0000005U);
    EXPECT_EQ(code(SIGBUS, BUS_ADRERR), 0xC0000006U);
    EXPECT_EQ(code(SIGBUS, BUS_ADRALN), 0x80000002U);
    EXPECT_EQ(code(SIGFPE, FPE_INTDIV), 0xC0000094U);
    EXPECT_EQ(code(SIGFPE, FPE_INTOVF), 0xC0000095U);
    EXPECT_EQ(code(SIGFPE, FPE_FLTDIV), 0xC000008EU);
    EXPECT_EQ(code(SIGFPE, FPE_FLTINV), 0xC0000090U);
    EXPECT_EQ(code(SIGFPE, FPE_FLTOVF), 0xC0000091U);
    EXPECT_EQ(code(SIGFPE, FPE_FLTUND), 0xC0000093U);
    EXPECT_EQ(code(SIGFPE, SI_USER), 0xC0000094U);
    EXPECT_EQ(code(SIGILL, ILL_ILLOPN), 0xC000001DU);
    EXPECT_EQ(code(SIGILL, ILL_PRVOPC), 0xC0000096U);
    EXPECT_EQ(code(SIGABRT, SI_TKILL), 0xC0000409U);
}

TEST(CrashRecord, AnAccessAtTheStacksEndIsAnOverflow) {
    EXPECT_EQ(code(SIGSEGV, SEGV_MAPERR, stack), 0xC00000FDU);
    EXPECT_EQ(code(SIGSEGV, SEGV_ACCERR, stack - 8), 0xC00000FDU);
    EXPECT_EQ(code(SIGSEGV, SEGV_MAPERR, stack - 0x10000), 0xC00000FDU);
    EXPECT_EQ(code(SIGSEGV, SEGV_MAPERR, stack - 0x10001), 0xC0000005U);
    EXPECT_EQ(code(SIGSEGV, SEGV_MAPERR, stack + 0x10000), 0xC0000005U);
    EXPECT_EQ(code(SIGSEGV, SI_USER, stack), 0xC0000005U) << "nobody has touched anything";
}

TEST(CrashRecord, TellsWhatASignalIsFor) {
    EXPECT_EQ(describe_signal(signal_of(SIGSEGV, SEGV_MAPERR, 0x10)),
              "Signal 11 (SIGSEGV) ends the process: memory could not be reached at address 0x0000000000000010.");
    EXPECT_EQ(describe_signal(signal_of(SIGFPE, FPE_INTDIV, 0x7F58DE0A412B)),
              "Signal 8 (SIGFPE) ends the process: it failed over the instruction at address 0x00007f58de0a412b.");
    EXPECT_EQ(describe_signal(signal_of(SIGSEGV, SI_KERNEL)),
              "Signal 11 (SIGSEGV) ends the process: the processor has refused an instruction.");
    siginfo_t sent = signal_of(SIGABRT, SI_USER);
    sent.si_pid = 1;
    sent.si_uid = 1000;
    EXPECT_EQ(describe_signal(sent), "Signal 6 (SIGABRT) ends the process: process 1 of user 1000 has sent it.");
    sent.si_pid = getpid();
    EXPECT_EQ(describe_signal(sent), "Signal 6 (SIGABRT) ends the process: it has sent it to itself.");
}

TEST(CrashRecord, HoldsTheThreadAsItWas) {
    ucontext_t context{};
    set_instruction_and_stack(context, 0x401234, stack);
    context.uc_mcontext.gregs[REG_RAX] = 0x1122334455667788;
    context.uc_mcontext.gregs[REG_EFL] = 0x10246;
    context.uc_mcontext.gregs[REG_CSGSFS] = 0x002B'0001'0002'0033;
    const native_crash native{&context, true};
    const crash_record record = record_of_signal(signal_of(SIGSEGV, SEGV_MAPERR, stack), native);
    EXPECT_EQ(record.code, crash_code::stack_overflow);
    EXPECT_EQ(record.address, 0x401234U);
    EXPECT_EQ(record.native, &native);
    ASSERT_TRUE(record.registers);
    EXPECT_EQ(record.registers->ax, 0x1122334455667788U);
    EXPECT_EQ(record.registers->sp, stack);
    EXPECT_EQ(record.registers->flags, 0x10246U);
    EXPECT_EQ(record.registers->cs, 0x33);
    EXPECT_EQ(record.registers->gs, 2);
    EXPECT_EQ(record.registers->fs, 1);
    EXPECT_EQ(record.registers->ss, 0x2B);
    EXPECT_EQ(record_of_failure(native).code, crash_code::unhandled_failure);
}

}  // namespace
