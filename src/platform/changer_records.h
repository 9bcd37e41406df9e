#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Fixed-width records of the medium changer device controls, the same on every system. Numbers are little-endian in memory
/// on all systems that this runs on.

/// Kinds of elements. The numbers are also the SCSI element type codes (SMC-3, element type code).
enum ELEMENT_TYPE : std::uint32_t { AllElements = 0, ChangerTransport = 1, ChangerSlot = 2, ChangerIEPort = 3, ChangerDrive = 4 };

/// Bits of an element's `Flags`.
inline constexpr std::uint32_t ELEMENT_STATUS_FULL = 0x1;
inline constexpr std::uint32_t ELEMENT_STATUS_IMPEXP = 0x2;
inline constexpr std::uint32_t ELEMENT_STATUS_EXCEPT = 0x4;
inline constexpr std::uint32_t ELEMENT_STATUS_ACCESS = 0x8;
inline constexpr std::uint32_t ELEMENT_STATUS_EXENAB = 0x10;
inline constexpr std::uint32_t ELEMENT_STATUS_INENAB = 0x20;
inline constexpr std::uint32_t ELEMENT_STATUS_PRODUCT_DATA = 0x40;
inline constexpr std::uint32_t ELEMENT_STATUS_LUN_VALID = 0x1000;
inline constexpr std::uint32_t ELEMENT_STATUS_ID_VALID = 0x2000;
inline constexpr std::uint32_t ELEMENT_STATUS_NOT_BUS = 0x8000;
inline constexpr std::uint32_t ELEMENT_STATUS_INVERT = 0x400000;
inline constexpr std::uint32_t ELEMENT_STATUS_SVALID = 0x800000;
inline constexpr std::uint32_t ELEMENT_STATUS_PVOLTAG = 0x10000000;
inline constexpr std::uint32_t ELEMENT_STATUS_AVOLTAG = 0x20000000;

struct CHANGER_ELEMENT {
    std::uint32_t ElementType = 0;
    std::uint32_t ElementAddress = 0;  ///< zero-based within its type
};
static_assert(sizeof(CHANGER_ELEMENT) == 8);

/// One element's status, long form.
struct CHANGER_ELEMENT_STATUS_EX {
    CHANGER_ELEMENT Element;
    CHANGER_ELEMENT SrcElementAddress;  ///< where its medium came from; valid with ELEMENT_STATUS_SVALID
    std::uint32_t Flags = 0;
    std::uint32_t ExceptionCode = 0;
    std::uint8_t TargetId = 0;
    std::uint8_t Lun = 0;
    std::uint16_t Reserved = 0;
    std::uint8_t PrimaryVolumeID[36] = {};  ///< not terminated when it fills the field
    std::uint8_t AlternateVolumeID[36] = {};
    std::uint8_t VendorIdentification[8] = {};
    std::uint8_t ProductIdentification[16] = {};
    std::uint8_t SerialNumber[32] = {};  ///< text up to its first NUL, else all 32 bytes
};
static_assert(sizeof(CHANGER_ELEMENT_STATUS_EX) == 156);
static_assert(offsetof(CHANGER_ELEMENT_STATUS_EX, Flags) == 16);
static_assert(offsetof(CHANGER_ELEMENT_STATUS_EX, PrimaryVolumeID) == 28);
static_assert(offsetof(CHANGER_ELEMENT_STATUS_EX, AlternateVolumeID) == 64);
static_assert(offsetof(CHANGER_ELEMENT_STATUS_EX, VendorIdentification) == 100);
static_assert(offsetof(CHANGER_ELEMENT_STATUS_EX, SerialNumber) == 124);

/// The short form is the long one cut behind `AlternateVolumeID`.
inline constexpr std::size_t CHANGER_ELEMENT_STATUS_SIZE = 100;

/// Input of a status request.
struct CHANGER_READ_ELEMENT_STATUS {
    CHANGER_ELEMENT Element;
    std::uint32_t NumberOfElements = 0;
    std::uint8_t VolumeTagInfo = 0;
    std::uint8_t Padding[3] = {};
};
static_assert(sizeof(CHANGER_READ_ELEMENT_STATUS) == 16);
static_assert(offsetof(CHANGER_READ_ELEMENT_STATUS, VolumeTagInfo) == 12);

