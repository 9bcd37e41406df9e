#include "foundation/util/product_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "foundation/text/conversion.h"
#include "platform/testing/fakes.h"

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

std::string name_of(const product_option_row& row) {
    return text::wide_to_utf8(row.name);
}

TEST_F(ProductOptions, AreAllThereInTheirOrder) {
    const auto rows = product_option_rows();
    ASSERT_EQ(rows.size(), 145U);
    std::set<std::string> names;
    for (const product_option_row& row : rows) {
        names.insert(name_of(row));
    }
    EXPECT_EQ(names.size(), rows.size());
    const std::pair<std::size_t, const char*> places[] = {
        {0, "CollectRestoreStat"},        {13, "PerfBufSize"},           {21, "MiniDumpModeType"},
        {38, "VhdDiskPreReadQueueDepth"}, {46, "TapeTimeOutForOpening"}, {55, "TapeRetryCountPerOperation"},
        {66, "RpcFileHandleIdleHours"},   {93, "OutOfProcDumpGen"},      {102, "TapeBlockSize"},
        {103, "StgOversizeMbLimit"},      {104, "StgOversizeGbLimit"},   {129, "WinFileWriteRetryCount"},
        {144, "CustomTempDirPath"}};
    for (const auto& [place, name] : places) {
        EXPECT_EQ(name_of(rows[place]), name);
    }
}

TEST_F(ProductOptions, HaveTheirDefaults) {
    EXPECT_EQ(options_.perf_buf_size, 20971520U);
    EXPECT_EQ(options_.buf_reader_max_data_size, 524288000U);
    EXPECT_EQ(options_.net_lib_rpc_packet_max_size, 524288000U);
    EXPECT_EQ(options_.mini_dump_mode_type, "Normal");
    EXPECT_EQ(options_.tape_catalog_xml_buf_size, 1048576U);
    EXPECT_EQ(options_.tape_software_eom_in_mb, 5120U);
    EXPECT_EQ(options_.tape_time_out_for_opening, 60U);
    EXPECT_TRUE(options_.tape_check_block_header_crc);
    EXPECT_FALSE(options_.use_long_erase_tape_on_format);
    EXPECT_EQ(options_.tape_partition_type, 3);
    EXPECT_EQ(options_.tape_retry_count_per_operation, 5);
    EXPECT_FALSE(options_.tape_agent_io_retries);
    EXPECT_EQ(options_.tape_retry_sleep_in_ms, 100);
    EXPECT_EQ(options_.rpc_invoker_count_warning, 512U);
    EXPECT_EQ(options_.max_tape_block_size, 16777216U);
    EXPECT_TRUE(options_.tape_hw_encryption);
    EXPECT_EQ(options_.tape_block_size, 65536U);
    EXPECT_EQ(options_.stg_oversize_mb_limit, 15728640U);
    EXPECT_EQ(options_.max_upload_stop_timeout_ms, 7200000U);
    EXPECT_EQ(options_.win_file_write_retry_count, 50U);
    EXPECT_EQ(options_.win_file_write_retry_max_timeout_msec, 1000U);
}

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
    registry().set_qword(key, "StgOversizeMbLimit", 100);
    product_options_t both;
    both.load();
    EXPECT_EQ(both.stg_oversize_mb_limit, 100U);
}

TEST_F(ProductOptions, RaiseShortTimeouts) {
    registry().set_dword(key, "MaxUploadStopTimeoutMs", 5);
    registry().set_dword(key, "SrvSessionConnAwaitTimeoutMs", 599999);
    load();
    EXPECT_EQ(options_.max_upload_stop_timeout_ms, 10000U);
    EXPECT_EQ(options_.srv_session_conn_await_timeout_ms, 600000U);
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

}  // namespace
