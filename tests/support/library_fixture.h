#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/device_stack/changer_database.h"
#include "platform/device_stack/io_manager.h"
#include "platform/device_stack/tape_drives.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library_source.h"
#include "support/service_fixture.h"

namespace test_support {

/// A server over virtual libraries in memory, with the real device stack, changer and drive code between. The libraries' first
/// slots hold cartridges "TRN001L8" and on.
class LibraryFixture : public ServiceFixture {
protected:
    using library_options = platform::tape_library::library_options;

    /// Makes new libraries and installs them as the only devices. Changers are "\\.\Changer0" and on.
    void plug_in(const std::vector<library_options>& libraries, std::vector<std::string> without_driver = {}) {
        std::vector<std::u16string> folders;
        for (const library_options& options : libraries) {
            folders.push_back(u"C:\\library" + text::to_wstring(made_++));
            platform::tape_library::create_library(folders.back(), options);
        }
        std::vector<std::shared_ptr<platform::device_stack::scsi_source>> sources;
        sources.push_back(std::make_shared<platform::tape_library::virtual_library_source>(folders));
        scope_.reset();
        system_.registry.remove_key("HARDWARE\\DEVICEMAP\\Scsi");
        manager_ = std::make_unique<platform::device_stack::io_manager>(std::move(sources), std::move(without_driver));
        changers_ = std::make_unique<platform::device_stack::changer_database>(*manager_);
        drives_ = std::make_unique<platform::device_stack::tape_drives>(*manager_);
        platform::system_set set = system_.fakes();
        set.devices = manager_.get();
        set.tape_functions = drives_.get();
        set.plug_and_play = changers_.get();
        scope_ = std::make_unique<platform::scoped_system>(set);
        system_.registry.add_key("HARDWARE\\DEVICEMAP\\Scsi");
        for (const platform::device_stack::device_map_leaf& leaf : manager_->device_map()) {
            add_leaf(leaf);
        }
    }

    /// A call by the owner about the first changer.
    call_answer changer_call(const std::string& procedure, const std::string& arguments = "") {
        return owner_call(procedure, "<SymLinkName value=\"\\\\.\\Changer0\" />" + arguments);
    }

    std::unique_ptr<platform::device_stack::io_manager> manager_;
    std::unique_ptr<platform::device_stack::changer_database> changers_;
    std::unique_ptr<platform::device_stack::tape_drives> drives_;
    std::unique_ptr<platform::scoped_system> scope_;

private:
    std::uint32_t made_ = 0;

    void add_leaf(const platform::device_stack::device_map_leaf& leaf) {
        const std::string path = "HARDWARE\\DEVICEMAP\\Scsi\\Scsi Port " + std::to_string(leaf.location.port) + "\\Scsi Bus " +
                                 std::to_string(leaf.location.path) + "\\Target Id " + std::to_string(leaf.location.target) +
                                 "\\Logical Unit Id " + std::to_string(leaf.location.lun);
        system_.registry.set_string(path, "Type", leaf.type);
        if (!leaf.device_name.empty()) {
            system_.registry.set_string(path, "DeviceName", leaf.device_name);
        }
        system_.registry.set_string(path, "SerialNumber", leaf.serial_number);
    }
};

}  // namespace test_support
