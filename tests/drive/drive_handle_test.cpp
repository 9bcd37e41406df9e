#include "drive/drive_handle.h"

#include <gtest/gtest.h>

#include "drive/drive_world.h"
#include "foundation/exc/exceptions.h"
#include "support/devices_in_front.h"

namespace {

using namespace drive_tests;
using changer_tests::joined;
using changer_tests::padded;
using changer_tests::text_bytes;
using platform::testing::answer_scsi;
using platform::testing::cdb_of;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using request_kind = device_request::kind;

class DriveOpening : public DriveTest {};

TEST_F(DriveOpening, OpensTheDeviceOnceAndClosesItAtTheEnd) {
    {
        const CDriveHandle drive(drive_link);
        EXPECT_EQ(world.system.devices.open_handles(), 1u);
        EXPECT_EQ(drive.last_tape_status(), 0u);
        EXPECT_NE(drive.device(), platform::invalid_device);
    }
    EXPECT_EQ(world.system.devices.open_handles(), 0u);
    EXPECT_EQ(world.system.devices.requests(request_kind::open).size(), 1u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(DriveOpening, AFailedCloseIsNotTold) {
    world.devices.close_error = 6;
    { const CDriveHandle drive(drive_link); }
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(DriveOpening, TriesADriveThatIsNotThereOnce) {
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([] { const CDriveHandle drive("\\\\.\\Tape7"); }),
              system_failure("The system cannot find the file specified.",
                             "Problem with CreateFile in '\\\\.\\Tape7' with error The system cannot find the file specified.",
                             "0x00000002"));
    EXPECT_EQ(world.system.devices.requests(request_kind::open).size(), 1u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_THAT(world.log(), ElementsAre("ERR |Can not open '\\\\.\\Tape7' device for 0 seconds"));
    EXPECT_EQ(world.system.devices.requests(request_kind::close).size(), 0u);
}

TEST_F(DriveOpening, TellsHowLongAFailedOpeningTook) {
    world.set_timeout(61);
    world.system.registry.set_dword(changer_tests::tape_key, "TapeTimeOutForOpening", 1);
    world.system.devices.on_open([this](const std::string&) {
        world.system.clock.advance(42'000);
        return 1117u;
    });
    EXPECT_EQ(
        failure_text<exc::win_sys_exc_t>([] { const CDriveHandle drive(drive_link); }),
        system_failure("The request could not be performed because of an I/O device error.",
                       "Problem with CreateFile in '\\\\.\\Tape0' with error The request could not be performed because of an "
                       "I/O device error.",
                       "0x0000045d"));
    EXPECT_THAT(world.log(), ElementsAre("ERR |Can not open '\\\\.\\Tape0' device for 42 seconds"));
}

/// Opening fails without a reason.
class mute_devices final : public test_support::devices_in_front {
public:
    using devices_in_front::devices_in_front;

    platform::device_handle open_device(const std::string&) override {
        platform::system().errors->set_last_error(0);
        return platform::invalid_device;
    }
};

TEST_F(DriveOpening, AFailureWithoutANumberHasNoText) {
    mute_devices mute(world.system.devices);
    platform::system_set set = platform::system();
    set.devices = &mute;
    const platform::scoped_system scope(set);
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([] { const CDriveHandle drive(drive_link); }),
              system_failure("The operation completed successfully.", "Problem with CreateFile in '\\\\.\\Tape0' ", "0x00000000"));
}

TEST_F(DriveOpening, TellsATimeoutThatIsNotTheUsualOne) {
    const std::vector<std::pair<std::uint32_t, std::string>> cases = {{60, ""}, {61, "61"}, {0, "0"}, {0xFFFFFFFF, "4294967295"}};
    for (const auto& [value, shown] : cases) {
        world.system.log.clear();
        world.set_timeout(value);
        const CDriveHandle drive(drive_link);
        if (shown.empty()) {
            EXPECT_THAT(world.log(), IsEmpty());
        } else {
            EXPECT_THAT(world.log(), ElementsAre("tap| Change tape device not ready time out to " + shown + " sec."));
        }
    }
}

class DriveIdentity : public DriveTest {
protected:
    static bytes number(std::uint8_t value) { return {0x1F, 0, 0, 0, value, 0, 0, 0, 0, 0, 0, 0}; }
    static bytes address(std::uint8_t lun) { return {8, 0, 0, 0, 1, 2, 3, lun}; }
};

TEST_F(DriveIdentity, TheDeviceNumberComesFromTheStorageStack) {
    world.controls_end_with(get_device_number, {0}, {0x1F, 0, 0, 0, 4, 3, 2, 1, 0, 0, 0, 0});
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetDeviceNumber(), 0x01020304u);
    EXPECT_EQ(drive.GetDeviceName(), u"Tape16909060");
    const auto sent = world.controls(get_device_number);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_THAT(sent[0].input, IsEmpty());
    EXPECT_EQ(sent[0].output_size, 12u);
    EXPECT_EQ(sent[0].handle, drive.device());
}

TEST_F(DriveIdentity, TheScsiAddressComesFromThePort) {
    world.controls_end_with(get_scsi_address, {0}, address(4));
    const CDriveHandle drive(drive_link);
    const platform::SCSI_ADDRESS answer = drive.GetScsiAddress();
    EXPECT_EQ(answer.PortNumber, 1);
    EXPECT_EQ(answer.PathId, 2);
    EXPECT_EQ(answer.TargetId, 3);
    EXPECT_EQ(answer.Lun, 4);
    const auto sent = world.controls(get_scsi_address);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_THAT(sent[0].input, IsEmpty());
    EXPECT_EQ(sent[0].output_size, 8u);
}

TEST_F(DriveIdentity, AMediaChangeGetsOneSecondTryAtOnce) {
    const CDriveHandle drive(drive_link);
    world.controls_end_with(get_device_number, {1110, 0}, number(5));
    EXPECT_EQ(drive.GetDeviceNumber(), 5u);
    EXPECT_EQ(world.controls(get_device_number).size(), 2u);
    world.controls_end_with(get_scsi_address, {1110, 0}, address(6));
    EXPECT_EQ(drive.GetScsiAddress().Lun, 6);
    EXPECT_EQ(world.controls(get_scsi_address).size(), 2u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(DriveIdentity, ASecondFailureIsFinal) {
    const CDriveHandle drive(drive_link);
    world.controls_end_with(get_device_number, {1110});
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.GetDeviceNumber()); }),
              system_failure("The media in the drive may have changed.",
                             "DeviceIoControl(StorageGetDeviceNumber) in '\\\\.\\Tape0'", "0x00000456"));
    EXPECT_EQ(world.controls(get_device_number).size(), 2u);
    world.controls_end_with(get_scsi_address, {1110});
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(drive.GetScsiAddress()); }),
              "DeviceIoControl(ScsiGetAddress)");
    EXPECT_EQ(world.controls(get_scsi_address).size(), 2u);
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(DriveIdentity, ADriveThatHasGoneFailsAtOnce) {
    const CDriveHandle drive(drive_link);
    for (const std::uint32_t error : {1167u, 1117u, 55u}) {
        world.system.devices.forget_requests();
        world.controls_end_with(get_device_number, {error});
        EXPECT_THROW(static_cast<void>(drive.GetDeviceNumber()), exc::win_sys_exc_t);
        EXPECT_THROW(static_cast<void>(drive.GetDeviceName()), exc::win_sys_exc_t);
        world.controls_end_with(get_scsi_address, {error});
        EXPECT_THROW(static_cast<void>(drive.GetScsiAddress()), exc::runtime_exc_t);
        EXPECT_EQ(world.controls(get_device_number).size(), 2u);
        EXPECT_EQ(world.controls(get_scsi_address).size(), 1u);
    }
    EXPECT_THAT(world.sleeps(), IsEmpty());
}

