#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/devices.h"
#include "platform/scsi_records.h"
#include "platform/tape_records.h"

using TapeMediaInfo = platform::TAPE_GET_MEDIA_PARAMETERS;
using TapeDriveParameters = platform::TAPE_GET_DRIVE_PARAMETERS;

/// What a cartridge's memory knows of its use (SPC-4, medium auxiliary memory attributes), in megabytes.
struct TapeUsageStatistic {
    bool valid = false;
    std::uint64_t lifetime_megabytes_written = 0;
    std::uint64_t lifetime_megabytes_read = 0;
};

/// One tape drive, open for the length of one request. Every operation has its own mix of immediate second tries, pauses of ten
/// seconds and a deadline, the not-ready time-out, read at construction; these differ on purpose. All failures are exceptions; a
/// time-out carries the last failure within it. Used by one thread; several handles can exist for one drive, and whoever wants
/// order keeps it.
class CDriveHandle {
public:
    /// Opens the device. Throws `exc::win_sys_exc_t` when that fails; it is tried once.
    explicit CDriveHandle(const std::string& link_name);
    ~CDriveHandle();
    CDriveHandle(const CDriveHandle&) = delete;
    CDriveHandle& operator=(const CDriveHandle&) = delete;

    [[nodiscard]] std::u16string GetDeviceName() const;
    [[nodiscard]] std::uint32_t GetDeviceNumber() const;
    /// As the drive tells it, without a postfix. Empty when it can't be read.
    [[nodiscard]] std::u16string GetSerialNumber() const;
    /// Forbids or allows taking the medium out by hand.
    void StorageMediaRemoval(bool prevent);
    [[nodiscard]] platform::SCSI_ADDRESS GetScsiAddress() const;
    /// Rewinds and erases: TAPE_ERASE_SHORT or TAPE_ERASE_LONG. Blocks until the drive has finished, for hours.
    void EraseTape(std::uint32_t type);
    /// Waits for a medium until the deadline. Never empty.
    [[nodiscard]] boost::shared_ptr<TapeMediaInfo> FindMediaInfo();
    /// Empty when there is no medium.
    [[nodiscard]] boost::shared_ptr<TapeMediaInfo> GetMediaParameters();
    [[nodiscard]] TapeUsageStatistic ReadUsageStatistic();
    [[nodiscard]] bool IsWormMedium();
    /// Leaves `parameters` as they are when the drive keeps being reset: a caller can't tell that from success.
    void GetDriveParameters(TapeDriveParameters& parameters);
    /// Vendor and product, joined by a blank.
    [[nodiscard]] std::u16string GetProductName() const;
    /// A link name for the drive, made for it where the settings ask for that.
    [[nodiscard]] std::u16string GetSymbolicLink() const;
    /// TAPE_LOAD to TAPE_FORMAT, passed on unchecked. An empty drive counts as done.
    void PrepareTape(std::uint32_t operation, bool immediate);
    /// False when a filemark stopped the move.
    bool RewindTape();

    /// The status of the last erase or rewind command, 0 before one.
    [[nodiscard]] std::uint32_t last_tape_status() const { return last_tape_status_; }
    /// For the platform's tape functions.
    [[nodiscard]] platform::device_handle device() const { return device_; }

private:
    CDriveHandle(const std::string& link_name, std::int64_t not_ready_timeout);

    bool Control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output) const;
    void EnsureDevice() const;
    void SetMediaRemoval(bool prevent);
    [[nodiscard]] std::vector<std::uint8_t> ReadAttributes() const;
    void EraseFromHere(std::uint32_t type);
    bool MoveToBeginning();

    std::string link_name_;
    platform::device_handle device_ = platform::invalid_device;
    std::uint32_t last_tape_status_ = 0;
    std::int64_t not_ready_timeout_ = 0;  ///< seconds
};

/// English words for a status of the tape functions.
[[nodiscard]] std::string TapeErrorText(std::uint32_t status);
