#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>

#include "device_stack/tgt_library.h"
#include "foundation/util/bytes.h"
#include "platform/changer_records.h"
#include "platform/device_stack/io_manager.h"
#include "platform/device_stack/tape_drives.h"
#include "platform/linux/scsi/iscsi_source.h"
#include "platform/tape_records.h"
#include "platform/testing/fakes.h"

using namespace platform;
using namespace platform::device_stack;
using namespace std::chrono_literals;
namespace scsi = platform::linux_scsi;

namespace {

using wall = std::chrono::steady_clock;

/// The tape functions over drives that another project emulates: the first holds a cartridge, the second is empty.
class TapeOverIscsi : public ::testing::Test {
protected:
    void SetUp() override {
        if (!library.is_available()) {
            GTEST_SKIP() << "tgt is not installed";
        }
        scsi::iscsi_source_options options;
        options.entries = scsi::parse_iscsi_setting("iscsi://" + library.portal() + "/" + library.target());
        options.initiator = "iqn.2015-06.local.tarno:test";
        manager = std::make_unique<io_manager>(
            std::vector<std::shared_ptr<scsi_source>>{std::make_shared<scsi::iscsi_source>(std::move(options))},
            std::vector<std::string>{});
        tapes = std::make_unique<tape_drives>(*manager);
        load_first_drive();
        full = manager->open_device("\\\\.\\Tape0");
        empty = manager->open_device("\\\\.\\Tape1");
        ASSERT_NE(full, invalid_device);
        ASSERT_NE(empty, invalid_device);
    }

    void load_first_drive() {
        const device_handle changer = manager->open_device("\\\\.\\Changer0");
        ASSERT_NE(changer, invalid_device);
        CHANGER_MOVE_MEDIUM move;
        move.Transport = {ChangerTransport, 0};
        move.Source = {ChangerSlot, 0};
        move.Destination = {ChangerDrive, 0};
        std::uint32_t returned = 0;
        ASSERT_TRUE(manager->control(changer, ioctl::changer_move_medium, util::record_bytes(move), {}, returned));
        ASSERT_TRUE(manager->close_device(changer));
    }

    std::uint32_t media_of(device_handle drive, TAPE_GET_MEDIA_PARAMETERS& media) {
        std::uint32_t size = sizeof(media);
        return tapes->get_parameters(drive, GET_TAPE_MEDIA_INFORMATION, size, util::writable_bytes(media));
    }
    std::uint32_t drive_of(device_handle drive, TAPE_GET_DRIVE_PARAMETERS& abilities) {
        std::uint32_t size = sizeof(abilities);
        return tapes->get_parameters(drive, GET_TAPE_DRIVE_INFORMATION, size, util::writable_bytes(abilities));
    }

    platform::testing::test_system system_;
    tgt_library library;
    std::unique_ptr<io_manager> manager;
    std::unique_ptr<tape_drives> tapes;
    device_handle full = invalid_device;
    device_handle empty = invalid_device;
};

/// The same for each tape function.
struct tape_call {
    const char* name;
    std::function<std::uint32_t(tape_functions&, device_handle)> run;
};

std::uint32_t parameters(tape_functions& tapes, device_handle drive, std::uint32_t operation) {
    std::vector<std::uint8_t> record(32);
    std::uint32_t size = 32;
    return tapes.get_parameters(drive, operation, size, record);
}

const tape_call tape_calls[] = {
    {"MediaParameters", [](auto& tapes, auto drive) { return parameters(tapes, drive, GET_TAPE_MEDIA_INFORMATION); }},
    {"DriveParameters", [](auto& tapes, auto drive) { return parameters(tapes, drive, GET_TAPE_DRIVE_INFORMATION); }},
    {"Load", [](auto& tapes, auto drive) { return tapes.prepare(drive, TAPE_LOAD, false); }},
    {"Unload", [](auto& tapes, auto drive) { return tapes.prepare(drive, TAPE_UNLOAD, true); }},
    {"Tension", [](auto& tapes, auto drive) { return tapes.prepare(drive, TAPE_TENSION, false); }},
    {"Lock", [](auto& tapes, auto drive) { return tapes.prepare(drive, TAPE_LOCK, false); }},
    {"Unlock", [](auto& tapes, auto drive) { return tapes.prepare(drive, TAPE_UNLOCK, false); }},
    {"Format", [](auto& tapes, auto drive) { return tapes.prepare(drive, TAPE_FORMAT, false); }},
    {"Rewind", [](auto& tapes, auto drive) { return tapes.set_position(drive, TAPE_REWIND, 0, 0, false); }},
    {"EraseShort", [](auto& tapes, auto drive) { return tapes.erase(drive, TAPE_ERASE_SHORT, false); }},
    {"EraseLong", [](auto& tapes, auto drive) { return tapes.erase(drive, TAPE_ERASE_LONG, false); }},
    {"Status", [](auto& tapes, auto drive) { return tapes.get_status(drive); }},
};

class TapeOverIscsiKilled : public TapeOverIscsi, public ::testing::WithParamInterface<tape_call> {};

}  // namespace