TEST_F(DriveIdentity, TheNameCanComeFromTheUnitNumber) {
    gGenerateDriveNameFromAddressNumber = true;
    const CDriveHandle drive(drive_link);
    for (const std::uint8_t lun : {std::uint8_t{0}, std::uint8_t{12}, std::uint8_t{255}}) {
        world.controls_end_with(get_scsi_address, {0}, address(lun));
        EXPECT_EQ(drive.GetDeviceName(), u"Tape00" + text::to_wstring(std::uint32_t{lun}));
    }
    EXPECT_THAT(world.controls(get_device_number), IsEmpty());
    world.controls_end_with(get_scsi_address, {1117});
    EXPECT_EQ(failure_text<exc::runtime_exc_t>([&] { static_cast<void>(drive.GetDeviceName()); }),
              "DeviceIoControl(ScsiGetAddress)");
}

TEST_F(DriveIdentity, TheLinkIsTheNameThatWasOpened) {
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetSymbolicLink(), u"\\\\.\\Tape0");
    EXPECT_THAT(world.system.devices.requests(request_kind::query_dos_device), IsEmpty());
}

class DriveLinkByAddress : public DriveIdentity {
protected:
    void SetUp() override {
        gGenerateDriveNameFromAddressNumber = true;
        world.controls_end_with(get_scsi_address, {0}, address(3));
        world.system.devices.set_dos_device("Tape0", "\\Device\\Tape0");
    }
};

