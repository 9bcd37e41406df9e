#pragma once

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "changer/changer_interface.h"
#include "changer/tape_variables.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"
#include "platform/testing/fakes.h"
#include "support/devices_in_front.h"
#include "support/failure_text.h"

/// What the changer tests share: fakes, a changer with a link name, and devices that can fail in the ways of real ones.
namespace changer_tests {

using bytes = std::vector<std::uint8_t>;
using platform::testing::device_answer;
using platform::testing::device_request;
using test_support::failure_of;
using test_support::failure_text;

inline const std::string changer_link = "\\\\.\\Changer0";
inline constexpr char tape_key[] = "SOFTWARE\\Tarno\\Tarno Backup Tape";

/// As an answer's error: the control fails and leaves 0 as the last error.
inline constexpr std::uint32_t silent_failure = 0xE0000001;

/// Scripted devices whose failures may be silent, or come with a block.
class failing_devices final : public test_support::devices_in_front {
public:
    using devices_in_front::devices_in_front;

    bool close_device(platform::device_handle device) override {
        if (close_error != 0) {
            devices_in_front::close_device(device);
            platform::system().errors->set_last_error(close_error);
            return false;
        }
        return devices_in_front::close_device(device);
    }
    bool control(platform::device_handle device, std::uint32_t code, std::span<const std::uint8_t> input,
                 std::span<std::uint8_t> output, std::uint32_t& returned) override {
        const bool done = devices_in_front::control(device, code, input, output, returned);
        return done || failed();
    }
    bool pass_through_direct(platform::device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                             std::uint32_t& returned) override {
        const bool done = devices_in_front::pass_through_direct(device, block, data, returned);
        if (done && fail_after_block) {
            fail_after_block = false;
            platform::system().errors->set_last_error(platform::error::io_device);
            return false;
        }
        return done || failed();
    }

    /// Closing fails with this.
    std::uint32_t close_error = 0;
    /// The next direct pass-through fails with 1117 after its block was answered.
    bool fail_after_block = false;

private:
    static bool failed() {
        if (platform::system().errors->last_error() == silent_failure) {
            platform::system().errors->set_last_error(0);
        }
        return false;
    }
};

/// A system of fakes with one changer.
class world {
public:
    world() : devices(system.devices), scope_(with_devices()) { system.devices.add_device(changer_link); }
    ~world() {
        gEnableScsiChanger = false;
        gUserSlotPortion = 50;
    }

    void set_timeout(std::uint32_t seconds) { system.registry.set_dword(tape_key, "TapeDeviceNotReadyTimeoutSec", seconds); }
    void set_indirect(std::uint32_t value) { system.registry.set_dword(tape_key, "EnableIndirectScsi", value); }
    [[nodiscard]] std::vector<std::int64_t> sleeps() const { return system.clock.sleeps(); }
    [[nodiscard]] std::vector<std::string> log() const { return system.log.lines(); }
    /// Lines of the log that contain this.
    [[nodiscard]] std::vector<std::string> log_with(std::string_view part) const {
        std::vector<std::string> found;
        for (const std::string& line : log()) {
            if (line.find(part) != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }
    /// Controls with this code, in order; 0x4D014 are the direct pass-throughs.
    [[nodiscard]] std::vector<device_request> controls(std::uint32_t code) const {
        std::vector<device_request> found;
        for (device_request& request : system.devices.requests()) {
            const bool is_control = request.what == device_request::kind::control || request.what == device_request::kind::direct;
            if (is_control && request.code == code) {
                found.push_back(std::move(request));
            }
        }
        return found;
    }

    platform::testing::test_system system;
    failing_devices devices;
    boost::shared_ptr<boost::mutex> mutex = boost::make_shared<boost::mutex>();

private:
    platform::system_set with_devices() {
        platform::system_set set = system.fakes();
        set.devices = &devices;
        return set;
    }

    platform::scoped_system scope_;
};

/// A zero-filled area with some bytes at its start.
inline bytes padded(bytes start, std::size_t size) {
    start.resize(size);
    return start;
}

inline bytes text_bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

inline bytes joined(std::initializer_list<bytes> parts) {
    bytes all;
    for (const bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

inline bytes fixed_sense(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) {
    return {0x70, 0, key, 0, 0, 0, 0, 10, 0, 0, 0, 0, asc, ascq, 0, 0, 0, 0};
}

}  // namespace changer_tests
