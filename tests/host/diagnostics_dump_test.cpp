#include "host/diagnostics_fixture.h"

namespace {

using host_tests::DiagnosticsFixture;
using strings = std::vector<std::string>;
using platform::testing::memory_files;

constexpr char drives_failure[] = "tap| ERR |Problem with gathering information about drives";

/// Expected texts are put together from the records that the remote procedures return, which have tests of their own.
class DiagnosticDump : public DiagnosticsFixture {
protected:
    static std::string renamed(std::string list, const std::string& from, const std::string& to) {
        EXPECT_TRUE(list.starts_with("<" + from)) << list;
        list.replace(1, from.size(), to);
        const std::string end = "</" + from + ">";
        if (list.ends_with(end)) {
            list.replace(list.size() - end.size(), end.size(), "</" + to + ">");
        }
        return list;
    }
    std::string slots(const std::string& link = "\\\\.\\Changer0") {
        return renamed(record("GetSlotsStatuses", "SlotsStatuses", link), "SlotsStatuses", "Slots");
    }
    std::string ports(const std::string& link = "\\\\.\\Changer0") { return record("GetIEPortsStatuses", "IEPortsStatuses", link); }
    std::string drives(const std::string& link = "\\\\.\\Changer0") {
        return renamed(record("GetDrivesStatuses", "DrivesStatuses", link), "DrivesStatuses", "Drives");
    }
    /// The changer's record without its end.
    std::string whole_head(const std::string& link = "\\\\.\\Changer0") {
        const std::string text = record("GetChanger", "Changer", link);
        return text.substr(0, text.rfind("</Changer>"));
    }
    /// Up to the parameters.
    std::string head(const std::string& link = "\\\\.\\Changer0") {
        const std::string text = whole_head(link);
        return text.substr(0, text.rfind("<Parameters"));
    }
    std::string changer(const std::string& link = "\\\\.\\Changer0") {
        return whole_head(link) + slots(link) + ports(link) + drives(link) + "</Changer>";
    }
    std::string drive_records() {
        const std::string list = record("GetDrives", "Drives");
        return list.substr(std::string("<Drives>").size(), list.rfind("</Drives>") - std::string("<Drives>").size());
    }

    /// Fails the reads of a changer's elements of one type.
    void fail_elements(ELEMENT_TYPE type) {
        make_faulty().on_control = [type](const std::string&, std::uint32_t code, std::span<const std::uint8_t> input) {
            platform::CHANGER_READ_ELEMENT_STATUS request;
            if (code != platform::ioctl::changer_get_element_status) {
                return platform::error::success;
            }
            std::memcpy(&request, input.data(), sizeof(request));
            return request.Element.ElementType == type ? platform::error::io_device : platform::error::success;
        };
    }

    /// The states of the file that was replaced, in order.
    strings& watch_replacements() {
        system_.files.set_failure([this](memory_files::operation what, const std::string& path) {
            if (what == memory_files::operation::replace) {
                states_.push_back(system_.files.content(path).value_or("(none)"));
            }
            return platform::error::success;
        });
        return states_;
    }

private:
    strings states_;
};

TEST_F(DiagnosticDump, EverythingInItsOrder) {
    plug_in({{.slots = 2, .ports = 1, .drives = 1, .cartridges = 1}});
    const std::string expected = "<Devices>" + changer() + drive_records() + "</Devices>";
    system_.log.clear();
    EXPECT_EQ(run({u"-dump"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Record dump information");
    EXPECT_EQ(files(), strings{"dumpinformation.xml"});
    EXPECT_EQ(file("dumpinformation.xml"), expected);
    EXPECT_EQ(errors_, "");
}

TEST_F(DiagnosticDump, TheQuickFormLacksThePorts) {
    plug_in({{}});
    const std::string expected = "<Devices>" + whole_head() + slots() + drives() + "</Changer>" + drive_records() + "</Devices>";
    system_.log.clear();
    EXPECT_EQ(run({u"-quickdump"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Record dump information");
    EXPECT_EQ(file("dumpinformation.xml"), expected);
    EXPECT_EQ(expected.find("IEPortsStatuses"), std::string::npos);
}

TEST_F(DiagnosticDump, SlotsAndPortsThatThereAreNoneOfAreLeftOut) {
    plug_in({{.ports = 0}});
    run({u"-dump"});
    EXPECT_EQ(file("dumpinformation.xml"),
              "<Devices>" + whole_head() + slots() + drives() + "</Changer>" + drive_records() + "</Devices>");
}

TEST_F(DiagnosticDump, AllChangersStandBeforeTheDrives) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.drives = 3, .serial = "TWO", .drive_serial = "B"}});
    run({u"-dump"});
    EXPECT_EQ(file("dumpinformation.xml"), "<Devices>" + changer() + changer("\\\\.\\Changer1") + drive_records() + "</Devices>");
}

TEST_F(DiagnosticDump, TheFirstChangerByItself) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.serial = "TWO", .drive_serial = "B"}});
    const std::string expected = changer();
    system_.log.clear();
    EXPECT_EQ(run({u"-changers"}), "");
    EXPECT_EQ(system_.log.lines().front(), "tap| Record first changer");
    EXPECT_EQ(files(), strings{"changer.xml"});
    EXPECT_EQ(file("changer.xml"), expected);
}

