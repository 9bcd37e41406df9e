#pragma once

#include "command/tape_dispatcher.h"

/// Procedures that show a tape library and move its cartridges. Each opens the changer for its own length, which locks the
/// changer's mutex: a call can wait for a move of minutes to end.
namespace procedures {

void GetChangers(const procedure_call& call);
void GetChanger(const procedure_call& call);
void GetSlotsStatuses(const procedure_call& call);
void GetIEPortsStatuses(const procedure_call& call);
void GetElementsStatuses(const procedure_call& call);

/// Moves: they add nothing to the output, their success is the call's.
void LoadMedium(const procedure_call& call);
void MoveToSlot(const procedure_call& call);
void UnloadMedium(const procedure_call& call);
void FromDriveToIEPort(const procedure_call& call);
void FromSlotToIEPort(const procedure_call& call);
void FromIEPortToSlot(const procedure_call& call);

}  // namespace procedures
