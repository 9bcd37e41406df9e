#pragma once

#include <mutex>

#include "platform/com_runtime.h"

/// Finds out, once, which threading model the COM library is to be entered with.
class com_model_probe {
public:
    /// Apartment threaded, or multi-threaded on a system without msiexec.exe in its folder. Callable from any thread.
    [[nodiscard]] platform::com_model model();

    /// The probe of the process.
    static com_model_probe& instance();

private:
    std::once_flag once_;
    platform::com_model model_ = platform::com_model::multi_threaded;
};

/// COM on the calling thread for a scope.
class com_scope {
public:
    /// Throws `exc::com_exc_t`.
    explicit com_scope(platform::com_model model);
    ~com_scope();
    com_scope(const com_scope&) = delete;
    com_scope& operator=(const com_scope&) = delete;
};
