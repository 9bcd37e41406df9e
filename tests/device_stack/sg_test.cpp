#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>

#include "device_stack/scripted_transport.h"
#include "platform/linux/scsi/sg_source.h"
#include "platform/linux/scsi/sg_transport.h"
#include "support/temporary_folder.h"

using namespace platform::device_stack;
using namespace platform::linux_scsi;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;
using bytes = std::vector<std::uint8_t>;

/// A kernel whose answers a test writes down.
class played_kernel : public sg_system {
public:
    int open_node(const std::string& path, int& failure) override {
        opened.push_back(path);
        failure = open_failure;
        return open_failure != 0 ? -1 : 7;
    }

    void close_node(int node) override { closed.push_back(node); }

    int send(int node, sg_io_hdr& request) override {
        EXPECT_EQ(node, 7);
        EXPECT_EQ(request.interface_id, 'S');
        sent.push_back(request);
        cdbs.emplace_back(request.cmdp, request.cmdp + request.cmd_len);
        request.resid = 0;
        return play ? play(request) : 0;
    }

    int open_failure = 0;
    std::function<int(sg_io_hdr&)> play;
    std::vector<std::string> opened;
    std::vector<int> closed;
    std::vector<sg_io_hdr> sent;
    std::vector<bytes> cdbs;
};

class SgTransport : public testing::Test {
protected:
    scsi_outcome run(std::int64_t timeout = 60) {
        scsi_command command;
        command.cdb = {0x12, 0, 0, 0, 36, 0};
        command.cdb_length = 6;
        command.direction = data_direction::from_device;
        command.data = data;
        command.timeout_seconds = timeout;
        return transport->execute(command);
    }

    std::uint32_t error_of(std::function<int(sg_io_hdr&)> play) {
        kernel->play = std::move(play);
        return run().transport_error;
    }

    std::uint32_t error_of_errno(int number) {
        return error_of([number](sg_io_hdr&) { return number; });
    }

    std::uint32_t error_of_host(unsigned short status) {
        return error_of([status](sg_io_hdr& request) {
            request.host_status = status;
            return 0;
        });
    }

    bytes data = bytes(36);
    std::uint32_t failure = 0;
    std::shared_ptr<played_kernel> kernel = std::make_shared<played_kernel>();
    std::shared_ptr<sg_transport> transport = sg_transport::open(kernel, "/dev/sg3", failure);
};

}  // namespace

