#include "command/alert_procedures.h"

#include <string>

#include "drive/tape_alerts.h"
#include "foundation/logging/log_scope.h"

namespace procedures {

void GetDriveAlerts(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Get drive alerts");
    call.output.Set("Alerts", WriteAlertsXml(call.input.get_string_argument("SymLinkName"), false));
    scope.ok();
}

void GetChangerAlerts(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Get changer alerts");
    const std::string link = call.input.get_string_argument("SymLinkName");
    const boost::shared_ptr<boost::mutex> robot = call.context.GetDeviceMutex(link);
    std::string alerts;
    {
        const boost::mutex::scoped_lock read(*robot);
        alerts = WriteAlertsXml(link, true);
    }
    call.output.Set("Alerts", alerts);
    scope.ok();
}

}  // namespace procedures
