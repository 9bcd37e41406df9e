#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/changer_records.h"
#include "platform/device_stack/element_map.h"
#include "platform/device_stack/storage_class.h"

namespace platform::device_stack {

/// The class driver of medium changers: the changer controls, carried out by media changer commands. Elements are counted from
/// zero within their type. A command is sent once: what the device reports, unit attentions too, is the caller's to handle.
/// The element address map is read at the first control that needs it and kept for the handle's life.
class changer_class : public storage_class {
public:
    changer_class(std::shared_ptr<scsi_transport> transport, const scsi_location& location, std::uint32_t device_number);

    std::uint32_t control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                          std::uint32_t& returned) override;

private:
    std::uint32_t get_parameters(std::span<std::uint8_t> output, std::uint32_t& returned);
    std::uint32_t get_status();
    std::uint32_t get_product_data(std::span<std::uint8_t> output, std::uint32_t& returned);
    std::uint32_t get_element_status(std::span<const std::uint8_t> input, std::span<std::uint8_t> output, std::uint32_t& returned);
    std::uint32_t initialize_element_status(std::span<const std::uint8_t> input);
    std::uint32_t exchange_medium(std::span<const std::uint8_t> input);
    std::uint32_t move_medium(std::span<const std::uint8_t> input);

    std::uint32_t need_map();
    std::uint32_t read_elements(const CHANGER_READ_ELEMENT_STATUS& request, std::uint16_t first,
                                std::vector<CHANGER_ELEMENT_STATUS_EX>& elements);
    std::uint32_t read_report(const CHANGER_READ_ELEMENT_STATUS& request, std::uint16_t first, std::uint16_t count,
                              std::size_t allocation, std::vector<std::uint8_t>& answer);

    std::optional<element_map> map_;
    bool identifies_drives_ = true;  ///< until the device refuses to give drive identifiers with the element status
};

}  // namespace platform::device_stack
