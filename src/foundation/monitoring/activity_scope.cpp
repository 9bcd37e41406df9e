#include "foundation/monitoring/activity_scope.h"

#include "foundation/logging/writers.h"

namespace monitoring {

activity_scope_t::activity_scope_t(std::string_view text) : text_(text), activity_(text) {}

activity_scope_t::~activity_scope_t() {
    activity_.end();
    if (finished_) {
        return;
    }
    try {
        g_daemonLog.LogInfo(text_ + " Failed.");
    } catch (const std::exception&) {
        // A failed look at the log's size; an exception may be on its way here.
        return;
    }
}

}  // namespace monitoring
