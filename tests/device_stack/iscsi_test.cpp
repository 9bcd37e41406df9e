#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <mutex>
#include <thread>

#include "device_stack/tgt_library.h"
#include "foundation/util/bytes.h"
#include "platform/changer_records.h"
#include "platform/device_stack/io_manager.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/sense_error.h"
#include "platform/linux/scsi/host_resolver.h"
#include "platform/linux/scsi/iscsi_source.h"
#include "platform/testing/fakes.h"

using namespace platform::device_stack;
using namespace platform::linux_scsi;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace ioctl = platform::ioctl;

namespace {

using bytes = std::vector<std::uint8_t>;
using wall = std::chrono::steady_clock;

class Iscsi : public testing::Test {
protected:
    void start(const std::vector<std::string>& arguments = {}) {
        library = std::make_unique<tgt_library>(arguments);
        if (!library->is_available()) {
            GTEST_SKIP() << "tgt is not installed";
        }
    }

    iscsi_source& source_of(const std::string& setting) {
        iscsi_source_options options;
        options.entries = parse_iscsi_setting(setting);
        options.initiator = "iqn.2015-06.local.tarno:test";
        // The threads of a look report at the same time.
        options.report = [this](const std::string& message) {
            const std::lock_guard lock(reports_mutex);
            reports.push_back(message);
        };
        source = std::make_shared<iscsi_source>(std::move(options));
        return *source;
    }

    [[nodiscard]] std::string url(const std::string& path = {}) const { return "iscsi://" + library->portal() + path; }

    /// An opened unit of the library: the changer, or a drive.
    std::shared_ptr<scsi_transport> open_unit(std::uint8_t peripheral_type) {
        for (const logical_unit_info& unit : source_of(url()).enumerate()) {
            if (unit.peripheral_type == peripheral_type) {
                identity = unit.identity;
                return source->open(unit.identity, failure);
            }
        }
        return nullptr;
    }

    /// The target puts its serial numbers to the right end of a wide field.
    static std::string bare(const std::string& serial) { return serial.substr(serial.find_first_not_of(' ')); }

    static scsi_outcome test_unit_ready(scsi_transport& unit, std::int64_t seconds = 10) {
        return send_without_data(unit, {0, 0, 0, 0, 0, 0}, seconds);
    }

    std::unique_ptr<tgt_library> library;
    std::shared_ptr<iscsi_source> source;
    std::mutex reports_mutex;
    std::vector<std::string> reports;
    std::string identity;
    std::uint32_t failure = 0;
};

/// A port of the loopback address that takes connections and says nothing.
class silent_listener {
public:
    silent_listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(socket_, 8), 0);
        EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port = ntohs(address.sin_port);
    }
    ~silent_listener() { close(socket_); }
    silent_listener(const silent_listener&) = delete;
    silent_listener& operator=(const silent_listener&) = delete;

    std::uint16_t port = 0;

private:
    int socket_;
};

}  // namespace

