#include "platform/linux/scsi/sg_system.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace platform::linux_scsi {

namespace {

class kernel_sg_system final : public sg_system {
public:
    int open_node(const std::string& path, int& failure) override {
        // Without O_NONBLOCK the open would wait for whoever holds the device exclusively.
        const int node = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        failure = node < 0 ? errno : 0;
        return node;
    }

    void close_node(int node) override { close(node); }

    int send(int node, sg_io_hdr& request) override { return ioctl(node, SG_IO, &request) < 0 ? errno : 0; }
};

}  // namespace

std::shared_ptr<sg_system> make_kernel_sg_system() {
    return std::make_shared<kernel_sg_system>();
}

}  // namespace platform::linux_scsi
