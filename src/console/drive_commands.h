#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "console/connection.h"
#include "console/library_view.h"
#include "console/output.h"
#include "console/person.h"
#include "console/tape_drives.h"

namespace console {

/// The commands that work on tape drives. Each prints its answer and throws `failure` when it has none.

/// The drives named in `left_alone` aren't touched, and not listed.
void list_drives(tape_drives& drives, const std::vector<std::string>& left_alone, const output& out);
/// With a link in `changer`, that changer moves nothing while the medium is looked at.
void show_media(tape_drives& drives, const std::string& link, const std::string& changer, const output& out);
void show_drive(tape_drives& drives, const std::string& link, const output& out);

struct alert_source {
    std::string link;
    bool changer = false;
};
/// The device whose alerts are asked for: a drive or a changer by its name, link or serial number.
[[nodiscard]] alert_source choose_alert_source(tape_drives& drives, library_view& library, const std::string& name);
/// A device that tells none is asked something else, so that one that can't be asked at all is told from one that is well.
void show_alerts(tape_drives& drives, library_view& library, const alert_source& source, const output& out);

/// An operation that destroys data asks the person first, unless `confirmed`.
void prepare(tape_drives& drives, const std::string& link, const tape_operation& operation, bool immediate, bool confirmed,
             person& who, const output& out);
void eject(tape_drives& drives, const std::string& link, const output& out);

struct erase_order {
    std::string link;
    bool overwrite_all = false;
    bool confirmed = false;
    bool wait = true;
};
/// Asks the person first, unless confirmed, and stays until the tape is erased, unless told not to wait. Throws `failure` when the
/// tape could not be erased.
void erase(tape_drives& drives, const erase_order& order, person& who, const output& out);
/// Shows how a task stands; with `wait`, when it has ended. `still_running` when it has not; a task that failed is a `failure`.
[[nodiscard]] exit_code show_task(tape_drives& drives, std::uint32_t task, bool wait, person& who, const output& out);

/// Words for a status of a drive or of a task.
[[nodiscard]] std::string meaning_of(std::uint32_t status);

}  // namespace console
