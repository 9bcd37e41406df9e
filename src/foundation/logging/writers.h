#pragma once

#include "foundation/logging/log_writer.h"

/// The writers of the general library's further components; those that the tape service uses most are declared with the writer
/// itself. All share the process's log, but for `g_debugLog`, which has a log of its own.
extern const logging::log_writer_t g_vcbLog;           ///< "vcb"
extern const logging::log_writer_t g_vcbDiskLog;       ///< "vcb" again
extern const logging::log_writer_t g_backupLog;        ///< "bkp"
extern const logging::log_writer_t g_debugLog;         ///< "dbg"
extern const logging::log_writer_t g_driveLog;         ///< "drv"
extern const logging::log_writer_t g_nfsLog;           ///< "nfs"
extern const logging::log_writer_t g_vhdLog;           ///< "vhd"
extern const logging::log_writer_t g_daemonLog;        ///< "dmn"
extern const logging::log_writer_t g_storageLog;       ///< "stg"
extern const logging::log_writer_t g_azureLog;         ///< "azure"
extern const logging::log_writer_t g_cplLog;           ///< "cpl"
extern const logging::log_writer_t g_prtLog;           ///< "prt"
extern const logging::log_writer_t g_mountLog;         ///< "mnt"
extern const logging::log_writer_t g_serverLog;        ///< "srv"
extern const logging::log_writer_t g_dataTransferLog;  ///< "dt "
