#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace platform::device_stack {

enum class data_direction : std::uint8_t { none, from_device, to_device };

/// One SCSI command.
struct scsi_command {
    std::array<std::uint8_t, 16> cdb{};
    std::uint8_t cdb_length = 0;  ///< 6, 10, 12 or 16
    data_direction direction = data_direction::none;
    std::span<std::uint8_t> data;       ///< owned by the caller; filled or sent
    std::int64_t timeout_seconds = 60;  ///< the command's deadline from now
};

/// What became of a command: one of three things.
/// - transport failure: `transport_error` is a system error number other than 0, nothing else means anything, and the
///   command may or may not have been carried out;
/// - `scsi_status` 0: `transferred` bytes of data were moved;
/// - another `scsi_status`: `sense` holds the sense bytes that came with it (SPC-4 clause 4.5), perhaps none; `transferred`
///   may still be above 0.
struct scsi_outcome {
    std::uint32_t transport_error = 0;
    std::uint8_t scsi_status = 0;
    std::uint32_t transferred = 0;
    std::vector<std::uint8_t> sense;
    /// Which connection to the unit carried the command. It differs from that of an earlier command when the connection was lost in
    /// between, and with it perhaps the unit's word that it was reset.
    std::uint32_t connection = 0;
};

/// Where a logical unit sits, as the port numbers it.
struct scsi_location {
    std::uint8_t port = 0;
    std::uint8_t path = 0;
    std::uint8_t target = 0;
    std::uint8_t lun = 0;
};

/// One logical unit that commands can be sent to. It never retries and never hides a unit attention. May be used from many
/// threads: an implementation that carries one command at a time makes the others wait, within their own deadlines.
class scsi_transport {
public:
    virtual ~scsi_transport() = default;
    /// Blocks until the command has ended or its deadline has passed.
    [[nodiscard]] virtual scsi_outcome execute(const scsi_command& command) = 0;
};

/// What is known of a logical unit without opening it for work.
struct logical_unit_info {
    std::uint8_t peripheral_type = 0;  ///< INQUIRY byte 0, low five bits: 1 tape, 8 medium changer
    std::string identity;              ///< names the unit within its source for its whole life, for instance a path or URL
    std::string serial;                ///< unit serial number page's text, trailing blanks kept; may be empty
    scsi_location location;
};

/// Finds logical units of one kind of connection and opens them. Callable from any thread.
class scsi_source {
public:
    virtual ~scsi_source() = default;
    /// Tape drives and medium changers present now, in the source's stable order. A unit that doesn't answer is left out;
    /// blocks for at most some seconds for each.
    [[nodiscard]] virtual std::vector<logical_unit_info> enumerate() = 0;
    /// Opens the unit of this identity. Null on failure, with a system error number.
    [[nodiscard]] virtual std::shared_ptr<scsi_transport> open(const std::string& identity, std::uint32_t& error) = 0;
};

}  // namespace platform::device_stack
