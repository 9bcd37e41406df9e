#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "changer/changer_world.h"
#include "drive/drive_handle.h"
#include "support/failure_text.h"
#include "support/tape_variables_scope.h"

/// What the drive tests share: fakes with one drive, and tape functions that can do more than answer.
namespace drive_tests {

using changer_tests::bytes;
using changer_tests::device_answer;
using changer_tests::device_request;
using changer_tests::silent_failure;
using test_support::failure_of;
using test_support::failure_text;
using kind = platform::testing::tape_request::kind;

inline const std::string drive_link = "\\\\.\\Tape0";

inline constexpr std::uint32_t pass_through = 0x4D004;
inline constexpr std::uint32_t pass_through_direct = 0x4D014;
inline constexpr std::uint32_t get_scsi_address = 0x41018;
inline constexpr std::uint32_t get_device_number = 0x2D1080;
inline constexpr std::uint32_t query_property = 0x2D1400;
inline constexpr std::uint32_t media_removal = 0x2D4804;

/// Scripted tape functions that run something before they answer: it can let time pass, or throw.
class hooked_tape final : public platform::tape_functions {
public:
    explicit hooked_tape(platform::testing::scripted_tape& inner) : inner_(inner) {}

    std::uint32_t get_parameters(platform::device_handle device, std::uint32_t operation, std::uint32_t& size,
                                 std::span<std::uint8_t> record) override {
        before();
        return inner_.get_parameters(device, operation, size, record);
    }
    std::uint32_t prepare(platform::device_handle device, std::uint32_t operation, bool immediate) override {
        before();
        return inner_.prepare(device, operation, immediate);
    }
    std::uint32_t set_position(platform::device_handle device, std::uint32_t method, std::uint32_t partition, std::uint64_t offset,
                               bool immediate) override {
        before();
        return inner_.set_position(device, method, partition, offset, immediate);
    }
    std::uint32_t erase(platform::device_handle device, std::uint32_t type, bool immediate) override {
        before();
        return inner_.erase(device, type, immediate);
    }
    std::uint32_t get_status(platform::device_handle device) override {
        before();
        return inner_.get_status(device);
    }

    std::function<void()> before = [] {};

private:
    platform::testing::scripted_tape& inner_;
};

/// A system of fakes with one drive, "\\.\Tape0".
class world : public changer_tests::world {
public:
    world() : tape(system.tape), scope_(with_tape()) { system.devices.add_device(drive_link); }

    /// The error of each control with this code, 0 for success, in order; the last one goes on.
    void controls_end_with(std::uint32_t code, std::vector<std::uint32_t> errors, bytes output = {}) {
        const auto next = std::make_shared<std::size_t>(0);
        system.devices.on_control([=](const device_request& request) {
            if (request.code != code) {
                return device_answer{platform::error::invalid_function, {}, {}, {}};
            }
            const std::uint32_t error = errors.at(std::min((*next)++, errors.size() - 1));
            return device_answer{error, error == 0 ? output : bytes{}, {}, {}};
        });
    }
    /// Gives every command of the pass-through, of either form, this data.
    void data_of_commands(const bytes& data) {
        const auto answer = [=](const device_request& request) { return platform::testing::answer_scsi(request, 0, {}, data); };
        system.devices.on_direct(answer);
        system.devices.on_control(answer);
    }

    test_support::tape_variables_scope variables;
    hooked_tape tape;

private:
    platform::system_set with_tape() {
        platform::system_set set = platform::system();
        set.tape_functions = &tape;
        return set;
    }

    platform::scoped_system scope_;
};

class DriveTest : public ::testing::Test {
protected:
    drive_tests::world world;
};

/// `count` times the pause between two tries at a drive.
inline std::vector<std::int64_t> pauses(std::size_t count) {
    return std::vector<std::int64_t>(count, 10'000);
}

/// As `what()` shows a failed system call: the system's words, the program's, the number.
inline std::string system_failure(const std::string& system_text, const std::string& text, const std::string& code) {
    return system_text + "\n" + text + "\n--tr:Error code: " + code;
}

}  // namespace drive_tests
