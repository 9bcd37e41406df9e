#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/device_stack/scsi_transport.h"
#include "platform/files.h"
#include "platform/virtual_library/changer_unit.h"
#include "platform/virtual_library/fault_script.h"
#include "platform/virtual_library/inventory.h"
#include "platform/virtual_library/library_core.h"
#include "platform/virtual_library/personality.h"

namespace platform::tape_library {

/// One cartridge and the address of the element it is in.
struct cartridge_place {
    std::uint16_t element = 0;
    std::string barcode;
};

/// A tape library emulated in process: a changer at logical unit 0 and its drives behind it. What it is stands in the folder's
/// `library.xml`, what is where in its state file, what goes wrong in `faults.xml`. While the object lives no other one, in
/// this process or another, can have the folder. Callable from any thread; time passes by the port's clock.
class virtual_library : public std::enable_shared_from_this<virtual_library> {
public:
    /// Throws `library_error` with file and reason when the folder's files can't be used or are in use.
    [[nodiscard]] static std::shared_ptr<virtual_library> open(const std::u16string& folder);
    ~virtual_library();
    virtual_library(const virtual_library&) = delete;
    virtual_library& operator=(const virtual_library&) = delete;

    [[nodiscard]] const personality& made_of() const { return core_.made_of; }
    /// Number of logical units, the changer included.
    [[nodiscard]] std::uint8_t units() const { return static_cast<std::uint8_t>(drives_.size() + 1); }

    /// A new initiator for a unit; each transport is one, until it is destroyed. Keeps the library open.
    [[nodiscard]] std::shared_ptr<device_stack::scsi_transport> connect(std::uint8_t unit);

    [[nodiscard]] fault_script& faults() { return core_.faults; }

    // What an operator at the library does and sees.
    void open_door();
    /// Whoever closes the door may have changed the cartridges: the changer's initiators get 28/00.
    void close_door();
    /// False while an initiator prevents it.
    bool open_ports();
    /// The changer's initiators get 28/01.
    void close_ports();
    /// Puts a cartridge into an empty port; false when it isn't one.
    bool insert(std::uint16_t port, const std::string& barcode);
    /// Takes a cartridge out of a port; false when there is none, or when an initiator prevents it.
    bool remove(std::uint16_t port);
    [[nodiscard]] std::optional<std::uint16_t> locate(std::string_view barcode);
    /// All cartridges, in ascending order of their elements.
    [[nodiscard]] std::vector<cartridge_place> cartridges();

    void raise(std::uint8_t unit, const sense_code& attention);
    /// TapeAlert flag 1 to 64 of a unit.
    void set_alert(std::uint8_t unit, std::uint8_t flag, bool active);
    /// `sense::none`: the element is well again.
    void set_exception(std::uint16_t element, const sense_code& code);

private:
    friend class library_transport;

    virtual_library(personality value, std::u16string state_path, std::u16string faults_path, std::unique_ptr<file> lock);

    [[nodiscard]] logical_unit& at(std::uint8_t unit) const;
    [[nodiscard]] device_stack::scsi_outcome execute(logical_unit& unit, nexus& initiator,
                                                     const device_stack::scsi_command& command);
    [[nodiscard]] bool change_port(std::uint16_t port, std::optional<cartridge> content);

    std::unique_ptr<file> lock_;
    library_core core_;
    changer_unit::drive_list drives_;
    changer_unit changer_;
};

}  // namespace platform::tape_library
