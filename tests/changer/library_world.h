#pragma once

#include <boost/make_shared.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "changer/changer_interface.h"
#include "changer/tape_variables.h"
#include "platform/device_stack/io_manager.h"
#include "platform/testing/fakes.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library.h"

namespace changer_tests {

/// A command that reached the library, and what became of it.
struct sent_command {
    std::uint8_t opcode = 0;
    platform::device_stack::scsi_outcome outcome;

    [[nodiscard]] bool succeeded() const { return outcome.transport_error == 0 && outcome.scsi_status == 0; }
};

/// Writes down what goes through it.
class recording_transport final : public platform::device_stack::scsi_transport {
public:
    recording_transport(std::shared_ptr<scsi_transport> inner, std::vector<sent_command>& sent)
        : inner_(std::move(inner)), sent_(sent) {}

    [[nodiscard]] platform::device_stack::scsi_outcome execute(const platform::device_stack::scsi_command& command) override {
        sent_.push_back({command.cdb[0], inner_->execute(command)});
        return sent_.back().outcome;
    }

private:
    std::shared_ptr<scsi_transport> inner_;
    std::vector<sent_command>& sent_;
};

/// A virtual library's units as one source of devices. A fresh initiator for each opening.
class library_source final : public platform::device_stack::scsi_source {
public:
    library_source(std::shared_ptr<platform::tape_library::virtual_library> library, std::vector<sent_command>& sent)
        : library_(std::move(library)), sent_(sent) {}

    std::vector<platform::device_stack::logical_unit_info> enumerate() override {
        std::vector<platform::device_stack::logical_unit_info> units;
        for (std::uint8_t unit = 0; unit < library_->units(); ++unit) {
            platform::device_stack::logical_unit_info info;
            info.peripheral_type = unit == 0 ? 8 : 1;
            info.identity = std::to_string(unit);
            info.serial = unit == 0 ? library_->made_of().serial : library_->made_of().drive_units.at(unit - 1u).serial;
            info.location.lun = unit;
            units.push_back(info);
        }
        return units;
    }
    std::shared_ptr<platform::device_stack::scsi_transport> open(const std::string& identity, std::uint32_t&) override {
        return std::make_shared<recording_transport>(library_->connect(static_cast<std::uint8_t>(std::stoi(identity))), sent_);
    }

private:
    std::shared_ptr<platform::tape_library::virtual_library> library_;
    std::vector<sent_command>& sent_;
};

/// A system of fakes whose devices are real class drivers over a virtual library: 24 slots with 20 cartridges in them, 2 ports,
/// 2 drives; the changer is "\\.\Changer0".
class library_world {
public:
    explicit library_world(std::vector<std::string> without_driver = {})
        : library(make_library()),
          manager({std::make_shared<library_source>(library, sent)}, std::move(without_driver)),
          scope_(with_manager()) {}

    [[nodiscard]] boost::shared_ptr<IChangerHandle> open(bool scsi, const std::string& link = "\\\\.\\Changer0") {
        return CreateChangerHandle(link, scsi, mutex);
    }
    void set_timeout(std::uint32_t seconds) {
        system.registry.set_dword("SOFTWARE\\Tarno\\Tarno Backup Tape", "TapeDeviceNotReadyTimeoutSec", seconds);
    }

    // Where the elements lie in the library's one address space.
    static constexpr std::uint16_t slots_from = 0x1000;
    static constexpr std::uint16_t ports_from = 0x10;
    static constexpr std::uint16_t drives_from = 0x100;

    platform::testing::test_system system;
    std::vector<sent_command> sent;
    std::shared_ptr<platform::tape_library::virtual_library> library;
    platform::device_stack::io_manager manager;
    boost::shared_ptr<boost::mutex> mutex = boost::make_shared<boost::mutex>();

private:
    static std::shared_ptr<platform::tape_library::virtual_library> make_library() {
        platform::tape_library::create_library(u"library");
        return platform::tape_library::virtual_library::open(u"library");
    }
    platform::system_set with_manager() {
        platform::system_set set = system.fakes();
        set.devices = &manager;
        return set;
    }

    platform::scoped_system scope_;
};

}  // namespace changer_tests
