#pragma once

/// Everything that a test needs in place of a real system.
#include "platform/testing/fake_accounts.h"
#include "platform/testing/fake_com_runtime.h"
#include "platform/testing/fake_debug_output.h"
#include "platform/testing/fake_errors.h"
#include "platform/testing/fake_plug_and_play.h"
#include "platform/testing/fake_process.h"
#include "platform/testing/fake_rpc_runtime.h"
#include "platform/testing/fake_service_manager.h"
#include "platform/testing/fake_text_encoding.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/memory_files.h"
#include "platform/testing/memory_registry.h"
#include "platform/testing/scripted_devices.h"
#include "platform/testing/scripted_tape.h"
#include "platform/testing/test_system.h"
#include "platform/testing/virtual_clock.h"
