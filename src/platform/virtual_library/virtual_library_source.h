#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_transport.h"
#include "platform/virtual_library/virtual_library.h"

namespace platform::tape_library {

/// Virtual libraries as logical units: the units of the first folder, then those of the second, and so on. The target number is
/// the library's place in the list, the logical unit number the unit's. An identity is the folder, "#" and the number of the
/// unit.
///
/// A library is opened when it is first seen and stays open; one that can't be opened is tried again at each look. The source
/// is one initiator: all who open a unit through it share its unit attentions, as the programs of one machine do.
class virtual_library_source : public device_stack::scsi_source {
public:
    /// Opens what can be opened now.
    explicit virtual_library_source(std::vector<std::u16string> folders);

    [[nodiscard]] std::vector<device_stack::logical_unit_info> enumerate() override;
    /// Error 2: no such unit, or its library can't be opened.
    [[nodiscard]] std::shared_ptr<device_stack::scsi_transport> open(const std::string& identity, std::uint32_t& error) override;

    /// Why the libraries that aren't open aren't, one text for each.
    [[nodiscard]] std::vector<std::string> problems();

private:
    struct entry {
        std::u16string folder;
        std::string name;  ///< the folder, UTF-8
        std::shared_ptr<virtual_library> library;
        std::vector<std::shared_ptr<device_stack::scsi_transport>> transports;  ///< by logical unit
        std::string problem;
    };

    static void try_open(entry& one);

    std::mutex mutex_;
    std::vector<entry> entries_;
};

}  // namespace platform::tape_library
