#pragma once

#include "command/tape_dispatcher.h"

/// Procedures about the server itself. They run without being the owner.
namespace procedures {

void SetOwnerName(const procedure_call& call);
void TestCompatible(const procedure_call& call);
void GetLogFolder(const procedure_call& call);
void EnumLocks(const procedure_call& call);
void GetOwnerName(const procedure_call& call);

}  // namespace procedures