TEST_F(SgTransport, SendsACommandForData) {
    kernel->play = [](sg_io_hdr& request) {
        static_cast<std::uint8_t*>(request.dxferp)[0] = 0x08;
        request.resid = 4;
        return 0;
    };
    const scsi_outcome outcome = run(300);
    EXPECT_EQ(outcome.transport_error, 0U);
    EXPECT_EQ(outcome.scsi_status, 0);
    EXPECT_EQ(outcome.transferred, 32U);
    EXPECT_EQ(data[0], 0x08);
    EXPECT_THAT(kernel->cdbs[0], ElementsAre(0x12, 0, 0, 0, 36, 0));
    EXPECT_EQ(kernel->sent[0].dxfer_direction, SG_DXFER_FROM_DEV);
    EXPECT_EQ(kernel->sent[0].dxfer_len, 36U);
    EXPECT_EQ(kernel->sent[0].timeout, 300'000U);
    EXPECT_EQ(kernel->sent[0].flags, 0U);
}

TEST_F(SgTransport, SendsDataAndCommandsWithout) {
    scsi_command command;
    command.cdb[0] = 0x15;
    command.cdb_length = 6;
    command.direction = data_direction::to_device;
    command.data = data;
    EXPECT_EQ(transport->execute(command).transferred, 36U);
    EXPECT_EQ(kernel->sent[0].dxfer_direction, SG_DXFER_TO_DEV);
    command.data = {};
    EXPECT_EQ(transport->execute(command).transferred, 0U);
    EXPECT_EQ(kernel->sent[1].dxfer_direction, SG_DXFER_NONE);
    EXPECT_EQ(kernel->sent[1].dxfer_len, 0U);
    EXPECT_EQ(kernel->sent[1].dxferp, nullptr);
}

TEST_F(SgTransport, BoundsItsTimeOuts) {
    static_cast<void>(run(86'400));
    static_cast<void>(run(0));
    static_cast<void>(run(1LL << 40));
    EXPECT_EQ(kernel->sent[0].timeout, 86'400'000U);
    EXPECT_EQ(kernel->sent[1].timeout, 1'000U);
    EXPECT_EQ(kernel->sent[2].timeout, 0xFFFFFFFEU);  // one more would be none
}

TEST_F(SgTransport, ReportsSense) {
    kernel->play = [](sg_io_hdr& request) {
        const bytes sense = scripted_transport::fixed_sense(6, 0x28, 0);
        std::copy(sense.begin(), sense.end(), request.sbp);
        request.sb_len_wr = 18;
        request.status = 2;
        request.driver_status = 8;
        request.resid = 36;
        return 0;
    };
    const scsi_outcome outcome = run();
    EXPECT_EQ(outcome.transport_error, 0U);
    EXPECT_EQ(outcome.scsi_status, 2);
    EXPECT_EQ(outcome.sense, scripted_transport::fixed_sense(6, 0x28, 0));
    EXPECT_EQ(outcome.transferred, 0U);
    EXPECT_EQ(kernel->sent.size(), 1U);  // a unit attention isn't tried again
}

TEST_F(SgTransport, TakesSenseWithoutAStatusAsACheckCondition) {
    kernel->play = [](sg_io_hdr& request) {
        const bytes sense = scripted_transport::fixed_sense(2, 4, 1);
        std::copy(sense.begin(), sense.end(), request.sbp);
        request.sb_len_wr = 18;
        request.driver_status = 8;
        return 0;
    };
    const scsi_outcome outcome = run();
    EXPECT_EQ(outcome.scsi_status, 2);
    EXPECT_EQ(outcome.sense.size(), 18U);
}

TEST_F(SgTransport, PutsTheDevicesStatusBeforeTheAdapters) {
    kernel->play = [](sg_io_hdr& request) {
        request.status = 8;
        request.host_status = 2;
        return 0;
    };
    const scsi_outcome outcome = run();
    EXPECT_EQ(outcome.transport_error, 0U);
    EXPECT_EQ(outcome.scsi_status, 8);
}

TEST_F(SgTransport, MapsHostStatuses) {
    EXPECT_EQ(error_of_host(0x01), 1167U);
    EXPECT_EQ(error_of_host(0x02), 170U);
    EXPECT_EQ(error_of_host(0x03), 121U);
    EXPECT_EQ(error_of_host(0x04), 1167U);
    EXPECT_EQ(error_of_host(0x05), 1117U);
    EXPECT_EQ(error_of_host(0x07), 1117U);
    EXPECT_EQ(error_of_host(0x08), 1111U);
    EXPECT_EQ(error_of_host(0x0D), 170U);
    EXPECT_EQ(error_of_host(0x0E), 1117U);
    EXPECT_EQ(error_of_host(0x0F), 1167U);
    EXPECT_EQ(error_of_host(0x7F), 1117U);
}

TEST_F(SgTransport, MapsDriverStatuses) {
    const auto with_driver_status = [this](unsigned short status) {
        return error_of([status](sg_io_hdr& request) {
            request.driver_status = status;
            return 0;
        });
    };
    EXPECT_EQ(with_driver_status(0x06), 121U);
    EXPECT_EQ(with_driver_status(0x01), 170U);
    EXPECT_EQ(with_driver_status(0x07), 1117U);
    EXPECT_EQ(with_driver_status(0x10), 0U);  // a suggestion alone is no failure
}

TEST_F(SgTransport, MapsTheKernelsRefusals) {
    EXPECT_EQ(error_of_errno(ENODEV), 1167U);
    EXPECT_EQ(error_of_errno(ENXIO), 1167U);
    EXPECT_EQ(error_of_errno(EAGAIN), 170U);
    EXPECT_EQ(error_of_errno(EBUSY), 170U);
    EXPECT_EQ(error_of_errno(ENOMEM), 8U);
    EXPECT_EQ(error_of_errno(EPERM), 5U);
    EXPECT_EQ(error_of_errno(ETIMEDOUT), 121U);
    EXPECT_EQ(error_of_errno(EINTR), 1117U);
    EXPECT_EQ(error_of_errno(EIO), 1117U);
    EXPECT_EQ(kernel->sent.size(), 9U);
}

TEST_F(SgTransport, MapsFailuresToOpen) {
    const auto error_when = [this](int number) {
        kernel->open_failure = number;
        EXPECT_EQ(sg_transport::open(kernel, "/dev/sg9", failure), nullptr);
        return failure;
    };
    EXPECT_EQ(error_when(ENOENT), 2U);
    EXPECT_EQ(error_when(ENXIO), 2U);
    EXPECT_EQ(error_when(EACCES), 5U);
    EXPECT_EQ(error_when(EBUSY), 32U);
    EXPECT_EQ(error_when(ENOMEM), 8U);
    EXPECT_EQ(error_when(EIO), 31U);
}

TEST_F(SgTransport, ClosesItsNode) {
    transport.reset();
    EXPECT_THAT(kernel->closed, ElementsAre(7));
}

namespace {

/// A folder laid out as sysfs is.
class SgSource : public testing::Test {
protected:
    SgSource() { fs::create_directories(root / "class/scsi_generic"); }

    void plug(const std::string& node, const std::string& address, const std::string& type, const std::string& serial,
              const std::string& state = "running") {
        const fs::path device = root / "devices" / address;
        fs::create_directories(device);
        std::ofstream(device / "type") << type << "\n";
        std::ofstream(device / "state") << state << "\n";
        if (!serial.empty()) {
            std::ofstream page(device / "vpd_pg80", std::ios::binary);
            page << std::string({'\x01', '\x80', '\0', static_cast<char>(serial.size())}) << serial;
        }
        fs::create_directories(root / "class/scsi_generic" / node);
        fs::remove(root / "class/scsi_generic" / node / "device");
        fs::create_directory_symlink("../../../devices/" + address, root / "class/scsi_generic" / node / "device");
    }

    void pull(const std::string& node) { fs::remove_all(root / "class/scsi_generic" / node); }

    const test_support::temporary_folder folder;
    const fs::path root = folder.path();
    std::shared_ptr<played_kernel> kernel = std::make_shared<played_kernel>();
    sg_source source{kernel, root.string(), "/dev"};
    std::uint32_t failure = 0;
};

}  // namespace

TEST_F(SgSource, FindsTapesAndChangersInOrderOfTheirAddresses) {
    plug("sg0", "10:0:0:0", "1", "DRV-B");
    plug("sg1", "2:0:11:0", "1", "DRV-A");
    plug("sg2", "2:0:2:1", "8", "LIB-A  ");
    plug("sg3", "0:0:0:0", "0", "DISK");
    plug("sg4", "2:0:2:0", "1", "DRV-0");
    const auto found = source.enumerate();
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found[0].serial, "DRV-0");
    EXPECT_EQ(found[1].serial, "LIB-A  ");
    EXPECT_EQ(found[2].serial, "DRV-A");
    EXPECT_EQ(found[3].serial, "DRV-B");
    EXPECT_EQ(found[1].peripheral_type, 8);
    EXPECT_EQ(found[1].location.port, 2);
    EXPECT_EQ(found[1].location.path, 0);
    EXPECT_EQ(found[1].location.target, 2);
    EXPECT_EQ(found[1].location.lun, 1);
    EXPECT_THAT(kernel->opened, IsEmpty());  // a look touches no device that the kernel knows enough of
}

TEST_F(SgSource, AsksADeviceWhosePageTheKernelDoesNotKeep) {
    plug("sg5", "1:0:0:0", "8", "");
    kernel->play = [](sg_io_hdr& request) {
        const bytes page = {0x08, 0x80, 0, 4, 'O', 'L', 'D', '1'};
        std::copy(page.begin(), page.end(), static_cast<std::uint8_t*>(request.dxferp));
        request.resid = static_cast<int>(request.dxfer_len - page.size());
        return 0;
    };
    const auto found = source.enumerate();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].serial, "OLD1");
    EXPECT_THAT(kernel->opened, ElementsAre("/dev/sg5"));
    EXPECT_THAT(kernel->closed, ElementsAre(7));
}

TEST_F(SgSource, FindsADeviceThatTellsNoSerial) {
    plug("sg5", "1:0:0:0", "8", "");
    kernel->open_failure = EACCES;
    ASSERT_EQ(source.enumerate().size(), 1U);
    EXPECT_EQ(source.enumerate()[0].serial, "");
}

TEST_F(SgSource, LeavesOutWhatTheKernelHasGivenUp) {
    plug("sg0", "1:0:0:0", "1", "A", "offline");
    plug("sg1", "1:0:1:0", "1", "B", "transport-offline");
    plug("sg2", "1:0:2:0", "1", "C", "deleted");
    plug("sg3", "1:0:3:0", "1", "D", "blocked");
    plug("sg4", "1:0:4:256", "1", "E");
    fs::create_directories(root / "class/scsi_generic/sg9");
    const auto found = source.enumerate();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].serial, "D");
}