TEST_F(DriveLinkByAddress, IsDefinedForTheDrivesTarget) {
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetSymbolicLink(), u"\\\\.\\Tape003");
    const auto asked = world.system.devices.requests(request_kind::query_dos_device);
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].name, "Tape0");
    EXPECT_EQ(asked[1].name, "Tape003");
    const auto defined = world.system.devices.requests(request_kind::define_dos_device);
    ASSERT_EQ(defined.size(), 1u);
    EXPECT_EQ(defined[0].code, 1u);
    EXPECT_EQ(defined[0].name, "Tape003");
    EXPECT_EQ(defined[0].target, "\\Device\\Tape0");
}

TEST_F(DriveLinkByAddress, StaysWhenItPointsThereAlready) {
    const CDriveHandle drive(drive_link);
    static_cast<void>(drive.GetSymbolicLink());
    world.system.log.clear();
    EXPECT_EQ(drive.GetSymbolicLink(), u"\\\\.\\Tape003");
    EXPECT_EQ(world.system.devices.requests(request_kind::define_dos_device).size(), 1u);
    EXPECT_THAT(world.log(), ElementsAre("tap| Find unknown device = Tape003"));
}

TEST_F(DriveLinkByAddress, GoesToTheLaterOfTwoDrivesWithOneUnitNumber) {
    world.system.devices.add_device("\\\\.\\Tape1");
    world.system.devices.set_dos_device("Tape1", "\\Device\\Tape1");
    const CDriveHandle first(drive_link);
    const CDriveHandle second("\\\\.\\Tape1");
    EXPECT_EQ(first.GetSymbolicLink(), u"\\\\.\\Tape003");
    EXPECT_EQ(second.GetSymbolicLink(), u"\\\\.\\Tape003");
    std::string target;
    EXPECT_TRUE(platform::system().devices->query_dos_device("Tape003", target));
    EXPECT_EQ(target, "\\Device\\Tape1");
}

TEST_F(DriveLinkByAddress, FailsForANameWithoutTarget) {
    world.system.devices.add_device("\\\\.\\Tape9");
    const CDriveHandle drive("\\\\.\\Tape9");
    EXPECT_EQ(failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.GetSymbolicLink()); }),
              system_failure("The parameter is incorrect.",
                             "Problem with adding  to Tape003 with error The parameter is incorrect.", "0x00000057"));
}

TEST_F(DriveLinkByAddress, FailsWithTheAddress) {
    world.controls_end_with(get_scsi_address, {1167});
    const CDriveHandle drive(drive_link);
    EXPECT_THROW(static_cast<void>(drive.GetSymbolicLink()), exc::runtime_exc_t);
    EXPECT_THAT(world.system.devices.requests(request_kind::query_dos_device), IsEmpty());
}

/// A device identifiers answer with one vendor identification.
bytes vendor_identification(const std::string& text) {
    return joined({{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0},
                   {2, 0, 0, 0, 1, 0, 0, 0, static_cast<std::uint8_t>(text.size()), 0, 0, 0, 0, 0, 0, 0},
                   text_bytes(text)});
}

class DriveSerial : public DriveTest {
protected:
    /// Answers to INQUIRY and to the device identifiers; an error instead where that isn't 0.
    void device_tells(const bytes& page, const bytes& identifiers, std::uint32_t page_error = 0, std::uint32_t property_error = 0) {
        world.system.devices.on_control([=](const device_request& request) {
            if (request.code == pass_through) {
                return page_error != 0 ? device_answer{page_error, {}, {}, {}} : answer_scsi(request, 0, {}, page);
            }
            return property_error != 0 ? device_answer{property_error, {}, {}, {}} : device_answer{0, identifiers, {}, {}};
        });
    }
};

TEST_F(DriveSerial, ComesFromTheUnitSerialPageWithItsBlanks) {
    device_tells(joined({{1, 0x80, 0, 8}, text_bytes(" SER01  ")}), vendor_identification("V P OTHER"));
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetSerialNumber(), u" SER01  ");
    ASSERT_EQ(world.controls(pass_through).size(), 1u);
    EXPECT_EQ(cdb_of(world.controls(pass_through)[0]), (bytes{0x12, 1, 0x80, 0, 128, 0}));
    EXPECT_THAT(world.controls(query_property), IsEmpty());
}

TEST_F(DriveSerial, AnEmptyPageLeadsToTheIdentifiers) {
    device_tells({1, 0x80, 0, 2, 0, 'A'}, vendor_identification("VENDOR  PRODUCT SER02   "));
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetSerialNumber(), u"SER02   ");
    EXPECT_THAT(world.log(), IsEmpty());
}

TEST_F(DriveSerial, AFailedPageLeadsToTheIdentifiersToo) {
    device_tells({}, vendor_identification("SER03"), 121);
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetSerialNumber(), u"SER03");
    ASSERT_FALSE(world.log().empty());
    EXPECT_EQ(world.log().front(), "tap| ERR |Failed to get unit [\\\\.\\Tape0] serial number.");
}

