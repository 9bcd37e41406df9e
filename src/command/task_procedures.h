#pragma once

#include "command/tape_dispatcher.h"

/// Procedures that start a long task on a drive and ask for its end. None of them waits for a running task.
namespace procedures {

/// Starts a task and gives its id; whether the drive is there at all comes up as the task's status.
void EraseTape(const procedure_call& call);
/// A success is told once: the task is forgotten then. A failure is told again and again.
void TaskStatus(const procedure_call& call);
/// Lets the thread of a finished task come to its end; does nothing for a running one.
void WaitForResult(const procedure_call& call);

}  // namespace procedures
