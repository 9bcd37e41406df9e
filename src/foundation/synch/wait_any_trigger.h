#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <vector>

#include "foundation/synch/trigger.h"
#include "foundation/win/win_event.h"

namespace synch {

/// One event for several conditions, each known by an id below the count: the event is signalled while any of them is true.
/// Callable from any thread. An id at or above the count is an `exc::runtime_exc_t`.
class wait_any_trigger_t {
public:
    /// Throws `std::length_error` for a count that no vector of bits can have.
    explicit wait_any_trigger_t(std::uint32_t count);
    wait_any_trigger_t(const wait_any_trigger_t&) = delete;
    wait_any_trigger_t& operator=(const wait_any_trigger_t&) = delete;

    void set(std::uint32_t id);
    void clear(std::uint32_t id);
    /// Only checks the id.
    void touch(std::uint32_t id) const;
    /// Blocks until some condition is true: then true, at once if one is. False after the limit.
    [[nodiscard]] bool wait(std::uint32_t milliseconds = win::longest_wait) const;

private:
    mutable boost::mutex mutex_;  ///< below the mutex of any trigger
    std::vector<bool> bits_;
    const std::uint32_t count_;
    win::win_manual_reset_event_t event_;
};

/// Makes one trigger one of the conditions: added to it as a sink. Keeps the target alive.
class wait_any_signaler_t final : public trigger_sink_t {
public:
    /// Throws when the target has no such id.
    wait_any_signaler_t(std::uint32_t id, boost::shared_ptr<wait_any_trigger_t> target);
    void on_change(bool state) override;

private:
    const std::uint32_t id_;
    const boost::shared_ptr<wait_any_trigger_t> target_;
};

}  // namespace synch
