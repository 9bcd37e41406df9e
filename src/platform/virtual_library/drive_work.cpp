#include "foundation/util/bytes.h"
#include "platform/virtual_library/drive_unit.h"

/// What a drive does with its medium: load, unload, rewind, tension, erase, format (SSC-4).

namespace platform::tape_library {

namespace {

// TapeAlert flags that a drive raises by itself.
constexpr std::uint8_t alert_write_protected = 9;
constexpr std::uint8_t alert_cleaning_cartridge = 11;
constexpr std::uint8_t alert_clean_now = 20;
constexpr std::uint8_t alert_clean_periodic = 21;
constexpr std::uint8_t alert_unload_failed = 56;
constexpr std::uint8_t alert_worm_overwrite = 60;

constexpr std::uint8_t immediate_bit = 0x01;
constexpr std::uint8_t erase_long_bit = 0x01;
constexpr std::uint8_t erase_immediate_bit = 0x02;
constexpr std::uint8_t load_bit = 0x01;
constexpr std::uint8_t tension_bit = 0x02;
constexpr std::uint8_t end_of_tape_bit = 0x04;
constexpr std::uint8_t hold_bit = 0x08;

}  // namespace

void drive_unit::cartridge_arrived() {
    work_ = drive_work::none;
    loading_ = true;
    loaded_at_ = clock_now() + core_.made_of.timings.load;
    ready_at_ = loaded_at_ + core_.made_of.timings.ready;
    loaded_by_ = nullptr;
    ++loads_;
    settle();
}

/// The flags that speak of the cartridge go with it.
void drive_unit::cartridge_left() {
    work_ = drive_work::none;
    loading_ = false;
    for (const std::uint8_t flag : {alert_write_protected, alert_cleaning_cartridge, alert_unload_failed, alert_worm_overwrite}) {
        set_alert(flag, false);
    }
}

void drive_unit::settle() {
    const std::int64_t now = clock_now();
    if (loading_ && now >= ready_at_) {
        loading_ = false;
        raise(sense::medium_may_have_changed, loaded_by_);
        if (const cartridge* medium = threaded(); medium != nullptr && medium->cleaning) {
            set_alert(alert_cleaning_cartridge, true);
            set_alert(alert_clean_now, false);
            set_alert(alert_clean_periodic, false);
        }
    }
    if (work_ != drive_work::none && now >= work_ends_) {
        const bool ejects = work_ == drive_work::unload;
        work_ = drive_work::none;
        if (ejects) {
            if (set_loaded(false)) {
                loading_ = false;
            } else {
                set_alert(alert_unload_failed, true);
            }
        }
    }
}

void drive_unit::forget(const nexus& initiator) {
    if (loaded_by_ == &initiator) {
        loaded_by_ = nullptr;
    }
}

std::uint16_t drive_unit::progress() const {
    const std::int64_t whole = work_ends_ - work_begins_;
    return static_cast<std::uint16_t>(whole == 0 ? 0 : (clock_now() - work_begins_) * 0x10000 / whole);
}

std::optional<sense_data> drive_unit::occupied() const {
    if (work_ == drive_work::none) {
        return std::nullopt;
    }
    return sense_data(work_ == drive_work::format ? sense::format_in_progress : sense::operation_in_progress, progress());
}

sense_data drive_unit::condition() const {
    switch (work_) {
        case drive_work::none:
            return {};
        case drive_work::rewind:
            return {sense::rewind_progress, progress()};
        case drive_work::erase:
            return {sense::erase_progress, progress()};
        case drive_work::format:
            return {sense::format_in_progress, progress()};
        default:
            return {sense::progress, progress()};
    }
}

void drive_unit::begin(drive_work kind, std::int64_t duration) {
    work_ = kind;
    work_begins_ = clock_now();
    work_ends_ = work_begins_ + duration;
}

command_result drive_unit::carry_out(command_request& request, drive_work kind, std::int64_t duration, bool immediate) {
    begin(kind, duration);
    const bool in_time = immediate || request.wait_until(work_ends_);
    settle();
    return in_time ? command_result::good() : command_result::transport(error::semaphore_timeout);
}

command_result drive_unit::rewind(command_request& request) {
    if (const sense_code state = readiness(); state != sense::none) {
        return command_result::check(state);
    }
    return carry_out(request, drive_work::rewind, core_.made_of.timings.rewind, (request.cdb[1] & immediate_bit) != 0);
}

bool drive_unit::set_loaded(bool loaded) {
    element& here = *core_.elements.find(address_);
    const bool former = here.loaded;
    here.loaded = loaded;
    if (core_.store.save(core_.elements) == error::success) {
        return true;
    }
    here.loaded = former;
    return false;
}

command_result drive_unit::load_unload(command_request& request) {
    const std::uint8_t wanted = request.cdb[4];
    const bool loads = (wanted & load_bit) != 0;
    // A tape can't be threaded and left at its end; nor does this drive hold one that isn't threaded.
    if ((wanted & hold_bit) != 0 || (loads && (wanted & end_of_tape_bit) != 0)) {
        return command_result::check(sense::invalid_field);
    }
    if (!place().medium) {
        return command_result::check(sense::medium_not_present);
    }
    return loads ? load(request) : unload(request);
}

command_result drive_unit::load(command_request& request) {
    const timings& times = core_.made_of.timings;
    const bool immediate = (request.cdb[1] & immediate_bit) != 0;
    const std::int64_t tension = (request.cdb[4] & tension_bit) != 0 ? times.tension : 0;
    if (!place().loaded) {
        if (!set_loaded(true)) {
            return command_result::check(sense::internal_failure);
        }
        loading_ = true;
        loaded_at_ = clock_now() + times.load + tension;
        ready_at_ = loaded_at_ + times.ready;
        loaded_by_ = &request.initiator;
        ++loads_;
    } else if (!loading_ && tension != 0) {
        return carry_out(request, drive_work::tension, tension, immediate);
    }
    if (!immediate && loading_ && !request.wait_until(loaded_at_)) {
        return command_result::transport(error::semaphore_timeout);
    }
    settle();
    return command_result::good();
}

command_result drive_unit::unload(command_request& request) {
    if (removal_prevented()) {
        return command_result::check(sense::removal_prevented);
    }
    if (!place().loaded) {
        return command_result::good();
    }
    const bool immediate = (request.cdb[1] & immediate_bit) != 0;
    const std::int64_t tension = (request.cdb[4] & tension_bit) != 0 ? core_.made_of.timings.tension : 0;
    set_alert(alert_unload_failed, false);
    const command_result result = carry_out(request, drive_work::unload, core_.made_of.timings.unload + tension, immediate);
    return alerts().test(alert_unload_failed - 1) ? command_result::check(sense::internal_failure) : result;
}

sense_code drive_unit::check_overwriting() {
    if (const sense_code state = readiness(); state != sense::none) {
        return state;
    }
    if (place().medium->write_protected) {
        set_alert(alert_write_protected, true);
        return sense::write_protected;
    }
    if (place().medium->worm) {
        set_alert(alert_worm_overwrite, true);
        return sense::worm_overwrite;
    }
    return sense::none;
}

bool drive_unit::wipe(std::uint64_t overwritten) {
    cartridge& medium = *core_.elements.find(address_)->medium;
    const cartridge former = medium;
    medium.used = 0;
    medium.written += overwritten;
    if (core_.store.save(core_.elements) == error::success) {
        return true;
    }
    medium = former;
    return false;
}

/// What the tape held is gone from the beginning on: whether a power failure comes before the end makes no difference to it.
command_result drive_unit::erase(command_request& request) {
    const std::uint8_t wanted = request.cdb[1];
    const bool whole = (wanted & erase_long_bit) != 0;
    if ((wanted & ~(erase_long_bit | erase_immediate_bit)) != 0) {
        return command_result::check(sense::invalid_field);
    }
    if (const sense_code state = check_overwriting(); state != sense::none) {
        return command_result::check(state);
    }
    if (!wipe(whole ? to_megabytes(place().medium->capacity) : 0)) {
        return command_result::check(sense::internal_failure);
    }
    const timings& times = core_.made_of.timings;
    return carry_out(request, drive_work::erase, whole ? times.erase_long : times.erase_short, (wanted & erase_immediate_bit) != 0);
}

/// Only the default format, a single partition: a drive that has no others can't be told to make them.
command_result drive_unit::format_medium(command_request& request) {
    const bool default_format = (request.cdb[2] & 0x0F) == 0 && util::load_be16(request.cdb, 3) == 0;
    if ((request.cdb[1] & ~immediate_bit) != 0 || !default_format) {
        return command_result::check(sense::invalid_field);
    }
    if (const sense_code state = check_overwriting(); state != sense::none) {
        return command_result::check(state);
    }
    if (!wipe(0)) {
        return command_result::check(sense::internal_failure);
    }
    return carry_out(request, drive_work::format, core_.made_of.timings.format, (request.cdb[1] & immediate_bit) != 0);
}

}  // namespace platform::tape_library
