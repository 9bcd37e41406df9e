#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "changer/medium_movement.h"

/// A changer through the operating system's class driver.
class CChangerHandle : public CMediumMovement {
public:
    CChangerHandle(const std::string& link, std::uint16_t slot_portion, const boost::shared_ptr<boost::mutex>& device_mutex);

    std::u16string GetDeviceName() override;
    SCSI_ADDRESS GetScsiAddress() override;
    GET_CHANGER_PARAMETERS GetParameters() override;
    bool GetProductData(CHANGER_PRODUCT_DATA& data) override;
    ElementStatusList GetElementStatus(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag, std::uint16_t count) override;
    SerialNameList GetSerialNames(const ElementStatusList& records, ELEMENT_TYPE type) override;

private:
    using element_records = std::vector<CHANGER_ELEMENT_STATUS_EX>;

    void MoveMediumImpl(const medium_move& move) override;
    element_records ReadElements(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag, std::uint16_t count);
    element_records ReadElementBlock(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag, std::uint16_t count);
    element_records ReadDriveElements(std::uint16_t first, bool read_volume_tag, std::uint16_t count);
    std::vector<std::string> QueryDriveSerialNames();
    [[noreturn]] void ThrowFailedControl(const char* pattern);
};

/// Serial numbers of drives from READ ELEMENT STATUS data with device identifiers and without volume tags. Throws when the
/// data's lengths can't be believed.
[[nodiscard]] std::vector<std::string> ParseDriveSerialNames(std::span<const std::uint8_t> data);
