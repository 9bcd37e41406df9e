#pragma once

#include "foundation/util/command_line.h"

/// Whether the command line asks for one of the actions below.
[[nodiscard]] bool HasDiagnosticAction(const util::command_line_t& command_line);

/// The actions for support staff: each does one thing to the tape hardware, on the calling thread, with the device code of the
/// remote procedures but without their server. A service that runs beside it isn't told and competes for the devices.
///
/// Runs the action of the first switch, in the order of the actions' table, that stands anywhere among the words; false: there is
/// none. Records go into XML files in the current folder, progress to the log and, for a few lines, to standard output. What an
/// action doesn't guard against leaves as an exception.
[[nodiscard]] bool RunDiagnosticAction(const util::command_line_t& command_line);
