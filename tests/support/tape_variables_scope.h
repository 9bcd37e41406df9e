#pragma once

#include "changer/tape_variables.h"

namespace test_support {

/// Puts the process-wide settings back to their defaults when a test begins, and again when it ends.
class tape_variables_scope {
public:
    tape_variables_scope() { reset(); }
    ~tape_variables_scope() { reset(); }
    tape_variables_scope(const tape_variables_scope&) = delete;
    tape_variables_scope& operator=(const tape_variables_scope&) = delete;

private:
    static void reset() {
        gEnableScsiChanger = false;
        gUserSlotPortion = 50;
        gForbiddenSerialNames.clear();
        gCustomChanger.clear();
        gCustomPostfix.clear();
        gDeviceSerialPostfix.clear();
        gBarcodesPostfix.clear();
        gTapeAlertsEmulator = false;
        gGenerateDriveNameFromAddressNumber = false;
        gOldDeviceEnumerate = false;
    }
};

}  // namespace test_support
