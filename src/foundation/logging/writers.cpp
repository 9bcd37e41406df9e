#include "foundation/logging/writers.h"

#include <boost/make_shared.hpp>

#include "foundation/logging/debug_output_log.h"

namespace {

/// Apart from the process's log: it goes to the debug channel from the first line on, and its size is never looked at.
boost::shared_ptr<logging::log_t> make_debug_log() {
    const auto log = boost::make_shared<logging::log_t>();
    log->set_receiver(boost::make_shared<logging::receiver::COutputDebugStringLog>());
    return log;
}

}  // namespace

const logging::log_writer_t g_log("tap");
const logging::log_writer_t g_rpcLog("rpc");
const logging::log_writer_t g_libraryLog("");
const logging::log_writer_t g_clientLog("cli");

const logging::log_writer_t g_vcbLog("vcb");
const logging::log_writer_t g_vcbDiskLog("vcb");
const logging::log_writer_t g_backupLog("bkp");
const logging::log_writer_t g_debugLog("dbg", make_debug_log());
const logging::log_writer_t g_driveLog("drv");
const logging::log_writer_t g_nfsLog("nfs");
const logging::log_writer_t g_vhdLog("vhd");
const logging::log_writer_t g_daemonLog("dmn");
const logging::log_writer_t g_storageLog("stg");
const logging::log_writer_t g_azureLog("azure");
const logging::log_writer_t g_cplLog("cpl");
const logging::log_writer_t g_prtLog("prt");
const logging::log_writer_t g_mountLog("mnt");
const logging::log_writer_t g_serverLog("srv");
const logging::log_writer_t g_dataTransferLog("dt ");
