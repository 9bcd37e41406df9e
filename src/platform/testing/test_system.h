#pragma once

#include "platform/system.h"
#include "platform/testing/fake_accounts.h"
#include "platform/testing/fake_com_runtime.h"
#include "platform/testing/fake_crash.h"
#include "platform/testing/fake_debug_output.h"
#include "platform/testing/fake_errors.h"
#include "platform/testing/fake_events.h"
#include "platform/testing/fake_plug_and_play.h"
#include "platform/testing/fake_process.h"
#include "platform/testing/fake_rpc_runtime.h"
#include "platform/testing/fake_service_manager.h"
#include "platform/testing/fake_text_encoding.h"
#include "platform/testing/fake_threads.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/memory_files.h"
#include "platform/testing/memory_registry.h"
#include "platform/testing/scripted_devices.h"
#include "platform/testing/scripted_tape.h"
#include "platform/testing/virtual_clock.h"

namespace platform::testing {

/// One of each fake, current for as long as this lives, with the process's log caught. Made first in a test and gone last.
class test_system {
public:
    test_system() : scope_(fakes()) {}

    virtual_clock clock;
    fake_errors errors;
    memory_registry registry;
    memory_files files;
    scripted_devices devices;
    scripted_tape tape;
    fake_process process;
    fake_text_encoding text_encoding;
    fake_com_runtime com_runtime;
    fake_crash crash;
    fake_debug_output debug_output;
    fake_accounts accounts;
    fake_plug_and_play plug_and_play;
    fake_rpc_runtime rpc_runtime;
    fake_service_manager service_manager;
    fake_events events{clock};
    fake_threads threads;

    /// The set, for a test that wants to put something of its own in one place: change a copy and use `scoped_system`.
    [[nodiscard]] system_set fakes() {
        system_set set;
        set.accounts = &accounts;
        set.clock = &clock;
        set.com_runtime = &com_runtime;
        set.crash = &crash;
        set.debug_output = &debug_output;
        set.devices = &devices;
        set.errors = &errors;
        set.events = &events;
        set.files = &files;
        set.plug_and_play = &plug_and_play;
        set.process = &process;
        set.registry = &registry;
        set.rpc_runtime = &rpc_runtime;
        set.service_manager = &service_manager;
        set.tape_functions = &tape;
        set.text_encoding = &text_encoding;
        set.threads = &threads;
        return set;
    }

private:
    scoped_system scope_;

public:
    log_capture log;
};

}  // namespace platform::testing