TEST_F(DriveSerial, IsEmptyForADriveThatTellsNone) {
    device_tells({}, {}, 1167, 1167);
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(drive.GetSerialNumber(), u"");
    EXPECT_THAT(world.log(), Contains("tap| ERR |Failed to get unit [\\\\.\\Tape0] serial number."));
    EXPECT_THAT(world.log(), Contains("tap| ERR |Failed to get device [\\\\.\\Tape0] serial number."));
    EXPECT_THAT(world.sleeps(), IsEmpty());
    device_tells({}, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(drive.GetSerialNumber(), u"");
}

class DriveProduct : public DriveTest {
protected:
    std::u16string product(const bytes& inquiry) {
        world.data_of_commands(inquiry);
        return CDriveHandle(drive_link).GetProductName();
    }
};

TEST_F(DriveProduct, IsVendorAndProduct) {
    EXPECT_EQ(product(joined({{1, 0x80, 6, 2, 31, 0, 0, 0}, text_bytes("TARNO   VIRTUAL DRIVE   0001")})), u"TARNO VIRTUAL DRIVE");
    ASSERT_EQ(world.controls(pass_through).size(), 1u);
    EXPECT_EQ(cdb_of(world.controls(pass_through)[0]), (bytes{0x12, 0, 0, 0, 128, 0}));
}

TEST_F(DriveProduct, IsCutAtNulsAndKeepsInnerBlanks) {
    EXPECT_EQ(product(joined({bytes(8), text_bytes("AB"), {0}, text_bytes("CDEFG"), text_bytes(" X  Y"), {0}, text_bytes("Z")})),
              u"AB  X  Y");
    EXPECT_EQ(product(joined({bytes(8), text_bytes("12345678"), text_bytes("1234567890123456"), text_bytes("REV1")})),
              u"12345678 1234567890123456");
    EXPECT_EQ(product(joined({bytes(8), {'A', 0xFF}})), u"A\uFFFD ");
}

TEST_F(DriveProduct, IsABlankWhenTheAnswerIsShort) {
    EXPECT_EQ(product({}), u" ");
    EXPECT_EQ(product(joined({bytes(8), bytes(24, ' ')})), u" ");
}

TEST_F(DriveProduct, FailsWithTheRequest) {
    world.controls_end_with(pass_through, {1167});
    const CDriveHandle drive(drive_link);
    EXPECT_EQ(
        failure_text<exc::win_sys_exc_t>([&] { static_cast<void>(drive.GetProductName()); }),
        system_failure("The device is not connected.",
                       "DeviceIoControl(ScsiPassThrough) in '\\\\.\\Tape0' with error The device is not connected.", "0x0000048f"));
    EXPECT_EQ(world.controls(pass_through).size(), 1u);
}

TEST(TapeErrorText, NamesEveryStatusOfTheTable) {
    const platform::testing::test_system system;
    const std::vector<std::pair<std::uint32_t, std::string>> cases = {
        {0, "No error"},
        {19, "The media is write protected"},
        {20, "The system cannot find the device specified"},
        {21, "The device is not ready"},
        {50, "The tape driver does not support a requested function"},
        {1100, "The end-of-tape marker was reached during an operation"},
        {1101, "A filemark was reached during an operation"},
        {1102, "An attempt to access data before the beginning-of-medium marker failed"},
        {1103, "A setmark was reached during an operation"},
        {1104, "The end-of-data marker was reached during an operation"},
        {1105, "The tape could not be partitioned"},
        {1106, "The block size is incorrect on a new tape in a multivolume partition"},
        {1107, "The partition information could not be found when a tape was being loaded"},
        {1108, "An attempt to lock the ejection mechanism failed"},
        {1109, "An attempt to unload the tape failed"},
        {1110, "The tape that was in the drive has been replaced or removed"},
        {1111, "A reset condition was detected on the bus"},
        {1112, "There is no media in the drive"},
    };
    for (const auto& [status, text] : cases) {
        EXPECT_EQ(TapeErrorText(status), text);
    }
}

TEST(TapeErrorText, UsesTheSystemsWordsForOthers) {
    platform::testing::test_system system;
    EXPECT_EQ(TapeErrorText(5), "Tape error: 'Access is denied.' (5) ");
    EXPECT_EQ(TapeErrorText(1113),
              "Tape error: 'No mapping for the Unicode character exists in the target multi-byte code page.' (1113) ");
    system.errors.set_system_text(77, std::nullopt);
    system.errors.set_category_text(77, "100%1");
    EXPECT_EQ(TapeErrorText(77), "Tape error: '100%1' (77) ");
}

}  // namespace
