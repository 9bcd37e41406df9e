#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors.h"
#include "platform/virtual_library/sense.h"

namespace platform::tape_library {

enum class fault_kind : std::uint8_t {
    sense,                 ///< the command isn't carried out and ends with the sense
    sense_after,           ///< the command is carried out and ends with the sense all the same
    busy,                  ///< status BUSY
    reservation_conflict,  ///< status RESERVATION CONFLICT
    fail_before,           ///< the transport fails and the command isn't carried out
    lost_reply,            ///< the command is carried out and then the transport fails
    half_move,             ///< a move stops on its way: hardware error; the cartridge is back in the source or in the transport
    delay,                 ///< the robot, or the answer, takes longer
    patch_reply,           ///< bytes of the returned data are others
    cut_reply,             ///< the returned data ends early
    replace_reply,         ///< other data is returned
    alert,                 ///< a TapeAlert flag of the unit is raised or cleared; the command is carried out
    dead                   ///< nothing answers
};

/// One thing that goes wrong, and when.
struct fault {
    fault_kind kind = fault_kind::sense;
    std::optional<std::uint8_t> unit;                ///< logical unit; nothing: all
    std::vector<std::uint8_t> opcodes;               ///< empty: all but INQUIRY, REQUEST SENSE and REPORT LUNS; of `dead`: all
    std::optional<std::uint8_t> page;                ///< only INQUIRY, LOG SENSE and MODE SENSE of this page; nothing: all
    bool only_device_identifiers = false;            ///< only READ ELEMENT STATUS with DVCID
    std::uint32_t skip = 0;                          ///< matching commands that pass first
    std::uint32_t times = 1;                         ///< matching commands that are hit; 0: all
    std::int64_t lasts = 0;                          ///< milliseconds from its arming; 0: no limit
    sense_code sense;                                ///< of `sense` and `sense_after`
    std::uint32_t error = error::semaphore_timeout;  ///< of the transport failures
    std::int64_t milliseconds = 0;                   ///< of `delay`; of `dead`: silence before the failure, at most the deadline
    std::uint32_t offset = 0;                        ///< of `patch_reply`; of `cut_reply`: the length that is left
    std::vector<std::uint8_t> bytes;                 ///< of `patch_reply` and `replace_reply`
    std::uint8_t flag = 1;                           ///< of `alert`: 1 to 64
    bool raised = true;                              ///< of `alert`
    bool in_transport = false;                       ///< of `half_move`: where the cartridge stays
};

/// The faults that have a name. Each is `times` 0, that is, stands until it is cleared, unless said otherwise.
namespace faults {
/// The robot's commands and TEST UNIT READY end with 02/04/18.
[[nodiscard]] fault door_open();
/// The next `commands` commands of the changer end with 28/01.
[[nodiscard]] fault port_accessed(std::uint32_t commands);
/// The commands of a drive that want a medium end with 02/04/01 for some time.
[[nodiscard]] fault drive_not_ready(std::uint8_t unit, std::int64_t milliseconds);
/// A TapeAlert flag of a unit is raised, or cleared, at the unit's next command.
[[nodiscard]] fault alert(std::uint8_t unit, std::uint8_t flag, bool raised);
/// READ ELEMENT STATUS with DVCID ends with 24/00.
[[nodiscard]] fault no_device_identifiers();
/// The robot takes so much longer.
[[nodiscard]] fault slow_robot(std::int64_t milliseconds);
/// The first page of READ ELEMENT STATUS claims this descriptor length.
[[nodiscard]] fault descriptor_length(std::uint16_t length);
/// The next move stops on its way.
[[nodiscard]] fault half_move(bool in_transport);
/// The next move is carried out, but its reply is lost.
[[nodiscard]] fault lost_move_reply();
/// All units are gone.
[[nodiscard]] fault target_dead();
}  // namespace faults

/// Faults drawn by chance, the same ones for the same seed and the same commands.
struct seeded_faults {
    std::uint64_t seed = 0;
    std::uint32_t per_mille = 0;  ///< of the commands that are hit
    bool may_strand = false;      ///< moves may leave a cartridge in the transport
};

/// What the library does to one command.
struct fault_decision {
    std::optional<fault> hit;
    std::int64_t delay = 0;  ///< milliseconds
    struct alert_change {
        std::uint8_t flag = 1;
        bool raised = true;
    };
    std::vector<alert_change> alerts{};
};

/// The faults of one library: those of its file `faults.xml` and those that were added here. Callable from any thread.
class fault_script {
public:
    /// The file needn't exist; it is looked at before each command and taken over when its content has changed.
    explicit fault_script(std::u16string path);

    void add(const fault& one);
    /// From now on, until cleared or seeded anew.
    void seed(const seeded_faults& seeded);
    /// All drives claim this serial number; nothing: their own.
    void set_drive_serial(std::optional<std::string> serial);
    /// Takes away all that was added here; the file's faults stay.
    void clear();

    /// Counts the command and says what becomes of it.
    [[nodiscard]] fault_decision decide(std::uint8_t unit, const std::vector<std::uint8_t>& cdb);
    /// Whether a unit that took a command some time ago has died meanwhile: the error of its transport. Counts nothing.
    [[nodiscard]] std::optional<std::uint32_t> died(std::uint8_t unit, const std::vector<std::uint8_t>& cdb);

    [[nodiscard]] std::optional<std::string> drive_serial();

private:
    /// A fault and how often it matched and struck.
    struct armed_fault {
        fault what;
        std::uint32_t passed = 0;
        std::uint32_t struck = 0;
        std::int64_t until = 0;  ///< milliseconds of the clock, 0: no limit

        [[nodiscard]] bool over() const;
    };
    struct fault_set {
        std::vector<armed_fault> faults;
        std::optional<std::string> drive_serial;
        std::optional<seeded_faults> seeded;
        std::uint64_t generator = 0;
    };

    void refresh();
    static void arm(fault_set& set, const fault& one);
    static void arm_seed(fault_set& set, const seeded_faults& seeded);
    static void consult(fault_set& set, std::uint8_t unit, const std::vector<std::uint8_t>& cdb, fault_decision& decision);
    static fault_set parse(std::string_view xml, const std::string& path);

    std::mutex mutex_;
    std::u16string path_;
    std::string content_;
    fault_set of_file_;
    fault_set added_;
};

}  // namespace platform::tape_library