TEST_F(Iscsi, FindsEveryUnitBehindAPortal) {
    ASSERT_NO_FATAL_FAILURE(start());
    const auto units = source_of(url()).enumerate();
    ASSERT_EQ(units.size(), 3U);
    EXPECT_EQ(units[0].peripheral_type, 1);
    EXPECT_EQ(bare(units[0].serial), "TDRV0001");
    EXPECT_EQ(units[0].location.lun, 1);
    EXPECT_EQ(bare(units[1].serial), "TDRV0002");
    EXPECT_EQ(units[2].peripheral_type, 8);
    EXPECT_EQ(bare(units[2].serial), "TLIB0001");
    EXPECT_EQ(units[2].location.lun, 3);
    EXPECT_EQ(units[2].identity, url("/" + library->target() + "/3"));
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(Iscsi, FindsWhatAnEntryNames) {
    ASSERT_NO_FATAL_FAILURE(start());
    const std::string target = "/" + library->target();
    EXPECT_EQ(source_of(url(target)).enumerate().size(), 3U);
    const auto one = source_of(url(target + "/2")).enumerate();
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(bare(one[0].serial), "TDRV0002");
    EXPECT_THAT(source_of(url(target + "/9")).enumerate(), IsEmpty());
    // The same unit by two entries is one unit, at its first place.
    const auto both = source_of(url(target + "/3") + ";" + url()).enumerate();
    ASSERT_EQ(both.size(), 3U);
    EXPECT_EQ(bare(both[0].serial), "TLIB0001");
}

TEST_F(Iscsi, ConsumesThePowerOnAttentionOfANewSessionOnly) {
    ASSERT_NO_FATAL_FAILURE(start());
    const auto drive = open_unit(1);
    ASSERT_NE(drive, nullptr);
    const scsi_outcome first = test_unit_ready(*drive);
    ASSERT_EQ(first.scsi_status, scsi_status::check_condition);
    EXPECT_EQ(system_error_of(first), 1112U);  // the empty drive, not the reset
    EXPECT_EQ(system_error_of(test_unit_ready(*drive)), 1112U);
}

TEST_F(Iscsi, CarriesSenseAndDataByteForByte) {
    ASSERT_NO_FATAL_FAILURE(start());
    const auto changer = open_unit(8);
    ASSERT_NE(changer, nullptr);
    bytes data;
    EXPECT_EQ(system_error_of(inquire(*changer, data)), 0U);
    EXPECT_EQ(util::to_text(util::slice(data, 8, 8)), "TARNO   ");
    EXPECT_EQ(util::to_text(util::slice(data, 16, 16)), "TESTLIBRARY     ");
    const scsi_outcome refused = send_without_data(*changer, {0xEE, 0, 0, 0, 0, 0}, 10);
    EXPECT_EQ(refused.scsi_status, 2);
    ASSERT_GE(refused.sense.size(), 14U);
    EXPECT_EQ(refused.sense[0] & 0x7F, 0x70);
    EXPECT_EQ(refused.sense[2] & 0x0F, 5);
    EXPECT_EQ(refused.sense[12], 0x20);
}

TEST_F(Iscsi, ServesTheChangerClass) {
    ASSERT_NO_FATAL_FAILURE(start());
    platform::testing::test_system environment;
    source_of(url());
    io_manager manager({source}, {});
    const auto changer = manager.open_device("\\\\.\\Changer0");
    ASSERT_NE(changer, platform::invalid_device);
    std::uint32_t returned = 0;
    bytes block(60);
    ASSERT_TRUE(manager.control(changer, ioctl::changer_get_parameters, {}, block, returned));
    const auto parameters = util::load_record<platform::GET_CHANGER_PARAMETERS>(block);
    EXPECT_EQ(parameters.NumberStorageElements, 8);
    EXPECT_EQ(parameters.NumberDataTransferElements, 2);

    const auto read = [&](platform::CHANGER_ELEMENT element, std::uint32_t count) {
        platform::CHANGER_READ_ELEMENT_STATUS request;
        request.Element = element;
        request.NumberOfElements = count;
        request.VolumeTagInfo = 1;
        block.assign(std::size_t{count} * 156, 0);
        EXPECT_TRUE(manager.control(changer, ioctl::changer_get_element_status, util::record_bytes(request), block, returned));
        EXPECT_EQ(returned, block.size());
        std::vector<platform::CHANGER_ELEMENT_STATUS_EX> records;
        for (std::size_t i = 0; i < count; ++i) {
            records.push_back(util::load_record<platform::CHANGER_ELEMENT_STATUS_EX>(util::slice(block, i * 156, 156)));
        }
        return records;
    };
    const auto slots = read({platform::ChangerSlot, 0}, 8);
    EXPECT_EQ(util::without_trailing_blanks(util::text_to_nul(slots[0].PrimaryVolumeID)), "BAR001L8");
    EXPECT_NE(slots[0].Flags & platform::ELEMENT_STATUS_FULL, 0U);
    EXPECT_EQ(slots[7].Element.ElementAddress, 7U);
    EXPECT_EQ(slots[7].Flags & platform::ELEMENT_STATUS_FULL, 0U);

    platform::CHANGER_MOVE_MEDIUM move;
    move.Transport = {platform::ChangerTransport, 0};
    move.Source = {platform::ChangerSlot, 0};
    move.Destination = {platform::ChangerDrive, 1};
    ASSERT_TRUE(manager.control(changer, ioctl::changer_move_medium, util::record_bytes(move), {}, returned));
    EXPECT_NE(read({platform::ChangerDrive, 1}, 1)[0].Flags & platform::ELEMENT_STATUS_FULL, 0U);
    EXPECT_FALSE(manager.control(changer, ioctl::changer_move_medium, util::record_bytes(move), {}, returned));
    EXPECT_NE(environment.errors.last_error(), 0U);
    EXPECT_TRUE(manager.close_device(changer));
}

TEST_F(Iscsi, LogsInByChap) {
    ASSERT_NO_FATAL_FAILURE(start({"--user", "backup", "--password", "longsecret12"}));
    const std::string where = library->portal() + "/" + library->target();
    EXPECT_EQ(source_of("iscsi://backup%longsecret12@" + where).enumerate().size(), 3U);
    EXPECT_THAT(reports, IsEmpty());
    EXPECT_THAT(source_of("iscsi://backup%wrongsecret1@" + where).enumerate(), IsEmpty());
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_THAT(reports[0], HasSubstr("[" + where + "] can't be used: the log-in at"));
    EXPECT_EQ(reports[0].find("wrongsecret1"), std::string::npos);
    EXPECT_THAT(source_of("iscsi://" + where).enumerate(), IsEmpty());
}

TEST_F(Iscsi, ReportsATargetThatGoesAndComesBack) {
    ASSERT_NO_FATAL_FAILURE(start());
    source_of(url("/" + library->target()));
    ASSERT_EQ(source->enumerate().size(), 3U);
    library->signal_daemon(SIGSTOP);
    const auto begin = wall::now();
    EXPECT_THAT(source->enumerate(), IsEmpty());
    EXPECT_LT(wall::now() - begin, 15s);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_THAT(reports[0], HasSubstr("can't be used: "));
    library->signal_daemon(SIGCONT);
    EXPECT_EQ(source->enumerate().size(), 3U);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[1], "iSCSI: [" + library->portal() + "/" + library->target() + "] answers again.");
}