TEST_F(DiagnosticDump, TheFirstChangerIsNotGuarded) {
    plug_in({{}});
    fail_elements(ChangerIEPort);
    EXPECT_NE(failure_of({u"-changers"}), "(none)");
    EXPECT_EQ(files(), strings{});
}

TEST_F(DiagnosticDump, WithoutDevicesItSaysSo) {
    plug_in({});
    strings& states = watch_replacements();
    EXPECT_EQ(run({u"-dump"}), "We have no drives.\n");
    EXPECT_EQ(count_of("tap| ERR |We have no drives."), 1u);
    EXPECT_EQ(files(), strings{"dumpinformation.xml"});
    EXPECT_EQ(states, strings{"<Devices />"});
}

TEST_F(DiagnosticDump, WithoutChangersThereAreTheDrivesAlone) {
    plug_in({{}}, {"TRNLIB0001"});
    const std::string expected = "<Devices>" + drive_records() + "</Devices>";
    EXPECT_EQ(run({u"-dump"}), "");
    EXPECT_EQ(files(), strings{"dumpinformation.xml"});
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, TheFileGrowsWithEachPiece) {
    plug_in({{}});
    const std::string first_drive = drive_records().substr(0, drive_records().find("</Drive>") + 8);
    const strings expected = {
        "<Devices>" + head() + "</Changer></Devices>",
        "<Devices>" + whole_head() + slots() + ports() + "</Changer></Devices>",
        "<Devices>" + changer() + "</Devices>",
        "<Devices>" + changer() + first_drive + "</Devices>",
        "<Devices>" + changer() + drive_records() + "</Devices>",
    };
    const strings& states = watch_replacements();
    run({u"-dump"});
    EXPECT_EQ(states, expected);
}

