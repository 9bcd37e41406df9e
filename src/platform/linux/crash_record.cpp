#include "platform/linux/crash_record.h"

#include <string.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace platform::linux_os {

namespace {

constexpr std::uint64_t near_the_stack = std::uint64_t{64} * 1024;

/// The memory around the end of a stack is there, unless the stack is at its end.
bool is_stack_overflow(std::uint64_t address, std::uint64_t stack_pointer) {
    return stack_pointer != 0 && address + near_the_stack >= stack_pointer && address < stack_pointer + near_the_stack;
}

std::uint64_t fault_address(const siginfo_t& info) {
    return reinterpret_cast<std::uintptr_t>(info.si_addr);
}

bool was_sent(const siginfo_t& info) {
    return info.si_code <= 0;
}

std::uint32_t arithmetic_code(int reason) {
    switch (reason) {
        case FPE_INTOVF:
            return crash_code::integer_overflow;
        case FPE_FLTDIV:
            return crash_code::float_divide_by_zero;
        case FPE_FLTOVF:
            return crash_code::float_overflow;
        case FPE_FLTUND:
            return crash_code::float_underflow;
        case FPE_FLTINV:
            return crash_code::float_invalid_operation;
        default:
            return crash_code::integer_divide_by_zero;
    }
}

std::string address_text(std::uint64_t address) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "0x%016llx", static_cast<unsigned long long>(address));
    return text.data();
}

#if defined(__x86_64__)

std::uint64_t register_of(const ucontext_t& context, int index) {
    return static_cast<std::uint64_t>(context.uc_mcontext.gregs[index]);
}

/// The kernel keeps four of the selectors in one word, and the others not at all.
std::optional<cpu_registers> registers_of(const ucontext_t& context) {
    cpu_registers values;
    values.ax = register_of(context, REG_RAX);
    values.bx = register_of(context, REG_RBX);
    values.cx = register_of(context, REG_RCX);
    values.dx = register_of(context, REG_RDX);
    values.si = register_of(context, REG_RSI);
    values.di = register_of(context, REG_RDI);
    values.ip = register_of(context, REG_RIP);
    values.sp = register_of(context, REG_RSP);
    values.bp = register_of(context, REG_RBP);
    values.flags = static_cast<std::uint32_t>(register_of(context, REG_EFL));
    const std::uint64_t selectors = register_of(context, REG_CSGSFS);
    values.cs = static_cast<std::uint16_t>(selectors);
    values.gs = static_cast<std::uint16_t>(selectors >> 16);
    values.fs = static_cast<std::uint16_t>(selectors >> 32);
    values.ss = static_cast<std::uint16_t>(selectors >> 48);
    return values;
}

#else

std::optional<cpu_registers> registers_of(const ucontext_t& /*context*/) {
    return std::nullopt;
}

#endif

crash_record record_of(std::uint32_t code, const native_crash& native) {
    crash_record record;
    record.code = code;
    record.address = instruction_of(*native.context);
    record.registers = registers_of(*native.context);
    record.native = &native;
    return record;
}

}  // namespace

#if defined(__x86_64__)

std::uint64_t instruction_of(const ucontext_t& context) {
    return register_of(context, REG_RIP);
}

std::uint64_t stack_pointer_of(const ucontext_t& context) {
    return register_of(context, REG_RSP);
}

void set_instruction_and_stack(ucontext_t& context, std::uint64_t instruction, std::uint64_t stack_pointer) {
    context.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(instruction);
    context.uc_mcontext.gregs[REG_RSP] = static_cast<greg_t>(stack_pointer);
}

#else

std::uint64_t instruction_of(const ucontext_t& /*context*/) {
    return 0;
}

std::uint64_t stack_pointer_of(const ucontext_t& /*context*/) {
    return 0;
}

void set_instruction_and_stack(ucontext_t& /*context*/, std::uint64_t /*instruction*/, std::uint64_t /*stack_pointer*/) {}

#endif

std::uint32_t crash_code_of(const siginfo_t& info, std::uint64_t stack_pointer) {
    switch (info.si_signo) {
        case SIGSEGV:
            // The kernel tells no address of an access that the processor itself refuses.
            return info.si_code > 0 && info.si_code != SI_KERNEL && is_stack_overflow(fault_address(info), stack_pointer)
                       ? crash_code::stack_overflow
                       : crash_code::access_violation;
        case SIGBUS:
            return info.si_code == BUS_ADRALN ? crash_code::misaligned_access : crash_code::in_page_error;
        case SIGFPE:
            return arithmetic_code(info.si_code);
        case SIGILL:
            return info.si_code == ILL_PRVOPC || info.si_code == ILL_PRVREG ? crash_code::privileged_instruction
                                                                            : crash_code::illegal_instruction;
        default:
            return crash_code::aborted;
    }
}

crash_record record_of_signal(const siginfo_t& info, const native_crash& native) {
    return record_of(crash_code_of(info, stack_pointer_of(*native.context)), native);
}

crash_record record_of_failure(const native_crash& native) {
    return record_of(crash_code::unhandled_failure, native);
}

std::string describe_signal(const siginfo_t& info) {
    const char* const name = sigabbrev_np(info.si_signo);
    std::string text =
        "Signal " + std::to_string(info.si_signo) + " (SIG" + (name != nullptr ? name : "?") + ") ends the process: ";
    if (was_sent(info)) {
        return text + (info.si_pid == getpid() ? "it has sent it to itself."
                                               : "process " + std::to_string(info.si_pid) + " of user " +
                                                     std::to_string(info.si_uid) + " has sent it.");
    }
    if (info.si_code == SI_KERNEL) {
        return text + "the processor has refused an instruction.";
    }
    const bool by_access = info.si_signo == SIGSEGV || info.si_signo == SIGBUS;
    return text + (by_access ? "memory could not be reached at address " : "it failed over the instruction at address ") +
           address_text(fault_address(info)) + ".";
}

}  // namespace platform::linux_os
