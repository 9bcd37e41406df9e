#pragma once

#include "command/tape_dispatcher.h"

/// Procedures that tell what drives and libraries say of their own health. A device that can't be read has no alerts: the log says
/// why, and the call succeeds.
namespace procedures {

/// Takes no lock: opens the drive beside whatever else runs on it.
void GetDriveAlerts(const procedure_call& call);
/// Takes the changer's mutex for the read: a call can wait for a move of minutes to end.
void GetChangerAlerts(const procedure_call& call);

}  // namespace procedures
