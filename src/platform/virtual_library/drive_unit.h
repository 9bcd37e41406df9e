#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/virtual_library/logical_unit.h"

namespace platform::tape_library {

/// What a drive does with its medium for some time.
enum class drive_work : std::uint8_t { none, rewind, tension, unload, erase, format };

/// A tape drive: logical unit 1 and up, one for each drive element, in the order of the elements.
///
/// Work on the medium has a beginning and an end by the clock. Nobody needs to wait for it: whoever looks at the drive next
/// finds it under way or done (`bring_up_to_date`). Meanwhile commands that want the medium are told so.
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
    /// Ends what the clock says has ended.
    void bring_up_to_date() { settle(); }
    /// At work with the tape out of the cartridge, which nobody can take then.
    [[nodiscard]] bool holds_cartridge() const { return work_ != drive_work::none; }

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
    std::vector<std::uint8_t> log_pages() const override { return core_.made_of.log_pages; }
    log_parameters log_page(std::uint8_t page, const nexus& initiator) const override;
    std::optional<sense_data> occupied() const override;
    sense_data condition() const override;

private:
    static const command_table<drive_unit>& commands();

    [[nodiscard]] const element& place() const { return *core_.elements.find(address_); }
    /// The cartridge that is threaded; null when there is none.
    [[nodiscard]] const cartridge* threaded() const;
    /// The same, if it is one for data and can be used.
    [[nodiscard]] const cartridge* usable() const;
    /// `sense::none` when a tape is loaded and can be used.
    [[nodiscard]] sense_code readiness() const;
    /// Whether what is on the tape may be destroyed; raises the alert that a refusal brings.
    [[nodiscard]] sense_code check_overwriting();
    /// Writes the state after `loaded` was changed; takes the change back on failure.
    [[nodiscard]] bool set_loaded(bool loaded);
    /// Takes what is on the tape away, and `overwritten` MB are added to what was ever written to it. On disk before it returns;
    /// on failure nothing has changed.
    [[nodiscard]] bool wipe(std::uint64_t overwritten);
    void begin(drive_work kind, std::int64_t duration);
    /// Begins the work and, unless the answer is to come at once, waits for its end.
    [[nodiscard]] command_result carry_out(command_request& request, drive_work kind, std::int64_t duration, bool immediate);
    [[nodiscard]] std::uint16_t progress() const;

    command_result test_unit_ready(command_request& request);
    command_result rewind(command_request& request);
    command_result read_block_limits(command_request& request);
    command_result read_position(command_request& request);
    command_result load_unload(command_request& request);
    command_result load(command_request& request);
    command_result unload(command_request& request);
    command_result erase(command_request& request);
    command_result format_medium(command_request& request);
    command_result read_attribute(command_request& request);

    [[nodiscard]] log_parameters access_log() const;
    [[nodiscard]] log_parameters status_log(const nexus& initiator) const;
    [[nodiscard]] log_parameters alert_response_log() const;
    [[nodiscard]] log_parameters statistics_log() const;
    [[nodiscard]] log_parameters volume_log() const;
    [[nodiscard]] log_parameters capacity_log() const;

    std::uint16_t address_;
    bool loading_ = false;
    std::int64_t loaded_at_ = 0;        ///< while loading: milliseconds of the clock
    std::int64_t ready_at_ = 0;         ///< while loading, and later than `loaded_at_` where the drive takes its time
    const nexus* loaded_by_ = nullptr;  ///< who asked for the load and needs no attention for it
    drive_work work_ = drive_work::none;
    std::int64_t work_begins_ = 0;
    std::int64_t work_ends_ = 0;
    std::uint32_t loads_ = 0;  ///< since the library was opened
};

/// Megabytes of a million bytes.
[[nodiscard]] std::uint64_t to_megabytes(std::uint64_t mebibytes);

}  // namespace platform::tape_library