TEST_F(DiagnosticDump, AChangerThatCannotBeOpenedIsPassedOver) {
    plug_in({{.serial = "ONE", .drive_serial = "A"}, {.serial = "TWO", .drive_serial = "B"}});
    const std::string expected = "<Devices><Changer />" + changer("\\\\.\\Changer1") + drive_records() + "</Devices>";
    make_faulty().on_open = [](const std::string& link) {
        return link == "\\\\.\\Changer0" ? platform::error::access_denied : platform::error::success;
    };
    run({u"-dump"});
    EXPECT_EQ(count_of("tap| ERR |Problem with open lib"), 1u);
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, AChangerThatDoesNotSayWhereItIsIsPassedOver) {
    plug_in({{}});
    const std::string text = whole_head();
    const std::string identity = text.substr(0, text.find("><Address"));
    const std::string expected = "<Devices>" + identity + " />" + drive_records() + "</Devices>";
    make_faulty().on_control = [](const std::string& link, std::uint32_t code, std::span<const std::uint8_t>) {
        return link == "\\\\.\\Changer0" && code == platform::ioctl::scsi_get_address ? platform::error::io_device
                                                                                      : platform::error::success;
    };
    run({u"-dump"});
    EXPECT_EQ(count_of("tap| ERR |Problem with open lib"), 1u);
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, SlotsThatFailStandEmpty) {
    plug_in({{}});
    const std::string expected =
        "<Devices>" + whole_head() + "<Slots />" + ports() + drives() + "</Changer>" + drive_records() + "</Devices>";
    fail_elements(ChangerSlot);
    run({u"-dump"});
    EXPECT_EQ(count_of("tap| ERR |Problem with gathering information about slots"), 1u);
    EXPECT_TRUE(errors_.starts_with(R"(TarnoTapeSvc: \\.\Changer0: Problem with gathering information about slots)")) << errors_;
    EXPECT_EQ(count_of(drives_failure), 0u);
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, PortsThatFailStandEmpty) {
    plug_in({{}});
    const std::string expected =
        "<Devices>" + whole_head() + slots() + "<IEPortsStatuses />" + drives() + "</Changer>" + drive_records() + "</Devices>";
    fail_elements(ChangerIEPort);
    run({u"-dump"});
    EXPECT_EQ(count_of("tap| ERR |Problem with IEPorts statuses"), 1u);
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, DrivesOfAChangerThatFailStandEmpty) {
    plug_in({{}});
    const std::string expected =
        "<Devices>" + whole_head() + slots() + ports() + "<Drives /></Changer>" + drive_records() + "</Devices>";
    fail_elements(ChangerDrive);
    run({u"-dump"});
    EXPECT_EQ(count_of(drives_failure), 1u);
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, ParametersThatFailTakeTheListsWithThem) {
    plug_in({{}});
    const std::string expected = "<Devices>" + head() + drives() + "</Changer>" + drive_records() + "</Devices>";
    std::size_t asked = 0;
    make_faulty().on_control = [&](const std::string&, std::uint32_t code, std::span<const std::uint8_t>) {
        return code == platform::ioctl::changer_get_parameters && ++asked == 1 ? platform::error::io_device
                                                                               : platform::error::success;
    };
    run({u"-dump"});
    EXPECT_EQ(count_of(drives_failure), 1u);
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

TEST_F(DiagnosticDump, ADriveThatFailsTellsSoInItsPlace) {
    plug_in({{.drives = 3}});
    const std::string records = drive_records();
    const std::size_t first = records.find("</Drive>") + 8;
    const std::size_t second = records.find("</Drive>", first) + 8;
    make_faulty().on_control = [&](const std::string& link, std::uint32_t code, std::span<const std::uint8_t>) {
        return link == "\\\\.\\Tape1" && code == platform::ioctl::scsi_get_address ? platform::error::io_device
                                                                                   : platform::error::success;
    };
    run({u"-dump"});
    std::string expected_drive =
        records.substr(first, records.find("><Address", first) - first) + " Error=\"DeviceIoControl(ScsiGetAddress)\" />";
    EXPECT_EQ(count_of("tap| ERR |Problem with Open Drive"), 1u);
    EXPECT_EQ(errors_, "TarnoTapeSvc: \\\\.\\Tape1: Problem with Open Drive\nDeviceIoControl(ScsiGetAddress)\n");
    const std::string dump = file("dumpinformation.xml");
    EXPECT_EQ(dump.substr(dump.find("</Changer>") + 10),
              records.substr(0, first) + expected_drive + records.substr(second) + "</Devices>");
}

TEST_F(DiagnosticDump, ADriveThatCannotBeOpenedHasTheErrorAlone) {
    plug_in({{}});
    make_faulty().on_open = [](const std::string& link) {
        return link == "\\\\.\\Tape1" ? platform::error::access_denied : platform::error::success;
    };
    run({u"-dump"});
    EXPECT_EQ(count_of("tap| ERR |Problem with Open Drive"), 1u);
    EXPECT_TRUE(
        file("dumpinformation.xml")
            .ends_with(
                "</Drive><Drive Error=\"Access is denied.&#x0A;Problem with CreateFile in &apos;\\\\.\\Tape1&apos; with error "
                "Access is denied.&#x0A;--tr:Error code: 0x00000005\" /></Devices>"))
        << file("dumpinformation.xml");
}

TEST_F(DiagnosticDump, AFullDiskLeavesWhatWasWrittenBefore) {
    plug_in({{}});
    const std::string expected = "<Devices>" + head() + "</Changer></Devices>";
    system_.files.put("./dumpinformation.xml", "former");
    std::size_t replaced = 0;
    system_.files.set_failure([&](memory_files::operation what, const std::string& path) {
        if (what == memory_files::operation::write && path.starts_with(".\\") && replaced > 0) {
            return platform::error::disk_full;
        }
        replaced += what == memory_files::operation::replace ? 1 : 0;
        return platform::error::success;
    });
    EXPECT_NE(failure_of({u"-dump"}).find("Failed to write data to the file [./dumpinformation.xml.new]."), std::string::npos);
    EXPECT_EQ(count_of(drives_failure), 2u);
    EXPECT_EQ(files(), strings{"dumpinformation.xml"});
    EXPECT_EQ(file("dumpinformation.xml"), expected);
}

}  // namespace
