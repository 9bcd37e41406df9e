#include "platform/virtual_library/virtual_library_source.h"

#include <algorithm>
#include <charconv>

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"

namespace platform::tape_library {

namespace {

using device_stack::logical_unit_info;
using device_stack::scsi_command;
using device_stack::scsi_outcome;
using device_stack::scsi_transport;

constexpr std::uint8_t inquiry_allocation = 255;
constexpr std::int64_t inquiry_seconds = 5;

std::string identity_of(const std::string& library, std::size_t unit) {
    return library + "#" + text::to_string(static_cast<std::uint32_t>(unit));
}

/// INQUIRY of a vital product data page, or the standard one. False: the unit doesn't answer.
bool inquire(scsi_transport& unit, std::uint8_t vital, std::uint8_t page, std::vector<std::uint8_t>& answer) {
    answer.assign(inquiry_allocation, 0);
    scsi_command command;
    command.cdb = {opcode::inquiry, vital, page, 0, inquiry_allocation};
    command.cdb_length = 6;
    command.direction = device_stack::data_direction::from_device;
    command.data = answer;
    command.timeout_seconds = inquiry_seconds;
    const scsi_outcome outcome = unit.execute(command);
    answer.resize(outcome.transferred);
    return outcome.transport_error == error::success && outcome.scsi_status == scsi_status::good && answer.size() >= 5;
}

}  // namespace

virtual_library_source::virtual_library_source(std::vector<std::u16string> folders) {
    for (std::u16string& folder : folders) {
        entry one;
        one.name = text::wide_to_utf8(folder);
        one.folder = std::move(folder);
        try_open(one);
        entries_.push_back(std::move(one));
    }
}

void virtual_library_source::try_open(entry& one) {
    if (one.library) {
        return;
    }
    try {
        one.library = virtual_library::open(one.folder);
        for (std::uint8_t unit = 0; unit < one.library->units(); ++unit) {
            one.transports.push_back(one.library->connect(unit));
        }
        if (!one.problem.empty()) {
            one.problem.clear();
            g_libraryLog.LogInfo("The virtual library '" + one.name + "' can be used now.");
        }
    } catch (const exc::exc_base_t& problem) {
        if (one.problem != problem.plain_text()) {
            one.problem = problem.plain_text();
            g_libraryLog.LogError(one.problem);
        }
    }
}

std::vector<logical_unit_info> virtual_library_source::enumerate() {
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<logical_unit_info> found;
    for (std::size_t target = 0; target < entries_.size(); ++target) {
        entry& one = entries_[target];
        try_open(one);
        for (std::size_t unit = 0; unit < one.transports.size(); ++unit) {
            std::vector<std::uint8_t> standard;
            std::vector<std::uint8_t> serial;
            if (!inquire(*one.transports[unit], 0, 0, standard) || !inquire(*one.transports[unit], 1, 0x80, serial)) {
                continue;
            }
            logical_unit_info info;
            info.peripheral_type = standard[0] & 0x1F;
            info.identity = identity_of(one.name, unit);
            info.serial = util::to_text(util::slice(serial, 4, util::load_be16(serial, 2)));
            info.location.target = static_cast<std::uint8_t>(target);
            info.location.lun = static_cast<std::uint8_t>(unit);
            found.push_back(std::move(info));
        }
    }
    return found;
}

std::shared_ptr<scsi_transport> virtual_library_source::open(const std::string& identity, std::uint32_t& error) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const std::size_t mark = std::min(identity.rfind('#'), identity.size());
    const char* const end = identity.data() + identity.size();
    std::size_t unit = 0;
    std::from_chars(std::min(identity.data() + mark + 1, end), end, unit);
    for (entry& one : entries_) {
        if (identity.compare(0, mark, one.name) != 0) {
            continue;
        }
        try_open(one);
        if (unit < one.transports.size() && identity == identity_of(one.name, unit)) {
            error = error::success;
            return one.transports[unit];
        }
    }
    error = error::file_not_found;
    return nullptr;
}

std::vector<std::string> virtual_library_source::problems() {
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<std::string> texts;
    for (const entry& one : entries_) {
        if (!one.problem.empty()) {
            texts.push_back(one.problem);
        }
    }
    return texts;
}

}  // namespace platform::tape_library
