#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/virtual_library/drive_unit.h"
#include "platform/virtual_library/logical_unit.h"

namespace platform::tape_library {

/// The robot: logical unit 0.
class changer_unit : public logical_unit {
public:
    using drive_list = std::vector<std::unique_ptr<drive_unit>>;

    /// The drives in the order of their elements.
    changer_unit(library_core& core, const drive_list& drives);

protected:
    const command_traits& traits_of(std::uint8_t code) const override;
    command_result dispatch(command_request& request) override;
    void settle() override;
    std::vector<std::uint8_t> mode_pages() const override;
    byte_vector mode_page(std::uint8_t page) const override;

private:
    /// One cartridge from here to there.
    struct step {
        std::uint16_t source = 0;
        std::uint16_t destination = 0;
    };

    static const command_table<changer_unit>& commands();

    command_result test_unit_ready(command_request& request);
    command_result take_inventory(command_request& request);
    command_result position_to_element(command_request& request);
    command_result move_medium(command_request& request);
    command_result exchange_medium(command_request& request);
    command_result read_element_status(command_request& request);

    /// The absolute address of the transport that a command names; nothing when there is none. 0 is the default one.
    [[nodiscard]] std::optional<std::uint16_t> transport_address(std::uint16_t named) const;
    [[nodiscard]] drive_unit* drive_at(std::uint16_t address) const;
    [[nodiscard]] sense_code check_place(std::uint16_t address) const;
    [[nodiscard]] sense_code check_source(std::uint16_t address) const;
    [[nodiscard]] sense_code check_robot(std::uint16_t transport, std::uint16_t source) const;
    [[nodiscard]] sense_code check_move(std::uint16_t transport, const step& wanted) const;
    [[nodiscard]] sense_code check_exchange(std::uint16_t transport, const step& first, const step& second) const;
    /// How long the robot is busy with it.
    [[nodiscard]] std::int64_t duration(std::uint16_t source, const command_request& request) const;
    /// Waits for the robot's turn and for its work. Nothing: the deadline came before the work began.
    [[nodiscard]] std::optional<bool> work(const command_request& request, std::int64_t duration);
    /// Carries the steps out together, durably, or not at all.
    [[nodiscard]] bool carry_out(const std::vector<step>& steps);
    [[nodiscard]] command_result stop_half_way(std::uint16_t transport, const step& wanted, bool in_transport);
    void stow_stranded();

    const drive_list& drives_;
};

}  // namespace platform::tape_library
