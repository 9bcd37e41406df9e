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

/// A virtual library's units as one source of devices. A fresh initiator for each opening.
class library_source final : public platform::device_stack::scsi_source {
public:
    explicit library_source(std::shared_ptr<platform::tape_library::virtual_library> library) : library_(std::move(library)) {}

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
        return library_->connect(static_cast<std::uint8_t>(std::stoi(identity)));
    }

private:
    std::shared_ptr<platform::tape_library::virtual_library> library_;
};

/// A system of fakes whose devices are real class drivers over a virtual library: 24 slots with 20 cartridges in them, 2 ports,
/// 2 drives; the changer is "\\.\Changer0".
class library_world {
public:
    explicit library_world(std::vector<std::string> without_driver = {})
        : library(make_library()),
          manager({std::make_shared<library_source>(library)}, std::move(without_driver)),
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