/// Input of a move.
struct CHANGER_MOVE_MEDIUM {
    CHANGER_ELEMENT Transport;
    CHANGER_ELEMENT Source;
    CHANGER_ELEMENT Destination;
    std::uint8_t Flip = 0;
    std::uint8_t Padding[3] = {};
};
static_assert(sizeof(CHANGER_MOVE_MEDIUM) == 28);
static_assert(offsetof(CHANGER_MOVE_MEDIUM, Flip) == 24);

/// Input of an exchange: the source goes to the first destination, what was there to the second.
struct CHANGER_EXCHANGE_MEDIUM {
    CHANGER_ELEMENT Transport;
    CHANGER_ELEMENT Source;
    CHANGER_ELEMENT Destination1;
    CHANGER_ELEMENT Destination2;
    std::uint8_t Flip1 = 0;
    std::uint8_t Flip2 = 0;
    std::uint8_t Padding[2] = {};
};
static_assert(sizeof(CHANGER_EXCHANGE_MEDIUM) == 36);
static_assert(offsetof(CHANGER_EXCHANGE_MEDIUM, Flip1) == 32);

/// Input of a request to take stock.
struct CHANGER_INITIALIZE_ELEMENT_STATUS {
    CHANGER_ELEMENT Element;  ///< type AllElements: the whole library
    std::uint32_t NumberOfElements = 0;
    std::uint8_t BarCodeScan = 0;
    std::uint8_t Padding[3] = {};
};
static_assert(sizeof(CHANGER_INITIALIZE_ELEMENT_STATUS) == 16);

/// Bits of `Features0` that a changer's mode pages tell.
inline constexpr std::uint32_t CHANGER_EXCHANGE_MEDIA = 0x20;
inline constexpr std::uint32_t CHANGER_MEDIUM_FLIP = 0x200;
inline constexpr std::uint32_t CHANGER_STORAGE_DRIVE = 0x1000;
inline constexpr std::uint32_t CHANGER_STORAGE_IEPORT = 0x2000;
inline constexpr std::uint32_t CHANGER_STORAGE_SLOT = 0x4000;
inline constexpr std::uint32_t CHANGER_STORAGE_TRANSPORT = 0x8000;

struct GET_CHANGER_PARAMETERS {
    std::uint32_t Size = 0;
    std::uint16_t NumberTransportElements = 0;
    std::uint16_t NumberStorageElements = 0;
    std::uint16_t NumberCleanerSlots = 0;
    std::uint16_t NumberIEElements = 0;
    std::uint16_t NumberDataTransferElements = 0;
    std::uint16_t NumberOfDoors = 0;
    std::uint16_t FirstSlotNumber = 0;
    std::uint16_t FirstDriveNumber = 0;
    std::uint16_t FirstTransportNumber = 0;
    std::uint16_t FirstIEPortNumber = 0;
    std::uint16_t FirstCleanerSlotAddress = 0;
    std::uint16_t MagazineSize = 0;
    std::uint32_t DriveCleanTimeout = 0;
    std::uint32_t Features0 = 0;
    std::uint32_t Features1 = 0;
    std::uint8_t MoveFromTransport = 0;
    std::uint8_t MoveFromSlot = 0;
    std::uint8_t MoveFromIePort = 0;
    std::uint8_t MoveFromDrive = 0;
    std::uint8_t ExchangeFromTransport = 0;
    std::uint8_t ExchangeFromSlot = 0;
    std::uint8_t ExchangeFromIePort = 0;
    std::uint8_t ExchangeFromDrive = 0;
    std::uint8_t LockUnlockCapabilities = 0;
    std::uint8_t PositionCapabilities = 0;
    std::uint8_t Reserved1[2] = {};
    std::uint32_t Reserved2[2] = {};
};
static_assert(sizeof(GET_CHANGER_PARAMETERS) == 60);
static_assert(offsetof(GET_CHANGER_PARAMETERS, DriveCleanTimeout) == 28);
static_assert(offsetof(GET_CHANGER_PARAMETERS, PositionCapabilities) == 49);

struct CHANGER_PRODUCT_DATA {
    std::uint8_t VendorId[8] = {};
    std::uint8_t ProductId[16] = {};
    std::uint8_t Revision[4] = {};
    std::uint8_t SerialNumber[32] = {};
    std::uint8_t DeviceType = 0;
};
static_assert(sizeof(CHANGER_PRODUCT_DATA) == 61);
static_assert(offsetof(CHANGER_PRODUCT_DATA, DeviceType) == 60);

}  // namespace platform
