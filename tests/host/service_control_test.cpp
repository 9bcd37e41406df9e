#include "host/service_control.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/entry.h"
#include "host/server_lifetime.h"
#include "support/service_fixture.h"

namespace {

using platform::service_state;
using step = platform::testing::fake_rpc_runtime::step;

constexpr std::uint32_t port_is_taken = 1740;

/// A report as its three changing fields.
struct told {
    service_state state;
    std::uint32_t check_point;

    bool operator==(const told&) const = default;
};

void PrintTo(const told& report, std::ostream* out) {
    *out << "state " << static_cast<std::uint32_t>(report.state) << ", check point " << report.check_point;
}

class ServiceControl : public test_support::ServiceFixture {
protected:
    ServiceControl() { system_.service_manager.present = true; }
    ~ServiceControl() override {
        gServiceContext.reset();
        SetTapeServerSettings({});
    }

    std::vector<told> reports() const {
        std::vector<told> result;
        for (const platform::service_status& status : system_.service_manager.reports()) {
            result.push_back({status.state, status.check_point});
        }
        return result;
    }

    std::vector<std::string> lines() const { return system_.log.lines(); }

    /// Where a line stands that holds the text.
    std::ptrdiff_t place(const std::string& text, std::ptrdiff_t from = 0) const {
        const std::vector<std::string> all = lines();
        const auto found = std::find_if(all.begin() + from, all.end(),
                                        [&](const std::string& line) { return line.find(text) != std::string::npos; });
        return found == all.end() ? -1 : found - all.begin();
    }
};

TEST_F(ServiceControl, AStartAndAStopReportTheirStates) {
    bool served = false;
    system_.service_manager.play = [&] {
        served = system_.rpc_runtime.listening() && gServiceContext.get();
        return false;
    };
    EXPECT_TRUE(RunUnderServiceManager());
    EXPECT_TRUE(served);
    EXPECT_EQ(reports(), (std::vector<told>{{service_state::start_pending, 0},
                                            {service_state::running, 1},
                                            {service_state::stop_pending, 0},
                                            {service_state::stopped, 1}}));
    for (const platform::service_status& status : system_.service_manager.reports()) {
        EXPECT_EQ(status.type, 16u);
        EXPECT_EQ(status.controls_accepted, 1u);
        EXPECT_EQ(status.exit_code, 0u);
        EXPECT_EQ(status.specific_exit_code, 0u);
        EXPECT_EQ(status.wait_hint_ms, 5000u);
    }
    EXPECT_EQ(system_.service_manager.names(), (std::vector<std::string>{"TarnoTapeSvc", "TarnoTapeSvc"}));
}

TEST_F(ServiceControl, TheStatesHaveTheManagersNumbers) {
    EXPECT_EQ(static_cast<std::uint32_t>(service_state::stopped), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(service_state::start_pending), 2u);
    EXPECT_EQ(static_cast<std::uint32_t>(service_state::stop_pending), 3u);
    EXPECT_EQ(static_cast<std::uint32_t>(service_state::running), 4u);
}

TEST_F(ServiceControl, AStartTellsTheLogFirstAndLast) {
    EXPECT_EQ(StartTapeServer(), service_state::running);
    const std::vector<std::string> all = lines();
    EXPECT_EQ(all.front(), "tap| Starting server in synchronous mode.");
    ASSERT_GE(all.size(), 2u);
    EXPECT_EQ(all[all.size() - 2], "tap| Tape server is ready to process incoming calls.");
    EXPECT_EQ(all.back(), "tap| ");
}

TEST_F(ServiceControl, TheStartServesWithTheSettingsThatItWasGiven) {
    RpcServerSettings settings;
    settings.port = 7001;
    SetTapeServerSettings(settings);
    EXPECT_EQ(StartTapeServer(), service_state::running);
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).front().endpoint, "7001");
}

TEST_F(ServiceControl, AStopTellsItsStepsInOrder) {
    EXPECT_TRUE(RunUnderServiceManager());
    std::ptrdiff_t at = 0;
    for (const char* const text :
         {"SCM: Processing request to stop service.", "Stopping RPC server.", "Server was successfully stopped.",
          "Shutting down service context.", "Context was cleared.", "Tape service is stopped."}) {
        const std::ptrdiff_t found = place(text, at);
        EXPECT_GE(found, at) << text;
        at = std::max(at, found);
    }
    EXPECT_EQ(lines()[static_cast<std::size_t>(place("SCM: Processing request")) - 1], "tap| ");
    EXPECT_EQ(lines().back(), "tap| Tape service is stopped.");
    EXPECT_FALSE(gServiceContext.get());
    EXPECT_FALSE(system_.rpc_runtime.listening());
}

