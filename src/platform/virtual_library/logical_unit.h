#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_codes.h"
#include "platform/device_stack/scsi_transport.h"
#include "platform/virtual_library/library_core.h"
#include "platform/virtual_library/sense.h"

namespace platform::tape_library {

namespace opcode = device_stack::opcode;
namespace scsi_status = device_stack::scsi_status;

using byte_vector = std::vector<std::uint8_t>;

/// TapeAlert flags have the numbers 1 to 64; flag n is bit n - 1.
using alert_flags = std::bitset<64>;

/// What a unit keeps for one initiator.
struct nexus {
    std::deque<sense_code> attentions;
    bool prevents_removal = false;
    alert_flags alerts_read;  ///< flags that this initiator has seen since they were raised
};

/// How a command ended. With `transport_error` other than 0 nothing else means anything; `sense` goes with CHECK CONDITION.
struct command_result {
    std::uint8_t status = scsi_status::good;
    sense_data sense;
    byte_vector data;
    std::uint32_t transport_error = 0;

    static command_result good() { return {}; }
    static command_result with_data(byte_vector data, std::size_t allocation) {
        if (data.size() > allocation) {
            data.resize(allocation);
        }
        return {scsi_status::good, {}, std::move(data), 0};
    }
    static command_result check(const sense_data& data) { return {scsi_status::check_condition, data, {}, 0}; }
    static command_result with_status(std::uint8_t status) { return {status, {}, {}, 0}; }
    static command_result transport(std::uint32_t error) { return {scsi_status::good, {}, {}, error}; }
};

/// One command under way. `lock` holds the library's mutex.
struct command_request {
    const byte_vector& cdb;
    nexus& initiator;
    std::unique_lock<std::mutex>& lock;
    std::int64_t deadline = 0;                ///< milliseconds of the clock
    std::int64_t extra_time = 0;              ///< milliseconds that a fault adds
    std::optional<bool> stops_half_way = {};  ///< a fault: the move fails; true: with the cartridge in the transport

    /// Lets time pass, without the lock, until the moment or the deadline, whichever is first. True: it was the moment.
    [[nodiscard]] bool wait_until(std::int64_t moment) const;
};

/// What a command demands besides its handler.
struct command_traits {
    std::uint8_t length = 6;           ///< of the CDB; a shorter one is refused
    bool ignores_attention = false;    ///< answered although a unit attention is pending
    bool ignores_reservation = false;  ///< answered although another initiator has reserved the unit
    bool by_robot = false;             ///< the robot's time, not the answer's, is what a delay adds to
    bool while_occupied = false;       ///< answered although the unit is at work on a medium
};

/// Table of operation codes for one kind of unit. Whatever has no row of its own is answered by the default row.
template <typename Unit>
class command_table {
public:
    using handler = command_result (Unit::*)(command_request&);
    struct row {
        std::uint8_t code = 0;
        handler serve = nullptr;
        command_traits traits;
    };

    constexpr command_table(handler refusal, std::initializer_list<row> rows) {
        for (row& each : rows_) {
            each.serve = refusal;
        }
        for (const row& each : rows) {
            rows_[each.code] = each;
        }
    }

    [[nodiscard]] const row& at(std::uint8_t code) const { return rows_[code]; }

private:
    std::array<row, 256> rows_{};
};

/// What the value of a log parameter is, as the low two bits of its control byte say (SPC-4).
enum class log_format : std::uint8_t { bounded_counter = 0, ascii_list = 1, unbounded_counter = 2, binary_list = 3 };

struct log_parameter {
    std::uint16_t code = 0;
    log_format format = log_format::binary_list;
    byte_vector value;
};

using log_parameters = std::vector<log_parameter>;

/// Identity of a unit as INQUIRY tells it.
struct unit_identity {
    std::uint8_t peripheral_type = 0;
    std::string vendor;
    std::string product;
    std::string revision;
    std::string serial;
    std::vector<std::uint16_t> version_descriptors;
};

/// What every unit answers, and the order in which conditions are looked at: reservation, unit attention, operation code, work
/// under way, the command itself (SAM-5). All operations want the library's mutex held.
class logical_unit {
public:
    logical_unit(library_core& core, std::uint8_t number, unit_identity identity)
        : core_(core), number_(number), identity_(std::move(identity)) {}
    virtual ~logical_unit() = default;
    logical_unit(const logical_unit&) = delete;
    logical_unit& operator=(const logical_unit&) = delete;