TEST_F(Iscsi, EndsACommandToAKilledTargetAtOnce) {
    ASSERT_NO_FATAL_FAILURE(start());
    const auto changer = open_unit(8);
    ASSERT_NE(changer, nullptr);
    ASSERT_EQ(test_unit_ready(*changer).transport_error, 0U);
    library->signal_daemon(SIGSTOP);  // so that the command is under way when the target dies
    auto running = std::async(std::launch::async, [&] { return test_unit_ready(*changer, 300); });
    EXPECT_EQ(running.wait_for(300ms), std::future_status::timeout);
    const auto begin = wall::now();
    library->signal_daemon(SIGKILL);
    EXPECT_EQ(running.get().transport_error, 1117U);
    EXPECT_LT(wall::now() - begin, 10s);
    // Nobody is there any more, neither for a command nor for an open.
    EXPECT_EQ(test_unit_ready(*changer).transport_error, 1167U);
    EXPECT_EQ(source->open(identity, failure), nullptr);
    EXPECT_EQ(failure, 1167U);
    EXPECT_THAT(source->enumerate(), IsEmpty());
    EXPECT_EQ(source->open(identity, failure), nullptr);
    EXPECT_EQ(failure, 2U);
}

TEST_F(Iscsi, EndsACommandToASilentTargetByItsDeadline) {
    ASSERT_NO_FATAL_FAILURE(start());
    const auto changer = open_unit(8);
    ASSERT_NE(changer, nullptr);
    const scsi_outcome before = test_unit_ready(*changer);
    ASSERT_EQ(before.transport_error, 0U);
    EXPECT_EQ(test_unit_ready(*changer).connection, before.connection);
    library->signal_daemon(SIGSTOP);
    const auto begin = wall::now();
    EXPECT_EQ(test_unit_ready(*changer, 1).transport_error, 121U);
    const auto took = wall::now() - begin;
    EXPECT_GE(took, 1s);
    EXPECT_LT(took, 4s);
    // A second thread waits for the first within its own deadline.
    auto other = std::async(std::launch::async, [&] { return test_unit_ready(*changer, 3); });
    EXPECT_NE(test_unit_ready(*changer, 2).transport_error, 0U);
    EXPECT_NE(other.get().transport_error, 0U);
    EXPECT_LT(wall::now() - begin, 15s);
    library->signal_daemon(SIGCONT);
    // The session is made anew, its reset attention is not shown; but that it is another one is.
    const scsi_outcome after = test_unit_ready(*changer);
    EXPECT_EQ(after.transport_error, 0U);
    EXPECT_NE(after.connection, before.connection);
    EXPECT_EQ(test_unit_ready(*changer).scsi_status, 0);
}

