#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Blocks of the SCSI pass-through and storage device controls, in the 32-bit layout on every system.

/// Values of `DataIn`.
inline constexpr std::uint8_t SCSI_DATA_OUT = 0;
inline constexpr std::uint8_t SCSI_DATA_IN = 1;
inline constexpr std::uint8_t SCSI_DATA_NONE = 2;

/// Header of a pass-through request. The data area lies `DataBufferOffset` bytes from the block's start, the sense area
/// `SenseInfoOffset`. In the direct form the field at 20 is the data's address, which the port takes separately.
struct SCSI_PASS_THROUGH {
    std::uint16_t Length = 0;
    std::uint8_t ScsiStatus = 0;
    std::uint8_t PathId = 0;
    std::uint8_t TargetId = 0;
    std::uint8_t Lun = 0;
    std::uint8_t CdbLength = 0;
    std::uint8_t SenseInfoLength = 0;  ///< room on the way in, delivered sense bytes on the way out
    std::uint8_t DataIn = 0;
    std::uint8_t Padding[3] = {};
    std::uint32_t DataTransferLength = 0;  ///< room on the way in, delivered bytes on the way out
    std::uint32_t TimeOutValue = 0;        ///< seconds
    std::uint32_t DataBufferOffset = 0;
    std::uint32_t SenseInfoOffset = 0;
    std::uint8_t Cdb[16] = {};
};
static_assert(sizeof(SCSI_PASS_THROUGH) == 44);
static_assert(offsetof(SCSI_PASS_THROUGH, DataIn) == 8);
static_assert(offsetof(SCSI_PASS_THROUGH, DataTransferLength) == 12);
static_assert(offsetof(SCSI_PASS_THROUGH, DataBufferOffset) == 20);
static_assert(offsetof(SCSI_PASS_THROUGH, Cdb) == 28);

struct SCSI_ADDRESS {
    std::uint32_t Length = 0;
    std::uint8_t PortNumber = 0;
    std::uint8_t PathId = 0;
    std::uint8_t TargetId = 0;
    std::uint8_t Lun = 0;
};
static_assert(sizeof(SCSI_ADDRESS) == 8);

struct STORAGE_DEVICE_NUMBER {
    std::uint32_t DeviceType = 0;
    std::uint32_t DeviceNumber = 0;
    std::uint32_t PartitionNumber = 0;
};
static_assert(sizeof(STORAGE_DEVICE_NUMBER) == 12);

/// `DeviceType` values of STORAGE_DEVICE_NUMBER.
inline constexpr std::uint32_t FILE_DEVICE_TAPE = 0x1F;
inline constexpr std::uint32_t FILE_DEVICE_CHANGER = 0x30;

struct STORAGE_PROPERTY_QUERY {
    std::uint32_t PropertyId = 0;  ///< 2: device identifiers
    std::uint32_t QueryType = 0;   ///< 0: the property itself
    std::uint8_t AdditionalParameters[1] = {};
    std::uint8_t Padding[3] = {};
};
static_assert(sizeof(STORAGE_PROPERTY_QUERY) == 12);
inline constexpr std::uint32_t StorageDeviceIdProperty = 2;

/// Head of the answer to the device identifiers query; STORAGE_IDENTIFIER records follow at byte 12.
struct STORAGE_DEVICE_ID_DESCRIPTOR {
    std::uint32_t Version = 0;
    std::uint32_t Size = 0;
    std::uint32_t NumberOfIdentifiers = 0;
};
static_assert(sizeof(STORAGE_DEVICE_ID_DESCRIPTOR) == 12);

/// Head of one identifier; `IdentifierSize` bytes of it follow at byte 16. `NextOffset` counts from this record's start, 0 in
/// the last one.
struct STORAGE_IDENTIFIER {
    std::uint32_t CodeSet = 0;  ///< 1 binary, 2 ASCII, 3 UTF-8
    std::uint32_t Type = 0;     ///< 1: vendor identification (SPC-4, T10 vendor ID based)
    std::uint16_t IdentifierSize = 0;
    std::uint16_t NextOffset = 0;
    std::uint32_t Association = 0;
};
static_assert(sizeof(STORAGE_IDENTIFIER) == 16);
inline constexpr std::uint32_t StorageIdTypeVendorId = 1;

}  // namespace platform