    [[nodiscard]] std::uint8_t number() const { return number_; }
    [[nodiscard]] const unit_identity& identity() const { return identity_; }

    /// A new initiator; the reference holds until `disconnect`.
    nexus& connect();
    void disconnect(const nexus& initiator);

    [[nodiscard]] command_result serve(command_request& request);
    /// What a delay adds to: true, the robot's work; false, the answer.
    [[nodiscard]] bool robot_works(std::uint8_t code) const { return traits_of(code).by_robot; }

    /// Queues a unit attention for every initiator but one.
    void raise(const sense_code& attention, const nexus* but = nullptr);
    [[nodiscard]] bool removal_prevented() const;
    /// Raises or clears TapeAlert flag 1 to 64. One that is raised, again or for the first time, is news to every initiator.
    void set_alert(std::uint8_t flag, bool raised);

protected:
    [[nodiscard]] virtual const command_traits& traits_of(std::uint8_t code) const = 0;
    [[nodiscard]] virtual command_result dispatch(command_request& request) = 0;
    /// Brings what depends on time up to date, before a command is looked at.
    virtual void settle() {}
    /// The serial number as it is told at the moment.
    [[nodiscard]] virtual std::string shown_serial() const { return identity_.serial; }
    /// Vital product data pages beyond 00, 80 and 83, in ascending order.
    [[nodiscard]] virtual std::vector<std::uint8_t> more_vital_pages() const { return {}; }
    /// The body of such a page.
    [[nodiscard]] virtual byte_vector vital_page_body(std::uint8_t) const { return {}; }
    /// The mode pages in ascending order.
    [[nodiscard]] virtual std::vector<std::uint8_t> mode_pages() const = 0;
    [[nodiscard]] virtual byte_vector mode_page(std::uint8_t page) const = 0;
    [[nodiscard]] virtual std::uint8_t medium_type() const { return 0; }
    [[nodiscard]] virtual std::uint8_t device_specific() const { return 0; }
    /// Empty for a unit that has none.
    [[nodiscard]] virtual byte_vector block_descriptor() const { return {}; }
    /// The log pages beyond 00, in ascending order.
    [[nodiscard]] virtual std::vector<std::uint8_t> log_pages() const;
    /// The parameters of such a page in ascending order of their codes, as this initiator gets to see them.
    [[nodiscard]] virtual log_parameters log_page(std::uint8_t page, const nexus& initiator) const;
    /// What a command is told that can't be served because the unit is at work; nothing when it isn't.
    [[nodiscard]] virtual std::optional<sense_data> occupied() const { return std::nullopt; }
    /// What REQUEST SENSE tells when there is nothing else to tell.
    [[nodiscard]] virtual sense_data condition() const { return {}; }
    [[nodiscard]] const alert_flags& alerts() const { return alerts_; }

    /// An initiator is gone; the reference dies with the call.
    virtual void forget(const nexus&) {}

    // Handlers that units share.
    command_result refuse(command_request&) { return command_result::check(sense::invalid_opcode); }
    command_result inquiry(command_request& request);
    command_result request_sense(command_request& request);
    command_result mode_sense(command_request& request);
    command_result log_sense(command_request& request);
    command_result prevent_allow(command_request& request);
    command_result reserve(command_request& request);
    command_result release(command_request& request);
    command_result report_luns(command_request& request);

    library_core& core_;

private:
    [[nodiscard]] byte_vector standard_inquiry() const;
    [[nodiscard]] std::optional<byte_vector> vital_page(std::uint8_t page) const;
    [[nodiscard]] byte_vector designators() const;
    [[nodiscard]] std::optional<byte_vector> collect_mode_pages(std::uint8_t control, std::uint8_t page,
                                                                std::uint8_t subpage) const;

    std::uint8_t number_;
    unit_identity identity_;
    std::list<nexus> initiators_;
    const nexus* reserved_by_ = nullptr;
    alert_flags alerts_;
};

/// Milliseconds of the port's clock.
[[nodiscard]] std::int64_t clock_now();

/// The text in a field of fixed width, with blanks behind it; cut when it is longer.
void append_padded(byte_vector& bytes, const std::string& text, std::size_t width);

/// A name of 8 bytes for a unit (SPC-4, NAA locally assigned), derived from its identity.
[[nodiscard]] std::uint64_t naa_name(const std::string& vendor, const std::string& product, const std::string& serial);

}  // namespace platform::tape_library
