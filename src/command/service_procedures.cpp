#include "command/service_procedures.h"

#include "command/owner.h"
#include "command/version_check.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"
#include "platform/process.h"
#include "platform/system.h"

namespace procedures {

void SetOwnerName(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Changing owner name");
    const std::u16string name = call.input.get_wstring_argument("NewOwnerName");
    if (!TestOwnerName(name) && !SetOwner(name)) {
        throw exc::win_sys_exc_t("Problem with changing Host Name", exc::last_error());
    }
    call.output.Set("NewOwnerName", name);
    scope.ok();
}

void TestCompatible(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Testing compatible");
    const std::u16string version = call.input.get_wstring_argument("backupConsoleVersion");
    call.output.Set("isCompatible", CheckCompatibility(version, platform::system().process->module_path()));
    scope.ok();
}

void GetLogFolder(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "RPC: GetLogFolder");
    const std::u16string path = text::utf8_to_wide(g_log.log().path());
    const std::size_t separator = path.find_last_of(u"/\\");
    call.output.Set("LogFolder", separator == std::u16string::npos ? std::u16string() : path.substr(0, separator));
    scope.ok();
}

void EnumLocks(const procedure_call& call) {
    // This server keeps no locks of jobs; the console asks all its servers alike.
    WriteJobList(call.output.AddElement("locks"), {});
}

void GetOwnerName(const procedure_call& call) {
    call.output.Set("OwnerName", OwnerName());
}

}  // namespace procedures
