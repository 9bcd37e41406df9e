#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console/connection.h"
#include "foundation/winxml/xml.h"

namespace console {

/// In bytes, as the server tells them.
struct block_sizes {
    std::int64_t preferred = 0;
    std::int64_t smallest = 0;
    std::uint32_t largest = 0;
};

struct drive_view {
    std::string link;     ///< "\\.\Tape0"
    std::string product;  ///< vendor and product
    std::string name;
    std::string serial;
    std::string address;  ///< port, path, target and logical unit: "0:0:3:0"; empty when the drive didn't tell
    std::optional<block_sizes> blocks;
};

struct media_view {
    std::int64_t capacity = 0;   ///< bytes
    std::int64_t remaining = 0;  ///< bytes
    std::uint32_t block_size = 0;
    std::uint32_t partitions = 0;
    bool write_protected = false;
    bool worm = false;
    /// What was written and read in the cartridge's life, where it tells.
    std::optional<std::int64_t> megabytes_written;
    std::optional<std::int64_t> megabytes_read;
};

struct alert_view {
    std::uint32_t number = 0;
    std::uint32_t severity = 0;
    std::string message;
    std::vector<std::string> actions;
};

/// The word for an alert's severity: "information", "warning", "critical"; the number itself above that.
[[nodiscard]] std::string severity_name(std::uint32_t severity);

/// An operation that prepares a drive or its tape.
struct tape_operation {
    const char* name;
    std::uint32_t number;
    bool destroys_data;
};

/// All there are, in the order of their numbers.
[[nodiscard]] const std::vector<tape_operation>& tape_operations();
/// Throws a usage `failure` for a name that isn't one.
[[nodiscard]] const tape_operation& operation_of(std::string_view name);

/// The link that a short name of the form "Tape0" stands for, without asking the server; a link stands for itself. Nothing for
/// other names.
[[nodiscard]] std::optional<std::string> drive_link_of(const std::string& name);

/// The tape drives over the procedures of the server. All operations throw `failure`.
class tape_drives {
public:
    /// `owner` goes with every call.
    tape_drives(connection& server, std::string owner) : server_(server), owner_(std::move(owner)) {}

    /// The server doesn't touch the drives of the links in `left_alone`, and doesn't list them.
    [[nodiscard]] std::vector<drive_view> list(const std::vector<std::string>& left_alone);
    /// Link of the drive named: "Tape0", a link or a serial number. Only the last makes the server look at the drives.
    [[nodiscard]] std::string choose(const std::string& name);
    /// The same for a name that may be none of a drive's: nothing then.
    [[nodiscard]] std::optional<std::string> find(const std::string& name);

    /// With a link in `changer`, that changer moves nothing meanwhile.
    [[nodiscard]] media_view media(const std::string& link, const std::string& changer);
    [[nodiscard]] block_sizes blocks(const std::string& link);
    /// 0 when the drive is ready with a medium, else a system error number that says why not.
    [[nodiscard]] std::uint32_t status(const std::string& link);
    [[nodiscard]] std::vector<alert_view> drive_alerts(const std::string& link);
    [[nodiscard]] std::vector<alert_view> changer_alerts(const std::string& link);
    void prepare(const std::string& link, std::uint32_t operation, bool immediate);
    void eject(const std::string& link);
    /// Returns the number of the task that erases.
    [[nodiscard]] std::uint32_t start_erase(const std::string& link, bool overwrite_all);
    /// 997 while the task runs, 0 when it is done, else the number of its failure. The server forgets a task when its success
    /// has been read.
    [[nodiscard]] std::uint32_t task_status(std::uint32_t task);

private:
    std::string call(const std::string& procedure, const argument_list& arguments);
    std::vector<alert_view> alerts(const std::string& procedure, const std::string& link);

    connection& server_;
    std::string owner_;
};

}  // namespace console
