#pragma once

#include <memory>
#include <string>

#include "platform/device_stack/scsi_transport.h"
#include "platform/linux/scsi/sg_system.h"

namespace platform::linux_scsi {

/// A logical unit behind a node of the generic SCSI driver. The driver queues, so that threads don't wait for each other here.
class sg_transport : public device_stack::scsi_transport {
public:
    /// Opens the node. Null on failure, with a system error number: 2 gone, 5 no rights, 32 held exclusively, else 31.
    [[nodiscard]] static std::shared_ptr<sg_transport> open(std::shared_ptr<sg_system> kernel, const std::string& node_path,
                                                            std::uint32_t& failure);
    ~sg_transport() override;
    sg_transport(const sg_transport&) = delete;
    sg_transport& operator=(const sg_transport&) = delete;

    [[nodiscard]] device_stack::scsi_outcome execute(const device_stack::scsi_command& command) override;

private:
    sg_transport(std::shared_ptr<sg_system> kernel, int node);

    std::shared_ptr<sg_system> kernel_;
    int node_;
};

}  // namespace platform::linux_scsi
