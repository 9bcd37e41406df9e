#pragma once

#include <scsi/sg.h>

#include <memory>
#include <string>

namespace platform::linux_scsi {

/// The calls through which the generic SCSI driver is reached. They report errno numbers; what they mean for a device is decided
/// by `sg_transport`, so that every answer of the kernel can be played to it.
class sg_system {
public:
    virtual ~sg_system() = default;

    /// Opens a device node for commands. -1 on failure, with the errno number.
    virtual int open_node(const std::string& path, int& failure) = 0;
    virtual void close_node(int node) = 0;
    /// One SG_IO: blocks until the command has ended or its time-out has passed. 0, or an errno number.
    virtual int send(int node, sg_io_hdr& request) = 0;
};

/// The kernel's.
[[nodiscard]] std::shared_ptr<sg_system> make_kernel_sg_system();

}  // namespace platform::linux_scsi
