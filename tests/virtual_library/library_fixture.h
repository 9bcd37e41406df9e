#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "platform/testing/fakes.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library.h"

namespace platform::tape_library {

using device_stack::data_direction;
using device_stack::scsi_command;
using device_stack::scsi_outcome;
using device_stack::scsi_transport;

/// An outcome with the data that came.
struct answer {
    scsi_outcome outcome;
    byte_vector data;
};

/// Sends a command with room for `room` bytes.
inline answer send(scsi_transport& unit, const byte_vector& cdb, std::size_t room = 0, std::int64_t timeout_seconds = 60) {
    answer result;
    result.data.assign(room, 0xEE);
    scsi_command command;
    std::copy(cdb.begin(), cdb.end(), command.cdb.begin());
    command.cdb_length = static_cast<std::uint8_t>(cdb.size());
    command.direction = room == 0 ? data_direction::none : data_direction::from_device;
    command.data = result.data;
    command.timeout_seconds = timeout_seconds;
    result.outcome = unit.execute(command);
    result.data.resize(result.outcome.transferred);
    return result;
}

inline byte_vector move_cdb(std::uint16_t source, std::uint16_t destination, std::uint16_t transport = 0) {
    const auto high = [](std::uint16_t value) { return static_cast<std::uint8_t>(value >> 8); };
    const auto low = [](std::uint16_t value) { return static_cast<std::uint8_t>(value & 0xFF); };
    return {0xA5, 0, high(transport), low(transport), high(source), low(source), high(destination), low(destination), 0, 0, 0, 0};
}

inline byte_vector status_cdb(std::uint8_t type, std::uint16_t first, std::uint16_t count, bool tags = true,
                              bool identifiers = false, std::uint32_t allocation = 0xFFFF) {
    return {0xB8,
            static_cast<std::uint8_t>(type | (tags ? 0x10 : 0)),
            static_cast<std::uint8_t>(first >> 8),
            static_cast<std::uint8_t>(first & 0xFF),
            static_cast<std::uint8_t>(count >> 8),
            static_cast<std::uint8_t>(count & 0xFF),
            static_cast<std::uint8_t>(identifiers ? 1 : 0),
            static_cast<std::uint8_t>(allocation >> 16),
            static_cast<std::uint8_t>((allocation >> 8) & 0xFF),
            static_cast<std::uint8_t>(allocation & 0xFF),
            0,
            0};
}

inline const byte_vector test_unit_ready_cdb{0x00, 0, 0, 0, 0, 0};

/// The sense codes of an outcome; `sense::none` for good status.
inline sense_code sense_of(const scsi_outcome& outcome) {
    if (outcome.scsi_status != scsi_status::check_condition || outcome.sense.size() < 14) {
        return sense::none;
    }
    return {static_cast<std::uint8_t>(outcome.sense[2] & 0x0F), outcome.sense[12], outcome.sense[13]};
}

/// "ok", "busy", "transport 121", or "5/3b/0e": what became of a command, in a form that a failed test can show.
inline std::string outcome_text(const scsi_outcome& outcome) {
    char text[32] = "ok";
    const sense_code code = sense_of(outcome);
    if (outcome.transport_error != 0) {
        std::snprintf(text, sizeof text, "transport %u", outcome.transport_error);
    } else if (outcome.scsi_status == scsi_status::check_condition) {
        std::snprintf(text, sizeof text, "%x/%02x/%02x", code.key, code.asc, code.ascq);
    } else if (outcome.scsi_status != scsi_status::good) {
        std::snprintf(text, sizeof text, "status %02x", outcome.scsi_status);
    }
    return text;
}

inline std::string result(scsi_transport& unit, const byte_vector& cdb, std::size_t room = 0, std::int64_t timeout_seconds = 60) {
    return outcome_text(send(unit, cdb, room, timeout_seconds).outcome);
}

/// A library with transport 0, ports 0x10 and 0x11, drives 0x100 and 0x101, slots 0x1000 to 0x1017, the first 20 of them full.
class library_test : public ::testing::Test {
protected:
    static constexpr std::uint16_t port = 0x10;
    static constexpr std::uint16_t drive_element = 0x100;
    static constexpr std::uint16_t slot = 0x1000;

    void start(const personality& value = make_personality()) {
        stop();
        create_library(folder, value);
        open();
    }

    void open() {
        library = virtual_library::open(folder);
        changer = library->connect(0);
        drive = library->units() > 1 ? library->connect(1) : nullptr;
    }

    void stop() {
        changer.reset();
        drive.reset();
        library.reset();
    }

    [[nodiscard]] std::string move(std::uint16_t source, std::uint16_t destination) {
        return result(*changer, move_cdb(source, destination));
    }

    testing::test_system system;
    const std::u16string folder = u"C:\\library";
    std::shared_ptr<virtual_library> library;
    std::shared_ptr<scsi_transport> changer;
    std::shared_ptr<scsi_transport> drive;
};

}  // namespace platform::tape_library
