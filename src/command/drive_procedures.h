#pragma once

#include "command/tape_dispatcher.h"

/// Procedures about a tape drive. Each opens the drive for its own length and takes no lock of it: a caller that wants order keeps
/// it. Two of them take a changer's mutex: `GetDrivesStatuses` that of the changer it reads, `GetMediaInfo` that of the changer
/// whose robot has to stand still meanwhile.
namespace procedures {

/// A drive that can't be read is left out, or stands there as far as it was read; the log says why.
void GetDrives(const procedure_call& call);
/// Reads the changer twice and answers twice, as the console expects.
void GetDrivesStatuses(const procedure_call& call);
/// Waits for a medium up to the not-ready time-out, the changer locked.
void GetMediaInfo(const procedure_call& call);
void GeDriveInfo(const procedure_call& call);
/// The drive's state as a number; no state is a failure.
void GetDriveError(const procedure_call& call);
void EjectTapeFromStandalone(const procedure_call& call);
void PrepareTape(const procedure_call& call);
void StorageMediaRemoval(const procedure_call& call);

}  // namespace procedures
