#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_transport.h"
#include "platform/linux/scsi/iscsi_link.h"
#include "platform/linux/scsi/iscsi_setting.h"

namespace platform::linux_scsi {

struct iscsi_source_options {
    std::vector<iscsi_entry> entries;
    std::string initiator;  ///< name of this machine's initiator; empty: one made from the host's name
    /// Told when a portal or target stops answering, and when it answers again. Called from any thread. May be empty.
    std::function<void(const std::string& message)> report;
};

/// The tape drives and medium changers behind iSCSI portals, in the order of the entries and of the logical units. A look asks
/// all entries, and the targets of one portal, at the same time, so that those which don't answer delay it by five seconds once.
/// Who let a look wait in vain is given one second by the looks of the next half a minute.
class iscsi_source : public device_stack::scsi_source {
public:
    explicit iscsi_source(iscsi_source_options options);

    [[nodiscard]] std::vector<device_stack::logical_unit_info> enumerate() override;
    /// Asks the unit for its kind before it is handed out, so that one that is gone is noticed here.
    [[nodiscard]] std::shared_ptr<device_stack::scsi_transport> open(const std::string& identity, std::uint32_t& failure) override;

private:
    struct found_unit;

    [[nodiscard]] std::vector<found_unit> scan_entry(const iscsi_entry& entry);
    [[nodiscard]] std::vector<found_unit> scan_target(const iscsi_entry& entry, const iscsi_endpoint& endpoint);
    [[nodiscard]] static bool identify(iscsi_transport& transport, std::int64_t seconds, device_stack::logical_unit_info& info);
    [[nodiscard]] std::vector<iscsi_endpoint> targets_of(const iscsi_entry& entry);
    [[nodiscard]] std::vector<std::uint8_t> units_of(const iscsi_endpoint& endpoint, const std::shared_ptr<iscsi_link>& link,
                                                     const iscsi_entry& entry, std::int64_t seconds);
    [[nodiscard]] std::shared_ptr<iscsi_link> scan_link_of(const iscsi_endpoint& endpoint);
    [[nodiscard]] iscsi_endpoint endpoint_of(const iscsi_entry& entry, const iscsi_portal& portal, const std::string& target) const;
    [[nodiscard]] std::uint32_t target_number(const std::string& target);
    [[nodiscard]] std::int64_t patience_with(const std::string& what);
    void note(const std::string& what, const std::string& failure, bool waited_in_vain);

    struct known_unit {
        iscsi_endpoint endpoint;
        std::uint8_t lun = 0;
        std::uint8_t peripheral_type = 0;
        std::shared_ptr<iscsi_link> link;  ///< made at the first open, kept with its session
    };

    const iscsi_source_options options_;
    const std::string initiator_;
    std::mutex mutex_;  ///< guards what follows; never held while a target is spoken to
    std::map<std::string, std::shared_ptr<iscsi_link>> scan_links_;  ///< by target, for looks only
    std::map<std::string, std::uint32_t> target_numbers_;
    std::map<std::string, known_unit> units_;             ///< by identity
    std::map<std::string, bool> answering_;               ///< by portal or target
    std::map<std::string, io_clock::time_point> silent_;  ///< those that didn't answer in time, and when they were last given it
};

}  // namespace platform::linux_scsi
