#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "changer/changer_commands.h"
#include "changer/medium_movement.h"

/// A changer by SCSI commands: needs no class driver. The device has one address space in which each element type starts at an
/// address of its own; the map of it is read at construction and turns the interface's zero-based addresses into the device's
/// and back.
class CChangerHandleScsi : public CMediumMovement {
public:
    /// Beside opening the device, waits out an import/export port that is open: 20, 40, 60 ... seconds, for as long as the
    /// pause isn't above the not-ready time-out.
    CChangerHandleScsi(const std::string& link, std::uint16_t slot_portion, const boost::shared_ptr<boost::mutex>& device_mutex);

    std::u16string GetDeviceName() override;
    SCSI_ADDRESS GetScsiAddress() override;
    GET_CHANGER_PARAMETERS GetParameters() override;
    /// Always true: what the device doesn't tell is zero.
    bool GetProductData(CHANGER_PRODUCT_DATA& data) override;
    /// Volume tags are always read.
    ElementStatusList GetElementStatus(std::uint16_t first, ELEMENT_TYPE type, bool read_volume_tag, std::uint16_t count) override;
    SerialNameList GetSerialNames(const ElementStatusList& records, ELEMENT_TYPE type) override;

private:
    using element_records = std::vector<CHANGER_ELEMENT_STATUS_EX>;

    void MoveMediumImpl(const medium_move& move) override;
    void Initialize();
    void ReadElementAddressAssignment();
    void FillParametersFromAssignment(GET_CHANGER_PARAMETERS& parameters) const;
    element_records ReadElements(std::uint16_t first, ELEMENT_TYPE type, std::uint16_t count);
    element_records ReadElementRange(std::uint16_t first, ELEMENT_TYPE type, std::uint16_t count);
    element_records ReadSingleDrive(std::uint16_t address, const std::vector<std::uint8_t>& answer);
    element_records ReadDriveElements(std::uint16_t first, std::uint16_t count);
    element_records Parse(const std::vector<std::uint8_t>& answer, ELEMENT_TYPE type) const;
    std::vector<std::string> QueryDriveSerialNames();

    element_map_t map_;
};
