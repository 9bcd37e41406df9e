#include "foundation/util/product_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <limits>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log.h"
#include "foundation/logging/log_writer.h"
#include "platform/testing/fakes.h"
#include "support/failing_size_check.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* key = "SOFTWARE\\Tarno\\Tarno Lodestore";

class ProductOptions : public ::testing::Test {
protected:
    std::vector<std::string> load() {
        options_.load();
        return system_.log.lines();
    }
    platform::testing::memory_registry& registry() { return system_.registry; }

    platform::testing::test_system system_;
    product_options_t options_;
};

TEST_F(ProductOptions, KeepTheirDefaultsWithoutAKey) {
    EXPECT_THAT(load(), ElementsAre("Loading options.",
                                    "WARN|Unable to open registry key with product options. Registry path: "
                                    "SOFTWARE\\Tarno\\Tarno Lodestore",
                                    "Loading options. ok."));
    EXPECT_EQ(options_.tape_block_size, 65536U);
    EXPECT_FALSE(options_.tape_block_size_found);
}

TEST_F(ProductOptions, TellAKeyThatCannotBeOpened) {
    registry().fail_open(5);
    load();
    EXPECT_TRUE(
        system_.log.has_line("Unable to open registry key with product options. Registry path: SOFTWARE\\Tarno\\Tarno Lodestore"));
    EXPECT_THAT(system_.log.lines(), Contains(HasSubstr("Access is denied.")));
}

TEST_F(ProductOptions, AreReadByTheirTypesAndLoggedByTheirTitles) {
    registry().set_dword(key, "CollectTapeStat", 7);
    registry().set_dword(key, "PerfBufSize", 4096);
    registry().set_dword(key, "TapeRetrySleepInMs", 0xFFFFFFFF);
    registry().set_expand_string(key, "MiniDumpModeType", "Full");
    registry().set_dword(key, "VhdDiskPreReadQueueDepth", 2);
    registry().set_dword(key, "TapeAgentIORetries", 0);
    registry().set_string(key, "CustomTempDirPath", "/var/tmp/\xC3\xA4");
    load();
    EXPECT_TRUE(options_.collect_tape_stat);
    EXPECT_EQ(options_.perf_buf_size, 4096U);
    EXPECT_EQ(options_.tape_retry_sleep_in_ms, -1);
    EXPECT_EQ(options_.mini_dump_mode_type, "Full");
    EXPECT_EQ(options_.custom_temp_dir_path, "/var/tmp/\xC3\xA4");
    for (const char* line :
         {"  COLLECT TAPE STAT: true", "  Non-default option 'PerfBufSize': 4096", "  TAPE RETRY SLEEP: -1",
          "  MINIDUMP MODE TYPE: Full", "  VHD DDISK PREREAD QUEUE DEPTH: 2", "  TAPE RETRY COUNT PER OPERATION: false",
          "  Non-default option 'CustomTempDirPath': /var/tmp/\xC3\xA4"}) {
        EXPECT_TRUE(system_.log.has_line(line)) << line;
    }
}

TEST_F(ProductOptions, TellWhetherTheBlockSizeWasSet) {
    registry().set_dword(key, "TapeBlockSize", 65536);
    load();
    EXPECT_EQ(options_.tape_block_size, 65536U);
    EXPECT_TRUE(options_.tape_block_size_found);
    EXPECT_TRUE(system_.log.has_line("  TAPE BLOCK SIZE: 65536")) << "the line says that the value was set, not that it differs";
}

TEST_F(ProductOptions, TakeMegabytesBeforeGigabytes) {
    registry().set_dword(key, "StgOversizeGbLimit", 2);
    load();
    EXPECT_EQ(options_.stg_oversize_mb_limit, 2048U);
    EXPECT_TRUE(system_.log.has_line("  Non-default option 'StgOversizeGbLimit': 2")) << "in the unit of its name";
    registry().set_qword(key, "StgOversizeMbLimit", 100);
    product_options_t both;
    both.load();
    EXPECT_EQ(both.stg_oversize_mb_limit, 100U);
}

TEST_F(ProductOptions, TakeMoreGigabytesThanCanBeCountedForTheMost) {
    registry().set_qword(key, "StgOversizeGbLimit", std::uint64_t{1} << 54);
    load();
    EXPECT_EQ(options_.stg_oversize_mb_limit, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(ProductOptions, RaiseShortTimeouts) {
    registry().set_dword(key, "MaxUploadStopTimeoutMs", 5);
    registry().set_dword(key, "SrvSessionConnAwaitTimeoutMs", 599999);
    load();
    EXPECT_EQ(options_.max_upload_stop_timeout_ms, 10000U);
    EXPECT_EQ(options_.srv_session_conn_await_timeout_ms, 600000U);
    EXPECT_TRUE(system_.log.has_line("  Non-default option 'MaxUploadStopTimeoutMs': 5")) << "the line says what was set";
    registry().set_dword(key, "MaxUploadStopTimeoutMs", 10001);
    registry().remove_value(key, "SrvSessionConnAwaitTimeoutMs");
    product_options_t others;
    others.load();
    EXPECT_EQ(others.max_upload_stop_timeout_ms, 10001U);
    EXPECT_EQ(others.srv_session_conn_await_timeout_ms, product_options_t{}.srv_session_conn_await_timeout_ms);
}

TEST_F(ProductOptions, LoseNoOtherRowToOneOfAWrongType) {
    registry().set_string(key, "PerfBufSize", "much");
    registry().set_dword(key, "MiniDumpModeType", 1);
    registry().set_string(key, "StgOversizeMbLimit", "100");
    registry().set_dword(key, "StgOversizeGbLimit", 2);
    registry().set_dword(key, "WinFileWriteRetryCount", 3);
    load();
    EXPECT_EQ(options_.perf_buf_size, 20971520U);
    EXPECT_EQ(options_.mini_dump_mode_type, "Normal");
    EXPECT_EQ(options_.stg_oversize_mb_limit, 15728640U);
    EXPECT_EQ(options_.win_file_write_retry_count, 3U);
    for (const char* text : {"WARN|Unable to retrieve registry option 'PerfBufSize'",
                             "WARN|Unable to retrieve registry option value, option 'MiniDumpModeType', type 'string'.",
                             "WARN|Unable to retrieve registry option 'StgOversizeMbLimit'"}) {
        EXPECT_THAT(system_.log.lines(), Contains(HasSubstr(text)));
    }
}

TEST_F(ProductOptions, StopNothingWhenTheLogItselfFails) {
    registry().set_dword(key, "CollectRestoreStat", 1);
    registry().set_string(key, "PerfBufSize", "much");
    registry().set_dword(key, "AgentDebugMode", 1);
    const boost::shared_ptr<logging::log_t> log = logging::log_t::process_log();
    log->set_check_size(boost::make_shared<test_support::failing_size_check>());
    // The third entry of the load, the warning about the row that can't be read, calls for the look.
    for (std::int32_t entry = 3; entry < logging::log_t::entries_between_checks; ++entry) {
        g_libraryLog.LogInfo("");
    }
    EXPECT_NO_THROW(load());
    log->set_check_size(nullptr);
    EXPECT_TRUE(options_.collect_restore_stat);
    EXPECT_FALSE(options_.agent_debug_mode);
    EXPECT_EQ(options_.perf_buf_size, 20971520U);
    EXPECT_TRUE(system_.log.has_line("ERR |Failed to load registry options."));
    EXPECT_TRUE(system_.log.has_line("No room."));
}

}  // namespace
