#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "command/erase_worker.h"
#include "foundation/util/bytes.h"
#include "foundation/winxml/xml.h"
#include "platform/scsi_records.h"
#include "support/gated_tape.h"
#include "support/service_fixture.h"

namespace test_support {

/// The link name of a drive by its number.
inline std::string tape_link(unsigned number) {
    return "\\\\.\\Tape" + std::to_string(number);
}

/// A server with drives that answer as real ones do, each with its own identity, and whose faults a test chooses.
class DriveFixture : public ServiceFixture {
protected:
    using bytes = std::vector<std::uint8_t>;
    using device_answer = platform::testing::device_answer;
    using device_request = platform::testing::device_request;
    using tape_kind = platform::testing::tape_request::kind;
    /// The error with which a drive meets a control; 0 lets it work. Set before the calls; asked on any thread.
    using fault = std::function<std::uint32_t(const device_request& request)>;

    DriveFixture() : tape_(system_.tape), scope_(with_tape()) {
        system_.registry.add_key("HARDWARE\\DEVICEMAP\\Scsi");
        system_.devices.on_control([this](const device_request& request) { return answer(request); });
        system_.devices.on_direct([this](const device_request& request) { return answer(request); });
        platform::TAPE_GET_DRIVE_PARAMETERS parameters;
        parameters.DefaultBlockSize = 65536;
        parameters.MinimumBlockSize = 1;
        parameters.MaximumBlockSize = 0x800000;
        system_.tape.set_drive(parameters);
    }

    ~DriveFixture() override {
        tape_.open_gate();
        await_threads();
    }

    /// Drives "\\.\Tape0" and on. The drive of number n has the address port 2, path 0, target n, unit 0.
    void plug_in_drives(unsigned count) {
        for (unsigned number = 0; number < count; ++number) {
            const std::string digits = std::to_string(1000 + number).substr(1);
            const std::string leaf =
                "HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port 2\\Scsi Bus 0\\Target Id " + digits + "\\Logical Unit Id 0";
            system_.registry.set_string(leaf, "Type", "TapePeripheral");
            system_.registry.set_string(leaf, "DeviceName", "Tape" + std::to_string(number));
            system_.registry.set_string(leaf, "SerialNumber", "TRNDRV" + digits);
            system_.devices.add_device(tape_link(number));
        }
    }

    /// A call by the owner about the first drive.
    call_answer drive_call(const std::string& procedure, const std::string& arguments = "") {
        return owner_call(procedure, "<SymLinkName value=\"\\\\.\\Tape0\" />" + arguments);
    }

    /// The text of an output value, with its escapes resolved; of the first element of that name.
    static std::string output_value(const call_answer& answer, const std::string& name) {
        EXPECT_TRUE(answer.success) << answer.error;
        const winxml::document_t output = winxml::parse_xml(text::utf8_to_wide(answer.output.value_or("<none />")));
        const winxml::node_t root = winxml::get_element(winxml::document_node(output), "OutputArguments");
        return winxml::get_attribute(winxml::get_element(root, name), "value");
    }

    /// Returns when no erase is running any more.
    static void await_threads() {
        while (EraseThreadsRunning()) {
            std::this_thread::yield();
        }
    }

    /// Lines of the log that hold this text.
    std::vector<std::string> log_lines_with(std::string_view part) const {
        std::vector<std::string> found;
        for (const std::string& line : system_.log.lines()) {
            if (line.find(part) != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }

    gated_tape tape_;
    fault fault_ = [](const device_request&) { return platform::error::success; };
    /// What READ ATTRIBUTE brings.
    bytes attributes_ = {0, 0, 0, 0};

private:
    platform::system_set with_tape() {
        platform::system_set set = system_.fakes();
        set.tape_functions = &tape_;
        return set;
    }

    static bytes bytes_of(std::string_view text) { return {text.begin(), text.end()}; }

    template <typename Record>
    static device_answer record_answer(const Record& record) {
        const std::span<const std::uint8_t> content = util::record_bytes(record);
        device_answer answer;
        answer.output.assign(content.begin(), content.end());
        return answer;
    }

    static unsigned number_of(const device_request& request) {
        return static_cast<unsigned>(std::stoul(request.link_name.substr(tape_link(0).size() - 1)));
    }

    device_answer answer(const device_request& request) const {
        if (const std::uint32_t error = fault_(request); error != platform::error::success) {
            return {error, {}, {}, {}};
        }
        const auto number = number_of(request);
        switch (request.code) {
            case platform::ioctl::storage_get_device_number:
                return record_answer(platform::STORAGE_DEVICE_NUMBER{platform::FILE_DEVICE_TAPE, number, 0});
            case platform::ioctl::scsi_get_address:
                return record_answer(platform::SCSI_ADDRESS{8, 2, 0, static_cast<std::uint8_t>(number), 0});
            case platform::ioctl::storage_media_removal:
                return {};
            default:
                return platform::testing::answer_scsi(request, 0, {}, command_data(request, number));
        }
    }

    bytes command_data(const device_request& request, unsigned number) const {
        const bytes cdb = platform::testing::cdb_of(request);
        if (cdb.at(0) == 0x8C) {
            return attributes_;
        }
        bytes data;
        if (cdb.at(1) != 0) {
            data = {1, 0x80, 0, 9};
            const bytes serial = bytes_of("TRNDRV" + std::to_string(1000 + number).substr(1));
            data.insert(data.end(), serial.begin(), serial.end());
            data.push_back(0);
        } else {
            data = {1, 0x80, 6, 2, 31, 0, 0, 0};
            const bytes identity = bytes_of("TARNO   LTO-8 Drive     TR01");
            data.insert(data.end(), identity.begin(), identity.end());
        }
        return data;
    }

    platform::scoped_system scope_;
};

}  // namespace test_support
