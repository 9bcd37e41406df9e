#include "foundation/logging/log_scope.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/logging/writers.h"
#include "foundation/monitoring/activity_scope.h"
#include "platform/testing/fakes.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class LogScope : public ::testing::Test {
protected:
    platform::testing::test_system system_;
};

TEST_F(LogScope, ReportsItsEndByOk) {
    {
        logging::log_scope_t scope(g_log, "Move %1", "tape");
        g_log.LogInfo("inside");
        scope.ok();
        g_log.LogInfo("behind");
        scope.ok("again");
        scope.fail();
        scope.quiet_end();
    }
    EXPECT_THAT(system_.log.lines(), ElementsAre("tap| Move tape", "tap|   inside", "tap| Move tape ok.", "tap| behind"));
    EXPECT_EQ(g_log.log().indent(), 0);
}

TEST_F(LogScope, ReportsItsEndByALineOfItsOwnOrByNone) {
    {
        logging::log_scope_t outer(g_log, "%1%2", "a", "b");
        logging::log_scope_t inner(g_log, "%1%2%3", "c", "d", "e");
        inner.ok("done %1");
        outer.quiet_end();
    }
    EXPECT_THAT(system_.log.lines(), ElementsAre("tap| ab", "tap|   cde", "tap|   done %1"));
    EXPECT_EQ(g_log.log().indent(), 0);
}

TEST_F(LogScope, LeftByAnExceptionHasFailedOnce) {
    try {
        logging::log_scope_t scope(g_log, "%1%2%3%4", "a", "b", "c", "d");
        throw std::runtime_error("x");
    } catch (const std::runtime_error&) {
        g_log.LogInfo("caught");
    }
    EXPECT_THAT(system_.log.lines(), ElementsAre("tap| abcd", "tap| abcd Failed.", "tap| caught"));
}

TEST_F(LogScope, ThreeDeepIndentsInformationButNoWarning) {
    const logging::log_indent_t one(g_log);
    const logging::log_indent_t two(g_log);
    logging::log_indent_t three(g_log);
    g_log.LogInfo("i");
    g_log.LogWarning("w");
    three.done();
    three.done();
    g_log.LogInfo("j");
    EXPECT_THAT(system_.log.lines(), ElementsAre("tap|       i", "tap| WARN|w", "tap|     j"));
}

TEST_F(LogScope, StandsOnTheActivityStackOfARegisteredThread) {
    auto& threads = monitoring::CThreadStatesCollection::instance();
    const std::uint32_t self = system_.process.current_thread_id();
    const auto state = threads.add(self, "tester");
    EXPECT_EQ(state->role, "tester");
    EXPECT_TRUE(threads.log_threads());
    {
        logging::log_scope_t scope(g_log, "outer");
        system_.clock.advance(5);
        const monitoring::activity_scope_t activity("inner");
        ASSERT_EQ(state->activities.size(), 2U);
        EXPECT_EQ(state->activities.top()->text, "inner");
        EXPECT_EQ(state->activities.top()->started, static_cast<std::uint32_t>(system_.clock.milliseconds()));
        scope.ok();
        EXPECT_EQ(state->activities.size(), 2U);
    }
    EXPECT_TRUE(state->activities.empty());
    threads.remove(self);
    EXPECT_EQ(threads.find(self), nullptr);
    const logging::log_scope_t scope(g_log, "unregistered");
    EXPECT_TRUE(state->activities.empty());
}

TEST_F(LogScope, ActivityShowsOnlyWhenItFails) {
    {
        monitoring::activity_scope_t good("good");
        good.done();
    }
    EXPECT_THAT(system_.log.lines(), IsEmpty());
    {
        const logging::log_indent_t indent(g_log);
        const monitoring::activity_scope_t bad("Reading");
    }
    EXPECT_THAT(system_.log.lines(), ElementsAre("dmn|   Reading Failed."));
    EXPECT_EQ(g_log.log().indent(), 0);
}

TEST_F(LogScope, EveryComponentHasItsWriter) {
    const std::vector<std::pair<const logging::log_writer_t*, std::string>> writers{
        {&g_log, "tap| "},        {&g_rpcLog, "rpc| "},         {&g_libraryLog, ""},     {&g_clientLog, "cli| "},
        {&g_vcbLog, "vcb| "},     {&g_vcbDiskLog, "vcb| "},     {&g_backupLog, "bkp| "}, {&g_driveLog, "drv| "},
        {&g_nfsLog, "nfs| "},     {&g_vhdLog, "vhd| "},         {&g_daemonLog, "dmn| "}, {&g_storageLog, "stg| "},
        {&g_azureLog, "azure| "}, {&g_cplLog, "cpl| "},         {&g_prtLog, "prt| "},    {&g_mountLog, "mnt| "},
        {&g_serverLog, "srv| "},  {&g_dataTransferLog, "dt | "}};
    for (const auto& [writer, prefix] : writers) {
        EXPECT_EQ(writer->prefix(), prefix);
        EXPECT_EQ(&writer->log(), logging::log_t::process_log().get()) << prefix;
    }
    EXPECT_EQ(g_debugLog.prefix(), "dbg| ");
    EXPECT_NE(&g_debugLog.log(), logging::log_t::process_log().get());
    EXPECT_EQ(logging::log_writer_t().prefix(), "     ");
}

}  // namespace
