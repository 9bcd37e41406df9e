#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/virtual_library/logical_unit.h"

namespace platform::tape_library {

/// A tape drive: logical unit 1 and up, one for each drive element, in the order of the elements.
class drive_unit : public logical_unit {
public:
    drive_unit(library_core& core, std::uint8_t number, const drive_definition& definition, std::uint16_t address);

    /// Address of the drive's element.
    [[nodiscard]] std::uint16_t address() const { return address_; }
    [[nodiscard]] std::string shown_serial() const override;

    /// The robot pushed a cartridge in: the drive begins to load it.
    void cartridge_arrived();
    /// The robot took the cartridge out.
    void cartridge_left();

protected:
    const command_traits& traits_of(std::uint8_t code) const override;
    command_result dispatch(command_request& request) override;
    void settle() override;
    void forget(const nexus& initiator) override;
    std::vector<std::uint8_t> more_vital_pages() const override;
    byte_vector vital_page_body(std::uint8_t page) const override;
    std::vector<std::uint8_t> mode_pages() const override;
    byte_vector mode_page(std::uint8_t page) const override;
    std::uint8_t medium_type() const override;
    std::uint8_t device_specific() const override;
    byte_vector block_descriptor() const override;

private:
    static const command_table<drive_unit>& commands();

    [[nodiscard]] const element& place() const { return *core_.elements.find(address_); }
    /// `sense::none` when a tape is loaded and can be used.
    [[nodiscard]] sense_code readiness() const;
    /// Writes the state after `loaded` was changed; takes the change back on failure.
    [[nodiscard]] bool set_loaded(bool loaded);

    command_result test_unit_ready(command_request& request);
    command_result rewind(command_request& request);
    command_result read_block_limits(command_request& request);
    command_result load_unload(command_request& request);
    command_result load(command_request& request);
    command_result unload(command_request& request);

    std::uint16_t address_;
    bool loading_ = false;
    std::int64_t ready_at_ = 0;         ///< while loading: milliseconds of the clock
    const nexus* loaded_by_ = nullptr;  ///< who asked for the load and needs no attention for it
};

}  // namespace platform::tape_library
