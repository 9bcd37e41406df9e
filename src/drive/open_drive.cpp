#include "drive/open_drive.h"

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"

platform::device_handle OpenDrive(const std::string& link_name) {
    const platform::system_set& system = platform::system();
    const std::int64_t began = system.clock->seconds();
    const platform::device_handle device = system.devices->open_device(link_name);
    if (device == platform::invalid_device) {
        const std::uint32_t code = exc::last_error();
        g_libraryLog.LogError("Can not open '%1' device for %2 seconds", link_name,
                              text::to_string(system.clock->seconds() - began));
        system.errors->set_last_error(code);
    }
    return device;
}