TEST_F(ServiceControl, OtherControlsAreNotImplementedAndChangeNothing) {
    system_.service_manager.play = [&] {
        const std::size_t lines_before = lines().size();
        for (std::uint32_t control = 0; control < 256; ++control) {
            if (control != platform::service_control::stop) {
                EXPECT_EQ(system_.service_manager.control(control), 120u) << control;
            }
        }
        EXPECT_EQ(system_.service_manager.reports().size(), 2u);
        EXPECT_EQ(lines().size(), lines_before);
        EXPECT_TRUE(system_.rpc_runtime.listening());
        EXPECT_EQ(system_.service_manager.control(platform::service_control::stop), 0u);
        return true;
    };
    EXPECT_TRUE(RunUnderServiceManager());
    EXPECT_EQ(reports().size(), 4u);
}

TEST_F(ServiceControl, APortThatStaysTakenFailsTheStart) {
    system_.rpc_runtime.set_status(step::use_endpoint, port_is_taken);
    EXPECT_TRUE(RunUnderServiceManager());
    EXPECT_EQ(reports(), (std::vector<told>{
                             {service_state::start_pending, 0}, {service_state::stop_pending, 0}, {service_state::stopped, 1}}));
    for (const platform::service_status& status : system_.service_manager.reports()) {
        EXPECT_EQ(status.exit_code, 0u);
    }
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).size(), 5u);
    EXPECT_EQ(system_.clock.sleeps(), (std::vector<std::int64_t>{1000, 1000, 1000, 1000}));
    const std::ptrdiff_t failed = place("Failed to start tape service.");
    EXPECT_GE(failed, 0);
    EXPECT_GT(place("SCM: Processing request to stop service."), failed);
    EXPECT_EQ(place("Tape server is ready"), -1);
    EXPECT_FALSE(gServiceContext.get());
}

TEST_F(ServiceControl, AStopDuringTheStartIsTakenWhereItComes) {
    system_.service_manager.on_report = [&](const platform::service_status& status) {
        if (status.state == service_state::start_pending) {
            EXPECT_EQ(system_.service_manager.control(platform::service_control::stop), 0u);
        }
    };
    TapeServiceMain();  // has no handler yet: the name wasn't given to the dispatcher
    EXPECT_TRUE(reports().empty());
    EXPECT_TRUE(system_.rpc_runtime.listening());
    EXPECT_TRUE(RunUnderServiceManager());
    EXPECT_EQ(reports(), (std::vector<told>{{service_state::start_pending, 0},
                                            {service_state::stop_pending, 0},
                                            {service_state::stopped, 1},
                                            {service_state::running, 1},
                                            {service_state::stop_pending, 0},
                                            {service_state::stopped, 1}}));
}

TEST_F(ServiceControl, TheEntryEndsWithZeroUnderAManager) {
    system_.process.arguments = {u"TarnoTapeSvc.exe", u"-log", u"C:\\T\\run.log", u"-port", u"7002"};
    EXPECT_EQ(RunTapeServer({}), 0);
    EXPECT_EQ(reports().size(), 4u);
    EXPECT_EQ(system_.rpc_runtime.calls(step::use_endpoint).front().endpoint, "7002");
}

TEST_F(ServiceControl, TheEntryEndsWithZeroAfterAFailedStart) {
    system_.rpc_runtime.set_status(step::use_endpoint, port_is_taken);
    system_.process.arguments = {u"TarnoTapeSvc.exe", u"-log", u"C:\\T\\run.log"};
    EXPECT_EQ(RunTapeServer({}), 0);
    EXPECT_EQ(reports().back(), (told{service_state::stopped, 1}));
}

TEST_F(ServiceControl, DebugAsksNoManager) {
    system_.process.arguments = {u"TarnoTapeSvc.exe", u"-log", u"C:\\T\\run.log", u"-Debug", u"-dump"};
    entry_environment environment;
    environment.pause = [](std::int64_t) { return false; };
    EXPECT_EQ(RunTapeServer(environment), 0);
    EXPECT_TRUE(system_.service_manager.names().empty());
}

TEST_F(ServiceControl, AnActionAsksNoManager) {
    system_.process.arguments = {u"TarnoTapeSvc.exe", u"-log", u"C:\\T\\run.log", u"-SLOTS"};
    // There is no device map: the action fails, and the process ends as after any other.
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunTapeServer({}), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Path: [HARDWARE\\DEVICEMAP\\Scsi]."), std::string::npos);
    EXPECT_TRUE(system_.service_manager.names().empty());
    EXPECT_TRUE(system_.rpc_runtime.calls().empty());
}

}  // namespace
