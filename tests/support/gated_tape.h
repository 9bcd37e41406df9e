#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

#include "platform/testing/scripted_tape.h"

namespace test_support {

/// Scripted tape functions in which a test can hold up the erases, and look at each read of the medium while it is done.
class gated_tape final : public platform::tape_functions {
public:
    explicit gated_tape(platform::testing::scripted_tape& inner) : inner_(inner) {}

    std::uint32_t get_parameters(platform::device_handle device, std::uint32_t operation, std::uint32_t& size,
                                 std::span<std::uint8_t> record) override {
        if (operation == platform::GET_TAPE_MEDIA_INFORMATION && on_media_read) {
            on_media_read();
        }
        return inner_.get_parameters(device, operation, size, record);
    }
    std::uint32_t prepare(platform::device_handle device, std::uint32_t operation, bool immediate) override {
        return inner_.prepare(device, operation, immediate);
    }
    std::uint32_t set_position(platform::device_handle device, std::uint32_t method, std::uint32_t partition, std::uint64_t offset,
                               bool immediate) override {
        return inner_.set_position(device, method, partition, offset, immediate);
    }
    std::uint32_t erase(platform::device_handle device, std::uint32_t type, bool immediate) override {
        {
            std::unique_lock lock(mutex_);
            ++waiting_;
            changed_.notify_all();
            changed_.wait(lock, [this] { return open_; });
            --waiting_;
        }
        return inner_.erase(device, type, immediate);
    }
    std::uint32_t get_status(platform::device_handle device) override { return inner_.get_status(device); }

    /// Erases that come now stay until the gate opens.
    void close_gate() {
        const std::lock_guard lock(mutex_);
        open_ = false;
    }
    void open_gate() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    /// Returns when so many erases stand at the gate.
    void await_waiting(std::size_t count) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return waiting_ == count; });
    }

    /// Runs before each read of the medium, on the thread that reads.
    std::function<void()> on_media_read;

private:
    platform::testing::scripted_tape& inner_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = true;
    std::size_t waiting_ = 0;
};

}  // namespace test_support