TEST_F(TapeOverIscsi, TellsTheMedium) {
    TAPE_GET_MEDIA_PARAMETERS media;
    ASSERT_EQ(media_of(full, media), 0U);
    // This drive tells its medium's capacity in no way that there is.
    EXPECT_EQ(media.Capacity, 0U);
    EXPECT_EQ(media.Remaining, 0U);
    EXPECT_EQ(media.BlockSize, 0U);
    EXPECT_EQ(media.PartitionCount, 1U);
    EXPECT_EQ(media.WriteProtected, 0);
    EXPECT_EQ(media_of(empty, media), 1112U);
}

TEST_F(TapeOverIscsi, TellsTheDriveWithAndWithoutAMedium) {
    for (const device_handle drive : {full, empty}) {
        TAPE_GET_DRIVE_PARAMETERS abilities;
        ASSERT_EQ(drive_of(drive, abilities), 0U);
        EXPECT_EQ(abilities.DefaultBlockSize, 0U);
        EXPECT_EQ(abilities.MinimumBlockSize, 4U);
        EXPECT_EQ(abilities.MaximumBlockSize, 1'048'576U);
        EXPECT_EQ(abilities.MaximumPartitionCount, 1U);
        EXPECT_EQ(abilities.Compression, 0);
    }
}

TEST_F(TapeOverIscsi, TellsWhetherTheDriveIsReady) {
    EXPECT_EQ(tapes->get_status(full), 0U);
    EXPECT_EQ(tapes->get_status(empty), 1112U);
    EXPECT_EQ(system_.errors.last_error(), 1112U);
}

TEST_F(TapeOverIscsi, Rewinds) {
    EXPECT_EQ(tapes->set_position(full, TAPE_REWIND, 0, 0, false), 0U);
    EXPECT_EQ(tapes->set_position(full, TAPE_REWIND, 0, 0, true), 0U);
    EXPECT_EQ(tapes->set_position(empty, TAPE_REWIND, 0, 0, false), 1112U);
}

TEST_F(TapeOverIscsi, PreparesWhatTheDriveKnows) {
    for (const std::uint32_t operation : {TAPE_TENSION, TAPE_LOCK, TAPE_UNLOCK, TAPE_UNLOAD, TAPE_LOAD}) {
        EXPECT_EQ(tapes->prepare(full, operation, false), 0U) << operation;
        EXPECT_EQ(tapes->prepare(full, operation, true), 0U) << operation;
    }
    EXPECT_EQ(tapes->prepare(full, TAPE_FORMAT, false), 50U);
}

TEST_F(TapeOverIscsi, ReportsThatTheDriveCannotErase) {
    for (const device_handle drive : {full, empty}) {
        EXPECT_EQ(tapes->erase(drive, TAPE_ERASE_SHORT, false), 50U);
        EXPECT_EQ(tapes->erase(drive, TAPE_ERASE_LONG, false), 50U);
        EXPECT_EQ(tapes->erase(drive, TAPE_ERASE_LONG, true), 50U);
    }
}

TEST_P(TapeOverIscsiKilled, EndsAtOnce) {
    library.signal_daemon(SIGSTOP);  // so that the command is under way when the target dies
    auto running = std::async(std::launch::async, [this] { return GetParam().run(*tapes, full); });
    EXPECT_EQ(running.wait_for(200ms), std::future_status::timeout);
    const auto begin = wall::now();
    library.signal_daemon(SIGKILL);
    EXPECT_EQ(running.get(), 1117U);
    EXPECT_LT(wall::now() - begin, 10s);
    EXPECT_EQ(GetParam().run(*tapes, full), 1167U);
}

INSTANTIATE_TEST_SUITE_P(Each, TapeOverIscsiKilled, ::testing::ValuesIn(tape_calls),
                         [](const auto& one) { return std::string(one.param.name); });
