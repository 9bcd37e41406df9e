#include "foundation/monitoring/activity_scope.h"

#include "foundation/logging/quietly.h"
#include "foundation/logging/writers.h"

namespace monitoring {

activity_scope_t::activity_scope_t(std::string_view text) : text_(text), activity_(text) {}

activity_scope_t::~activity_scope_t() {
    activity_.end();
    if (finished_) {
        return;
    }
    logging::quietly([this] { g_daemonLog.LogInfo(text_ + " Failed."); });
}

}  // namespace monitoring
