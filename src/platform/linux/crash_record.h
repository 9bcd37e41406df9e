#pragma once

#include <signal.h>
#include <ucontext.h>

#include <string>

#include "platform/crash.h"

namespace platform::linux_os {

/// What a record's native part points to.
struct native_crash {
    ucontext_t* context;  ///< the thread as it was
    bool of_signal;       ///< the kernel has interrupted it, and the handler has a stack of its own
};

/// The Windows number for a signal's reason. `stack_pointer` tells an overflow of the stack from other bad accesses.
[[nodiscard]] std::uint32_t crash_code_of(const siginfo_t& info, std::uint64_t stack_pointer);

/// Both keep a pointer to `native`.
[[nodiscard]] crash_record record_of_signal(const siginfo_t& info, const native_crash& native);
/// Of an exception that reached no handler.
[[nodiscard]] crash_record record_of_failure(const native_crash& native);

/// One sentence: which signal, and what for or from whom.
[[nodiscard]] std::string describe_signal(const siginfo_t& info);

/// The interrupted instruction and the stack's end; 0 on processors whose registers aren't known here.
[[nodiscard]] std::uint64_t instruction_of(const ucontext_t& context);
[[nodiscard]] std::uint64_t stack_pointer_of(const ucontext_t& context);
void set_instruction_and_stack(ucontext_t& context, std::uint64_t instruction, std::uint64_t stack_pointer);

}  // namespace platform::linux_os
