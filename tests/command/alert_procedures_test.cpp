#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/service_fixture.h"

namespace {

using platform::testing::answer_scsi;
using platform::testing::device_answer;
using platform::testing::device_request;
using test_support::call_answer;
using ::testing::ElementsAre;

class AlertProcedures : public test_support::ServiceFixture {
protected:
    AlertProcedures() {
        LoadOwner(tape_key_path, u"HOST1", false);
        system_.devices.add_device("\\\\.\\Tape0");
        system_.devices.add_device("\\\\.\\Changer0");
        system_.devices.on_control([](const device_request& request) {
            return answer_scsi(request, 0, {}, std::vector<std::uint8_t>{0x2E, 0, 0, 5, 0, 19, 0, 1, 1});
        });
    }

    call_answer alerts(const std::string& procedure, const std::string& link) {
        return owner_call(procedure, "<SymLinkName value=\"" + link + "\" />");
    }
    std::vector<std::string> lines_between_the_gate_and_the_exit() {
        std::vector<std::string> lines = system_.log.lines();
        const auto gate = std::find(lines.begin(), lines.end(), "tap| Testing owner name ok.");
        lines.erase(lines.begin(), gate == lines.end() ? gate : gate + 1);
        while (!lines.empty() && lines.back().starts_with("rpc|")) {
            lines.pop_back();
        }
        return lines;
    }
};

constexpr char no_alerts[] = "<OutputArguments><Alerts value=\"&lt;alerts /&gt;\" /></OutputArguments>";

TEST_F(AlertProcedures, ADrivesAlertsAreADocumentInAValue) {
    const call_answer answer = alerts("GetDriveAlerts", "\\\\.\\Tape0");
    EXPECT_TRUE(answer.success) << answer.error;
    const std::string start =
        "<OutputArguments><Alerts value='&lt;alerts&gt;&lt;alert id=&quot;19&quot; severity=&quot;0&quot; message=&quot;The tape "
        "cartridge is nearing the end of its calculated life:&quot;&gt;&lt;action index=&quot;1&quot;&gt;";
    EXPECT_EQ(answer.output.value_or("").substr(0, start.size()), start);
    EXPECT_THAT(lines_between_the_gate_and_the_exit(), ElementsAre("tap| Get drive alerts", "tap| Get drive alerts ok."));
}

TEST_F(AlertProcedures, AChangersAlertsComeFromItsOwnTableUnderItsMutex) {
    EXPECT_EQ(
        alerts("GetChangerAlerts", "\\\\.\\Changer0").output,
        "<OutputArguments><Alerts value='&lt;alerts&gt;&lt;alert id=&quot;19&quot; severity=&quot;1&quot; message=&quot;Library "
        "security has been compromised.&quot; /&gt;&lt;/alerts&gt;' /></OutputArguments>");
    EXPECT_THAT(lines_between_the_gate_and_the_exit(),
                ElementsAre("tap| Get changer alerts", "tap|   New mutex for \\\\.\\Changer0", "tap|   \\\\.\\Changer0",
                            "tap| Get changer alerts ok."));
    const auto mutex = context_->GetDeviceMutex("\\\\.\\Changer0");
    EXPECT_TRUE(mutex->try_lock());
    mutex->unlock();
}

TEST_F(AlertProcedures, ADeviceFaultIsAnEmptyListInACallThatSucceeds) {
    for (const char* procedure : {"GetDriveAlerts", "GetChangerAlerts"}) {
        const call_answer answer = alerts(procedure, "\\\\.\\Tape9");
        EXPECT_TRUE(answer.success);
        EXPECT_EQ(answer.output, no_alerts);
    }
    EXPECT_TRUE(system_.log.has_line("ERR |Can not open '\\\\.\\Tape9' device for 0 seconds"));
}

TEST_F(AlertProcedures, TheLinkNameIsNeededBeforeAnyDeviceIsTouched) {
    for (const char* procedure : {"GetDriveAlerts", "GetChangerAlerts"}) {
        EXPECT_EQ(owner_call(procedure).error,
                  "Value of the argument 'SymLinkName' is not defined.\n--tr:Failed to retrieve value of the multibyte attribute "
                  "'SymLinkName'.");
    }
    EXPECT_TRUE(system_.log.has_line("tap| Get drive alerts Failed."));
    EXPECT_TRUE(system_.log.has_line("tap| Get changer alerts Failed."));
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(AlertProcedures, AStrangerReadsNone) {
    LoadOwner(tape_key_path, u"HOST2", false);
    EXPECT_EQ(alerts("GetDriveAlerts", "\\\\.\\Tape0").error, "'HOST1' isn't current owner. You have to change current owner");
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(AlertProcedures, TheEmulatorShowsADriveAChangersRow) {
    system_.files.put("C:\\Program Files\\Tarno\\TapeAlerts.xml",
                      "<TapeAlerts><a deviceSymLink='\\\\.\\tape0' deviceType='Changer' alertCode='19'/></TapeAlerts>");
    gTapeAlertsEmulator = true;
    EXPECT_EQ(alerts("GetDriveAlerts", "\\\\.\\Tape0").output, alerts("GetChangerAlerts", "\\\\.\\Tape0").output);
    EXPECT_NE(alerts("GetDriveAlerts", "\\\\.\\Tape0").output.value_or("").find("security has been compromised"),
              std::string::npos);
    EXPECT_TRUE(system_.devices.requests().empty());
}

TEST_F(AlertProcedures, AChangerIsReadWhenItsRobotIsFreeAndADriveAtOnce) {
    const auto robot = context_->GetDeviceMutex("\\\\.\\Changer0");
    const auto drive = context_->GetDeviceMutex("\\\\.\\Tape0");
    std::atomic<bool> moving{true};
    system_.devices.on_open([&](const std::string& link) {
        EXPECT_FALSE(moving && link == "\\\\.\\Changer0");
        return std::uint32_t{0};
    });
    std::latch calling(1);
    std::thread waiting;
    {
        const boost::mutex::scoped_lock move(*robot);
        const boost::mutex::scoped_lock other_work(*drive);
        waiting = std::thread([&] {
            calling.count_down();
            EXPECT_TRUE(alerts("GetChangerAlerts", "\\\\.\\Changer0").success);
        });
        calling.wait();
        EXPECT_TRUE(alerts("GetDriveAlerts", "\\\\.\\Tape0").success);
        moving = false;
    }
    waiting.join();
    EXPECT_EQ(system_.devices.requests(device_request::kind::control).size(), 2u);
}

TEST_F(AlertProcedures, TheReadItselfIsUnderTheMutex) {
    const auto robot = context_->GetDeviceMutex("\\\\.\\Changer0");
    bool held = false;
    system_.devices.on_open([&](const std::string&) {
        std::thread other([&] {
            held = !robot->try_lock();
            if (!held) {
                robot->unlock();
            }
        });
        other.join();
        return std::uint32_t{0};
    });
    EXPECT_TRUE(alerts("GetChangerAlerts", "\\\\.\\Changer0").success);
    EXPECT_TRUE(held);
}

/// A log that has no room for one kind of line.
class line_without_room final : public logging::log_transform_t {
public:
    std::string transform(const std::string& line) override {
        if (line.find("Tape alert problem") != std::string::npos) {
            throw std::runtime_error("no room for the line");
        }
        return line;
    }
};

TEST_F(AlertProcedures, AnyOtherFailureFailsTheCallWithTheDevicesName) {
    logging::log_t::process_log()->set_transform(boost::make_shared<line_without_room>());
    const call_answer answer = alerts("GetChangerAlerts", "\\\\.\\Changer9");
    logging::log_t::process_log()->set_transform({});
    EXPECT_FALSE(answer.success);
    EXPECT_EQ(answer.error, "no room for the line\n--tr:Get tapes alerts FAILED, device symlink: \\\\.\\Changer9.");
    EXPECT_FALSE(answer.output);
    EXPECT_TRUE(system_.log.has_line("tap| Get changer alerts Failed."));
    const auto mutex = context_->GetDeviceMutex("\\\\.\\Changer9");
    EXPECT_TRUE(mutex->try_lock());
    mutex->unlock();
}

}  // namespace
