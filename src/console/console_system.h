#pragma once

#include "platform/linux/clock.h"
#include "platform/linux/errors.h"
#include "platform/linux/process.h"
#include "platform/linux/text_encoding.h"
#include "platform/system.h"

namespace console {

/// What the general library needs of the system while the console runs.
class console_system {
public:
    console_system() : scope_(parts()) {}

private:
    platform::system_set parts() {
        platform::system_set set;
        set.clock = &clock_;
        set.errors = &errors_;
        set.process = &process_;
        set.text_encoding = &text_encoding_;
        return set;
    }

    platform::linux_os::linux_clock clock_;
    platform::linux_os::linux_errors errors_;
    platform::linux_os::linux_process process_;
    platform::linux_os::linux_text_encoding text_encoding_;
    platform::scoped_system scope_;
};

}  // namespace console
