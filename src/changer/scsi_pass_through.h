#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "platform/devices.h"
#include "platform/scsi_records.h"

/// `DataIn` of a request. No caller sends data to a device.
enum class ScsiDirection : std::uint8_t { data_in = platform::SCSI_DATA_IN, no_data = platform::SCSI_DATA_NONE };

/// One SCSI command on an open device, through the storage port's pass-through controls.
///
/// Two forms: direct, where the data moves straight from and to the caller's vector; and indirect, where it travels inside the
/// request's block, for devices or drivers that need that. The registry value "EnableIndirectScsi" picks the form, looked up at
/// each construction.
///
/// Outcomes: return with the data; `exc::win_sys_exc_t` when the control failed; `exc::runtime_exc_t` when the device answered
/// with a SCSI status. The texts of the latter are read by callers. Blocks for up to 300 seconds. Used by one thread.
class CScsiPassThrough {
public:
    static constexpr std::int32_t usual_attempts = 5;

    /// A command that brings data. The vector, sized for what is expected, must outlive the request. An empty one fails in the
    /// direct form. The indirect form replaces the vector's content by what came.
    CScsiPassThrough(platform::device_handle device, std::vector<std::uint8_t>& data);
    /// A command without data.
    explicit CScsiPassThrough(platform::device_handle device);
    CScsiPassThrough(const CScsiPassThrough&) = delete;
    CScsiPassThrough& operator=(const CScsiPassThrough&) = delete;

    /// Puts the command descriptor block, of at most 16 bytes, into the request.
    void SetCdb(std::initializer_list<std::uint8_t> cdb);
    /// Runs the request in its form, with the usual attempts.
    void Execute();
    /// Resends without limit while the device answers "Not ready to ready change", unless `attempts` is 0.
    void ExecuteDirect(std::int32_t attempts);
    void ExecuteIndirect();
    /// Rebuilds the block as it was at construction, after a failed command. The command has to be set again.
    void Prepare();

    [[nodiscard]] bool IsDirect() const { return direct_; }

private:
    [[nodiscard]] platform::SCSI_PASS_THROUGH Header() const;
    void StoreHeader(const platform::SCSI_PASS_THROUGH& header);
    [[nodiscard]] std::span<const std::uint8_t> Sense() const;
    void PrepareDirect(platform::SCSI_PASS_THROUGH& header);
    void PrepareIndirect(platform::SCSI_PASS_THROUGH& header);
    void ResetForResend();
    void CheckScsiStatus(std::span<const std::uint8_t> sense, std::uint8_t status) const;
    [[noreturn]] void ThrowScsiError(const std::string& decoded) const;

    bool direct_;
    platform::device_handle device_;
    ScsiDirection direction_;
    std::uint32_t request_size_ = 0;
    std::vector<std::uint8_t> own_data_;
    std::vector<std::uint8_t> block_;
    std::vector<std::uint8_t>* data_;
};

/// Whether "EnableIndirectScsi" is set to a number other than 0. Logs when it is.
[[nodiscard]] bool IsIndirectScsiEnabled();
