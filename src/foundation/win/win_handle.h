#pragma once

#include "platform/events.h"

namespace win {

/// Owns a system handle and closes it. 0 and the invalid value both count as empty. Used by one thread at a time, but for `get`.
class win_handle_t {
public:
    win_handle_t() = default;
    explicit win_handle_t(platform::wait_handle handle) : handle_(handle) {}
    ~win_handle_t() { close(); }
    win_handle_t(const win_handle_t&) = delete;
    win_handle_t& operator=(const win_handle_t&) = delete;

    [[nodiscard]] bool empty() const;
    /// The handle. Throws `exc::runtime_exc_t` when there is none.
    [[nodiscard]] platform::wait_handle get() const;
    /// Takes a handle over. Throws `exc::runtime_exc_t` when there is one already; the new one stays the caller's then.
    void assign(platform::wait_handle handle);
    /// Closes the handle, if there is one, and is empty again.
    void close();

private:
    platform::wait_handle handle_ = platform::no_wait_object;
};

}  // namespace win