TEST_F(Iscsi, BoundsTheWaitForAPortalThatSaysNothing) {
    const silent_listener listener;
    const auto begin = wall::now();
    EXPECT_THAT(source_of("iscsi://127.0.0.1:" + std::to_string(listener.port) + "/iqn.nobody").enumerate(), IsEmpty());
    const auto took = wall::now() - begin;
    EXPECT_GE(took, 4s);
    EXPECT_LT(took, 8s);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_THAT(reports[0], HasSubstr("took too long"));
    // Now that it is known to be silent, further looks wait a second for it.
    for (int look = 0; look < 2; ++look) {
        const auto again = wall::now();
        EXPECT_THAT(source->enumerate(), IsEmpty());
        EXPECT_LT(wall::now() - again, 3s);
    }
    EXPECT_EQ(reports.size(), 1U);
}

TEST_F(Iscsi, AsksPortalsAtTheSameTime) {
    const silent_listener one;
    const silent_listener other;
    const std::string head = "iscsi://127.0.0.1:";
    const auto begin = wall::now();
    EXPECT_THAT(source_of(head + std::to_string(one.port) + ";" + head + std::to_string(other.port)).enumerate(), IsEmpty());
    EXPECT_LT(wall::now() - begin, 9s);
    EXPECT_EQ(reports.size(), 2U);
    const auto again = wall::now();
    EXPECT_THAT(source->enumerate(), IsEmpty());
    EXPECT_LT(wall::now() - again, 3s);
    EXPECT_EQ(reports.size(), 2U);
}

TEST(HostResolver, TakesAddressesAsTheyAre) {
    std::string reason;
    EXPECT_THAT(resolve_portal({"127.0.0.1", 3260}, wall::now() + 5s, reason), ElementsAre("127.0.0.1:3260"));
    EXPECT_THAT(resolve_portal({"::1", 77}, wall::now() + 5s, reason), ElementsAre("[::1]:77"));
    EXPECT_EQ(reason, "");
}

TEST(HostResolver, TellsWhyANameIsNoAddress) {
    std::string reason;
    EXPECT_THAT(resolve_portal({"no such host", 3260}, wall::now() + 20s, reason), IsEmpty());
    EXPECT_THAT(reason, HasSubstr("the name [no such host] could not be resolved"));
}

TEST(HostResolver, WaitsNoLongerThanItMay) {
    std::string reason;
    const auto begin = wall::now();
    static_cast<void>(resolve_portal({"host.invalid", 3260}, wall::now() + 200ms, reason));
    EXPECT_LT(wall::now() - begin, 3s);
    EXPECT_FALSE(reason.empty());
}

TEST(HostResolver, ResolvesTheNameOfThisMachineItself) {
    std::string reason;
    EXPECT_THAT(resolve_portal({"localhost", 3260}, wall::now() + 20s, reason), Contains("127.0.0.1:3260"));
    EXPECT_EQ(reason, "");
}

/// A name service that says nothing would otherwise be asked by more and more threads, one for each look.
TEST(HostResolver, AsksForANameByOneThreadAtATime) {
    const auto threads = [] {
        const std::filesystem::directory_iterator all("/proc/self/task");
        return std::distance(begin(all), end(all));
    };
    std::string reason;
    const auto before = threads();
    for (int i = 0; i < 50; ++i) {
        static_cast<void>(resolve_portal({"silent.invalid", 3260}, wall::now(), reason));
        // One may be about to end when the next begins; an instrumented build may have a thread of its own.
        EXPECT_LE(threads(), before + 3);
    }
    EXPECT_FALSE(reason.empty());
}
