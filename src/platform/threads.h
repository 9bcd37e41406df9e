#pragma once

#include <string>

namespace platform {

/// What the operating system knows of the process's threads beyond their identity (process.h). Callable from any thread; nothing
/// blocks.
class threads {
public:
    virtual ~threads() = default;

    /// Gives the calling thread a description that debuggers and process lists show. A system may keep only the beginning. False
    /// when it takes none: the thread is none the worse for it.
    virtual bool describe_current_thread(const std::u16string& description) = 0;
};

}  // namespace platform
