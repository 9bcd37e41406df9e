#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <type_traits>

#include "foundation/text/conversion.h"
#include "foundation/util/product_options.h"
#include "platform/testing/fakes.h"

namespace {

constexpr const char* key = "SOFTWARE\\Tarno\\Tarno Lodestore";

using value_t = std::variant<bool, std::uint32_t, std::int32_t, std::uint64_t, std::string>;

struct known_row {
    const char* name;
    const char* title;
    value_t default_value;
};

/// What programs of the family rely on: the rows of tape, calls, dumps and logs, in the order of loading.
const known_row known_rows[] = {
    {"CollectTapeStat", "COLLECT TAPE STAT", false},
    {"PerfBufSize", "", std::uint32_t{20971520}},
    {"BufReaderMaxDataSize", "BufReader MAX DATA SIZE", std::uint32_t{524288000}},
    {"NetLibRpcPacketMaxSize", "NetLib MAX RPC PACKET MAX SIZE", std::uint32_t{524288000}},
    {"AgentDebugMode", "DEBUG MODE", false},
    {"DumpCorruptedTraffic", "CORRUPTED TRAFFIC DUMP", false},
    {"MiniDumpModeType", "MINIDUMP MODE TYPE", std::string("Normal")},
    {"MiniDumpModeMask", "MINIDUMP MODE MASK", std::uint32_t{0}},
    {"TapeCatalogXmlBufSize", "TAPE CATALOG XML BUFFER SIZE", std::uint32_t{1048576}},
    {"TapeMinFileSizeWithCompressionAndMultistreaming", "TAPE MINIMUM FILE SIZE WITH COMPRESSION AND MULTISTREAMING IN MB",
     std::uint32_t{128}},
    {"TapeSoftwareEOMInMb", "TAPE SOFTWARE EOM", std::uint32_t{5120}},
    {"TapeDetectSoftwareEOMEveryMb", "TAPE DETECT SOFTWARE EOM EVERY MB", std::uint32_t{2048}},
    {"TapeTimeOutForOpening", "TAPE TIMEOUT FOR OPENING DEVICE", std::uint32_t{60}},
    {"TapeCheckBlockHeaderCrc", "TAPE VERIFY CommonBlockHeader CHECKSUM", true},
    {"UseLongEraseTapeOnFormat", "TAPE USE LONG ERASE TAPE ON FORMAT", false},
    {"AgentEmulateTapeAlerts", "TAPE ALERTS EMULATOR", false},
    {"TapeIgnoreSoftwareEom", "TAPE IGNORE SOFTWARE EOM", false},
    {"TapePartitionType", "TAPE CREATE PARTITION ON FORMAT", std::int32_t{3}},
    {"TapeRetryCountPerOperation", "TAPE RETRY COUNT PER OPERATION", std::int32_t{5}},
    {"TapeAgentIORetries", "TAPE RETRY COUNT PER OPERATION", false},
    {"TapeRetrySleepInMs", "TAPE RETRY SLEEP", std::int32_t{100}},
    {"TapeMaximumSkippingBlocksTimeSpanInSec", "TAPE MAXIMUM SKIPPING BLOCKS TIME SPAN IN SEC", std::int32_t{120}},
    {"RpcRetryDelayMs", "RPC retry delay", std::uint32_t{10000}},
    {"RpcRetryCount", "RPC retry count", std::uint32_t{10}},
    {"RpcRetryConnect", "RPC retry connect", false},
    {"RpcUniqueBindingDisable", "RPC unique binding disable", false},
    {"RpcInvokerCountWarning", "RPC invokers count warning", std::uint32_t{512}},
    {"RpcInvokerDefaultStrategy", "Use old strategy, without confirm results", false},
    {"RpcSerialInvokerEnableLog", "Log serial invoker calls", false},
    {"RpcFileHandleIdleHours", "Installer keep file handle timeout, HOUR", std::uint32_t{1}},
    {"OutOfProcDumpGen", "Out of process dump generator", false},
    {"MaxTapeBlockSize", "MAX TAPE BLOCK SIZE", std::uint32_t{16777216}},
    {"TapeTransferBlockSize", "TAPE TRANSFER BLOCK SIZE", std::uint32_t{2097152}},
    {"TapeHwEncryption", "TAPE HW ENCRYPTION", true},
    {"TapeBlockSize", "TAPE BLOCK SIZE", std::uint32_t{65536}},
    {"WinFileWriteRetryCount", "", std::uint32_t{50}},
    {"WinFileWriteRetryMaxTimeoutMsec", "", std::uint32_t{1000}},
};

/// All names, in the order of loading.
constexpr const char* all_names[] = {
    "CollectRestoreStat",
    "CollectBackupStat",
    "CollectTapeStat",
    "CollectDDBoostStat",
    "CollectStoreOnceStat",
    "CollectNfsStat",
    "CollectLatencyThrottlingPerfData",
    "CollectWanEvents",
    "WanLiveTargetRedirectRead",
    "WanDumpCorruptBlocks",
    "IsLoopbackFastPathEnabled",
    "CollectSocketEvents",
    "CollectCloudEvents",
    "PerfBufSize",
    "BufReaderMaxDataSize",
    "NetLibRpcPacketMaxSize",
    "AgentDebugMode",
    "MaxRwFlushCntr",
    "CheckLZ4",
    "DumpCorruptedTraffic",
    "EnableTrafficControl",
    "MiniDumpModeType",
    "MiniDumpModeMask",
    "RepoBusyTimeoutSec",
    "MtaThreadMaxIdleDays",
    "PipelineTimeoutSecs",
    "TerminateAfterPipelineTimeouts",
    "NotificationTimeoutSec",
    "TFS12637DelayMs",
    "TFS12637PeriodGb",
    "WorkaroundPollDefaultCallbackWorkCrash",
    "NetUseShareAccess",
    "VmfsSanPreReadBufSize",
    "VmfsSanPreReadQueueDepth",
    "HardDiskPreReadBufSize",
    "HardDiskPreReadQueueDepth",
    "VhdDiskPreRead",
    "VhdDiskPreReadBufSize",
    "VhdDiskPreReadQueueDepth",
    "VhdxDiskPreRead",
    "VhdxDiskPreReadBufSize",
    "VhdxDiskPreReadQueueDepth",
    "TapeCatalogXmlBufSize",
    "TapeMinFileSizeWithCompressionAndMultistreaming",
    "TapeSoftwareEOMInMb",
    "TapeDetectSoftwareEOMEveryMb",
    "TapeTimeOutForOpening",
    "MaxFbCacheSizeMb",
    "FsrPathTimeoutMs",
    "TapeCheckBlockHeaderCrc",
    "UseLongEraseTapeOnFormat",
    "TraceBindRetries",
    "AgentEmulateTapeAlerts",
    "TapeIgnoreSoftwareEom",
    "TapePartitionType",
    "TapeRetryCountPerOperation",
    "TapeAgentIORetries",
    "TapeRetrySleepInMs",
    "TapeMaximumSkippingBlocksTimeSpanInSec",
    "RpcRetryDelayMs",
    "RpcRetryCount",
    "RpcRetryConnect",
    "RpcUniqueBindingDisable",
    "RpcInvokerCountWarning",
    "RpcInvokerDefaultStrategy",
    "RpcSerialInvokerEnableLog",
    "RpcFileHandleIdleHours",
    "HotAddIgnoreLockedVolumes",
    "WaitForMultipleObjectsTimeoutSec",
    "VDLOpenTimeoutSec",
    "SmbKeepAliveEnabled",
    "SmbKeepAliveSec",
    "VddkOpTimeoutSec",
    "XDRBufInitialSize",
    "VddkNonUniqueUuidPatch",
    "VddkConfigPath",
    "VddkVmSearchPatch",
    "VddkLibCurlDnsInitMethod",
    "VddkHotaddSyncTimeoutMs",
    "VddkLogonRetryLimit",
    "VddkPreReadQueueDepth",
    "VddkVersion",
    "VddkExtraFlags",
    "VddkAioPatchEnabled",
    "VddkAsyncNfcBlocked",
    "VddkAsyncTimeout",
    "VddkGlobalUuidPatch",
    "VmcQueryEscapeEnabled",
    "NfcMaxSectors2ReadWriteOnce",
    "FsAwareCacheBlockSize",
    "FsAwareCacheBlockNum",
    "FsAwareItemToDeleteMinSize",
    "FsAwareMetaTimeoutMs",
    "OutOfProcDumpGen",
    "DisablePatchPrefetcher",
    "UseTLSv12ForNfc",
    "MaxTapeBlockSize",
    "TapeTransferBlockSize",
    "TapeHwEncryption",
    "NtfCliSrvExcTimeoutMs",
    "AzureReconnectsCount",
    "AsyncExtentRead",
    "TapeBlockSize",
    "StgOversizeMbLimit",
    "StgOversizeGbLimit",
    "MaxUploadStopTimeoutMs",
    "SrvSessionConnAwaitTimeoutMs",
    "IscsiMountTimeoutMs",
    "VmfsLogEnabled",
    "VmfsCachedBlockSize",
    "VmfsCachedBlocksCount",
    "OverallBanksLimit",
    "DirtyBanksLimit",
    "CleanBanksLimit",
    "DisableIncrementalMetaFlush",
    "DisableStgKeyValidation",
    "RestoreCachedBlocksCount",
    "VDSRescanEnumerateOnly",
    "VDSRescanProvidersOnly",
    "VDSSvcRescanDelayMs",
    "VDSSvcRescanTimeoutMs",
    "DiskMakeWritableCompareControllerInquery",
    "DisableTargetDedup",
    "ThrottlingAsyncSyncPercent",
    "ThrottlingMaxPercent",
    "TempDrvCacheDir",
    "WriteCacheDirectory",
    "IscsiForceBindAny",
    "VdkMutexWaitTimeoutSec",
    "WinFileWriteRetryCount",
    "WinFileWriteRetryMaxTimeoutMsec",
    "S3MultipartUploadMinParts",
    "S3ConcurrentTaskLimit",
    "S3RequestTimeoutSec",
    "S3RequestRetryTotalTimeoutSec",
    "S3ForceVirtualHostedStyle",
    "S3MultiObjectDeleteLimit",
    "AzureConcurrentTaskLimit",
    "DiskLvidRetryCount",
    "DiskLvidRetryTimeoutMs",
    "NfcMaxSizeForRewritingRetry",
    "NfcRewritingRetryCount",
    "NfcRewritingRetryTimeoutMs",
    "PipeMessageQueueMaxSize",
    "CustomTempDirPath",
};

class ProductOptionsTable : public ::testing::Test {
protected:
    static std::string name_of(const product_option_row& row) { return text::wide_to_utf8(row.name); }

