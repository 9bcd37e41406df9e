#include "command/com_scope.h"

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "platform/files.h"
#include "platform/system.h"

platform::com_model com_model_probe::model() {
    std::call_once(once_, [this] {
        g_libraryLog.LogMessage("Getting system directory");
        platform::files& files = *platform::system().files;
        const std::u16string installer = files.system_folder() + files.separator() + u"msiexec.exe";
        model_ = files.exists(installer) ? platform::com_model::apartment_threaded : platform::com_model::multi_threaded;
    });
    return model_;
}

com_model_probe& com_model_probe::instance() {
    static com_model_probe probe;
    return probe;
}

com_scope::com_scope(platform::com_model model) {
    const std::uint32_t result = platform::system().com_runtime->initialize(model);
    if ((result & 0x80000000u) != 0) {
        throw exc::com_exc_t(result, "Cannot initialize COM runtime");
    }
}

com_scope::~com_scope() {
    platform::system().com_runtime->uninitialize();
}
