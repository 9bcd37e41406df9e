#include "foundation/crash/minidump_gen.h"

#include "foundation/crash/dump_files.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "platform/system.h"

namespace crash::win32 {

minidump_gen_t::minidump_gen_t() {
    auto failed = platform::minidump_step::load_library;
    const std::uint32_t code = platform::system().crash->load_minidump_writer(failed);
    if (code != 0) {
        throw exc::win_sys_exc_t(failed == platform::minidump_step::load_library
                                     ? "Cannot load dbghelp.dll library."
                                     : "MiniDumpWriteDump function is not exported from the dbghelp dynamic library.",
                                 code);
    }
}

void minidump_gen_t::generate(dump_mode mode, const text::wide_string& folder, const text::wide_string& name,
                              const platform::crash_record* exception) {
    try {
        const text::wide_string path = next_dump_path(folder, name, u"mdmp");
        const std::string shown = text::wide_to_utf8(path);
        g_libraryLog.LogInfo("Writing dump. Dump path: %1.", shown);
        auto failed = platform::minidump_step::create_file;
        const std::uint32_t code = platform::system().crash->write_minidump(path, minidump_flags(mode), exception, failed);
        if (code != 0 && failed == platform::minidump_step::create_file) {
            throw exc::win_sys_exc_t("Cannot create a blank minidump file. File path: [%1].", shown, code);
        }
        if (code != 0) {
            throw exc::win_sys_exc_t("MiniDumpWriteDump() function call has failed.", code);
        }
    } catch (std::exception& e) {
        exc::rethrow_with_message("Crash details cannot be stored in minidump.", e);
    }
}

}  // namespace crash::win32