    value_t value_of(const product_option_row& row) const {
        return std::visit([&](auto member) { return value_t(options_.*member); }, row.member);
    }

    /// Sets a value that isn't the row's default; how the log shows it.
    std::string set_another(const product_option_row& row) {
        const auto set = [&](const auto& present) -> std::string {
            using type = std::decay_t<decltype(present)>;
            if constexpr (std::is_same_v<type, std::string>) {
                registry().set_string(key, name_of(row), "of " + name_of(row));
                return "of " + name_of(row);
            } else if constexpr (std::is_same_v<type, bool>) {
                registry().set_dword(key, name_of(row), present ? 0 : 2);
                return present ? "false" : "true";
            } else if constexpr (std::is_same_v<type, std::uint64_t>) {
                registry().set_qword(key, name_of(row), present + 1);
                return std::to_string(present + 1);
            } else {
                registry().set_dword(key, name_of(row), static_cast<std::uint32_t>(present) + 1);
                return std::to_string(present + 1);
            }
        };
        return std::visit(set, value_of(row));
    }

    platform::testing::memory_registry& registry() { return system_.registry; }

    platform::testing::test_system system_;
    product_options_t options_;
};

TEST_F(ProductOptionsTable, HoldsAllNamesInOrder) {
    std::vector<std::string> names;
    for (const product_option_row& row : product_option_rows()) {
        names.push_back(name_of(row));
    }
    EXPECT_EQ(names.size(), 145U);
    EXPECT_EQ(names, std::vector<std::string>(std::begin(all_names), std::end(all_names)));
}

TEST_F(ProductOptionsTable, HoldsTitlesTypesAndDefaults) {
    std::map<std::string, const known_row*> expected;
    for (const known_row& row : known_rows) {
        expected[row.name] = &row;
    }
    for (const product_option_row& row : product_option_rows()) {
        const auto known = expected.find(name_of(row));
        if (known != expected.end()) {
            EXPECT_EQ(row.title, known->second->title) << name_of(row);
            EXPECT_EQ(value_of(row), known->second->default_value) << name_of(row);
            expected.erase(known);
        } else {
            EXPECT_EQ(row.title, name_of(row) == "VhdDiskPreReadQueueDepth" ? "VHD DDISK PREREAD QUEUE DEPTH" : "") << name_of(row);
        }
    }
    EXPECT_TRUE(expected.empty());
}

TEST_F(ProductOptionsTable, GivesEachRowAMemberOfItsOwn) {
    const auto rows = product_option_rows();
    for (std::size_t one = 0; one < rows.size(); ++one) {
        for (std::size_t other = one + 1; other < rows.size(); ++other) {
            const bool shared = name_of(rows[one]) == "StgOversizeMbLimit" && name_of(rows[other]) == "StgOversizeGbLimit";
            EXPECT_EQ(rows[one].member == rows[other].member, shared) << name_of(rows[one]) << ' ' << name_of(rows[other]);
        }
    }
}

TEST_F(ProductOptionsTable, LoadsEveryRowAndLogsItInItsPlace) {
    std::vector<std::string> lines{"Loading options."};
    for (const product_option_row& row : product_option_rows()) {
        if (name_of(row) == "StgOversizeGbLimit") {
            continue;
        }
        const std::string value = set_another(row);
        lines.push_back(row.title.empty() ? "  Non-default option '" + name_of(row) + "': " + value
                                          : "  " + std::string(row.title) + ": " + value);
    }
    lines.push_back("Loading options. ok.");
    const product_options_t defaults;
    options_.load();
    EXPECT_EQ(system_.log.lines(), lines);
    for (const product_option_row& row : product_option_rows()) {
        std::visit([&](auto member) { EXPECT_NE(options_.*member, defaults.*member) << name_of(row); }, row.member);
    }
}

}  // namespace