TEST_F(SgSource, OpensAUnitWhereverItsNodeIs) {
    plug("sg4", "2:0:2:0", "1", "DRV-0");
    const std::string identity = source.enumerate()[0].identity;
    EXPECT_NE(source.open(identity, failure), nullptr);
    pull("sg4");
    EXPECT_EQ(source.open(identity, failure), nullptr);
    EXPECT_EQ(failure, 2U);
    plug("sg8", "2:0:2:0", "1", "DRV-0");
    EXPECT_NE(source.open(identity, failure), nullptr);
    EXPECT_THAT(kernel->opened, ElementsAre("/dev/sg4", "/dev/sg8"));
}

TEST_F(SgSource, DoesNotTakeAnotherDeviceForTheOneThatWasPulled) {
    plug("sg4", "2:0:2:0", "1", "DRV-0");
    const std::string identity = source.enumerate()[0].identity;
    pull("sg4");
    plug("sg4", "2:0:2:0", "1", "DRV-1");
    EXPECT_EQ(source.open(identity, failure), nullptr);
    EXPECT_NE(source.enumerate()[0].identity, identity);
}

TEST_F(SgSource, KeepsThePortsOfHostsApart) {
    plug("sg0", "3:0:0:0", "1", "A");
    plug("sg1", "259:0:0:0", "1", "B");
    plug("sg2", "300:0:0:0", "1", "C");
    const auto found = source.enumerate();
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0].location.port, 3);
    EXPECT_EQ(found[1].location.port, 255);
    EXPECT_EQ(found[2].location.port, 254);
    EXPECT_EQ(source.enumerate()[2].location.port, 254);
}

TEST_F(SgSource, FindsNothingWhereThereIsNoSg) {
    sg_source nowhere(kernel, (root / "nowhere").string(), "/dev");
    EXPECT_THAT(nowhere.enumerate(), IsEmpty());
}
