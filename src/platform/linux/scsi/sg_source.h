#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_transport.h"
#include "platform/linux/scsi/sg_system.h"

namespace platform::linux_scsi {

/// The tape drives and medium changers that the kernel's generic SCSI driver shows, in the order of host, channel, target and
/// logical unit. Units with a logical unit number above 255 are left out: a SCSI address has one byte for it.
class sg_source : public device_stack::scsi_source {
public:
    /// `sysfs_root` is where sysfs is mounted, `device_root` the folder of the device nodes.
    explicit sg_source(std::shared_ptr<sg_system> kernel = make_kernel_sg_system(), std::string sysfs_root = "/sys",
                       std::string device_root = "/dev");

    [[nodiscard]] std::vector<device_stack::logical_unit_info> enumerate() override;
    [[nodiscard]] std::shared_ptr<device_stack::scsi_transport> open(const std::string& identity, std::uint32_t& failure) override;

private:
    struct found_unit;
    [[nodiscard]] std::vector<found_unit> scan();
    [[nodiscard]] bool read_unit(const std::string& node_name, found_unit& found);
    [[nodiscard]] std::string read_serial(const std::string& device_folder, const std::string& node_path);

    [[nodiscard]] std::uint8_t port_of(std::uint32_t host);

    std::shared_ptr<sg_system> kernel_;
    std::string class_folder_;
    std::string device_root_;

    std::mutex ports_mutex_;
    std::map<std::uint32_t, std::uint8_t> ports_;  ///< of the hosts seen so far
};

}  // namespace platform::linux_scsi
