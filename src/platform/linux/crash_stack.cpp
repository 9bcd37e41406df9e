#include "platform/linux/crash_stack.h"

#include <dlfcn.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <bit>
#include <span>

namespace platform::linux_os {

namespace {

constexpr std::size_t most_frames_of_the_handler = 64;

struct raw_frame {
    std::uint64_t instruction;
    std::uint64_t stack_pointer;  ///< as the function has it while the inner one runs
};

struct collection {
    std::vector<raw_frame> frames;
    std::size_t limit;
};

_Unwind_Reason_Code collect(_Unwind_Context* context, void* argument) {
    auto& collected = *static_cast<collection*>(argument);
    collected.frames.push_back({_Unwind_GetIP(context), _Unwind_GetCFA(context)});
    return collected.frames.size() < collected.limit ? _URC_NO_REASON : _URC_END_OF_STACK;
}

/// Reads words of memory that may not be there. False: none of them could be read.
bool read_words(std::uint64_t address, std::span<std::uint64_t> words) {
    iovec own{words.data(), words.size_bytes()};
    iovec other{std::bit_cast<void*>(static_cast<std::uintptr_t>(address)), words.size_bytes()};
    return process_vm_readv(getpid(), &own, 1, &other, 1, 0) == static_cast<ssize_t>(words.size_bytes());
}

bool is_code(std::uint64_t address) {
    Dl_info found{};
    return dladdr(std::bit_cast<void*>(static_cast<std::uintptr_t>(address)), &found) != 0;
}

/// A jump to where no code is, through an empty pointer for instance, leaves nothing to find the caller by but the return address
/// on top of the stack. While this lives the thread seems to be there.
class at_caller_of_nothing {
public:
    explicit at_caller_of_nothing(ucontext_t& context)
        : context_(context), instruction_(instruction_of(context)), stack_pointer_(stack_pointer_of(context)) {
        std::uint64_t caller = 0;
        if (!is_code(instruction_) && read_words(stack_pointer_, {&caller, 1}) && is_code(caller)) {
            set_instruction_and_stack(context_, caller, stack_pointer_ + sizeof(caller));
            moved_ = true;
        }
    }
    ~at_caller_of_nothing() { set_instruction_and_stack(context_, instruction_, stack_pointer_); }
    at_caller_of_nothing(const at_caller_of_nothing&) = delete;
    at_caller_of_nothing& operator=(const at_caller_of_nothing&) = delete;

    [[nodiscard]] bool moved() const { return moved_; }
    [[nodiscard]] raw_frame innermost() const { return {instruction_, stack_pointer_}; }

private:
    ucontext_t& context_;
    const std::uint64_t instruction_;
    const std::uint64_t stack_pointer_;
    bool moved_ = false;
};

std::vector<raw_frame> unwind(std::size_t limit) {
    collection collected{{}, limit};
    collected.frames.reserve(limit);
    _Unwind_Backtrace(collect, &collected);
    return std::move(collected.frames);
}

/// Without those of the handler, which is on the same stack only when no signal has brought it there.
std::vector<raw_frame> crashed_frames(const native_crash& native, std::size_t limit) {
    const at_caller_of_nothing moment(*native.context);
    std::vector<raw_frame> frames = unwind(limit + most_frames_of_the_handler);
    const std::uint64_t instruction = instruction_of(*native.context);
    const std::uint64_t stack_pointer = stack_pointer_of(*native.context);
    const auto first = std::find_if(frames.begin(), frames.end(), [&](const raw_frame& frame) {
        return native.of_signal ? frame.instruction == instruction && frame.stack_pointer == stack_pointer
                                : frame.stack_pointer >= stack_pointer;
    });
    frames.erase(frames.begin(), first);
    if (frames.empty() || moment.moved()) {
        frames.insert(frames.begin(), moment.innermost());
    }
    return frames;
}

/// Where a function keeps its caller's frame register, if it does so, with the return address behind it and the arguments that came
/// by the stack behind that.
constexpr std::uint64_t frame_to_arguments = 2 * sizeof(std::uint64_t);

stack_frame finished(const raw_frame& frame, const raw_frame* caller, bool innermost) {
    stack_frame result;
    result.address = innermost ? frame.instruction : frame.instruction - 1;
    result.frame = frame.stack_pointer;
    if (caller != nullptr) {
        result.frame = caller->stack_pointer - frame_to_arguments;
        result.return_address = caller->instruction;
        read_words(caller->stack_pointer, result.parameters);
    }
    return result;
}

}  // namespace

std::vector<stack_frame> walk_crashed_stack(const native_crash* native, std::size_t limit) {
    const std::vector<raw_frame> frames = native != nullptr ? crashed_frames(*native, limit) : unwind(limit);
    std::vector<stack_frame> result;
    for (std::size_t index = 0; index < std::min(frames.size(), limit); ++index) {
        const raw_frame* const caller = index + 1 < frames.size() ? &frames[index + 1] : nullptr;
        result.push_back(finished(frames[index], caller, index == 0));
    }
    return result;
}

}  // namespace platform::linux_os
