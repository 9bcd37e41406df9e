#include "command/tape_dispatcher.h"

#include <algorithm>

#include "command/alert_procedures.h"
#include "command/changer_procedures.h"
#include "command/drive_procedures.h"
#include "command/owner.h"
#include "command/service_procedures.h"
#include "command/task_procedures.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"

namespace {

using enum procedure_group;

constexpr procedure_row procedure_table[] = {
    {u"SetOwnerName", before_gate, procedures::SetOwnerName},
    {u"TestCompatible", before_gate, procedures::TestCompatible},
    {u"GetLogFolder", before_gate, procedures::GetLogFolder, procedure_end::falls_through},
    {u"EnumLocks", before_gate, procedures::EnumLocks, procedure_end::answered, false},
    {u"GetOwnerName", before_gate, procedures::GetOwnerName, procedure_end::answered, false},
    {u"GetChangers", changers, procedures::GetChangers},
    {u"GetChanger", changers, procedures::GetChanger},
    {u"UnloadMedium", changers, procedures::UnloadMedium},
    {u"MoveToSlot", changers, procedures::MoveToSlot},
    {u"LoadMedium", changers, procedures::LoadMedium},
    {u"FromDriveToIEPort", changers, procedures::FromDriveToIEPort},
    {u"FromSlotToIEPort", changers, procedures::FromSlotToIEPort},
    {u"FromIEPortToSlot", changers, procedures::FromIEPortToSlot},
    {u"GetSlotsStatuses", changers, procedures::GetSlotsStatuses},
    {u"GetDrivesStatuses", changers, procedures::GetDrivesStatuses},
    {u"GetIEPortsStatuses", changers, procedures::GetIEPortsStatuses},
    {u"GetElementsStatuses", changers, procedures::GetElementsStatuses},
    {u"GetAllChangers", changers_by_scsi, procedures::GetChangers},
    {u"GetChangerByScsi", changers_by_scsi, procedures::GetChanger},
    {u"UnloadMediumByScsi", changers_by_scsi, procedures::UnloadMedium},
    {u"MoveToSlotByScsi", changers_by_scsi, procedures::MoveToSlot},
    {u"LoadMediumByScsi", changers_by_scsi, procedures::LoadMedium},
    {u"FromDriveToIEPortByScsi", changers_by_scsi, procedures::FromDriveToIEPort},
    {u"FromSlotToIEPortByScsi", changers_by_scsi, procedures::FromSlotToIEPort},
    {u"FromIEPortToSlotByScsi", changers_by_scsi, procedures::FromIEPortToSlot},
    {u"GetSlotsStatusesByScsi", changers_by_scsi, procedures::GetSlotsStatuses},
    {u"GetDrivesStatusesByScsi", changers_by_scsi, procedures::GetDrivesStatuses},
    {u"GetIEPortsStatusesByScsi", changers_by_scsi, procedures::GetIEPortsStatuses},
    {u"GetElementsStatusesByScsi", changers_by_scsi, procedures::GetElementsStatuses},
    {u"GetDrives", drives, procedures::GetDrives},
    {u"GetMediaInfo", drives, procedures::GetMediaInfo},
    {u"GeDriveInfo", drives, procedures::GeDriveInfo},
    {u"EraseTape", drives, procedures::EraseTape},
    {u"GetDriveError", drives, procedures::GetDriveError},
    {u"EjectTapeFromStandalone", drives, procedures::EjectTapeFromStandalone},
    {u"PrepareTape", drives, procedures::PrepareTape},
    {u"StorageMediaRemoval", drives, procedures::StorageMediaRemoval},
    {u"TaskStatus", drives, procedures::TaskStatus},
    {u"WaitForResult", drives, procedures::WaitForResult},
    {u"GetDriveAlerts", alerts, procedures::GetDriveAlerts},
    {u"GetChangerAlerts", alerts, procedures::GetChangerAlerts},
};

const procedure_row* find_procedure(std::u16string_view name) {
    const auto* found = std::find_if(std::begin(procedure_table), std::end(procedure_table),
                                     [&](const procedure_row& row) { return row.name == name; });
    return found != std::end(procedure_table) ? found : nullptr;
}

/// Throws unless the caller is the owner. Nothing has touched a device yet.
void pass_owner_gate(const CInputArguments& input) {
    logging::log_scope_t scope(g_log, "Testing owner name");
    if (!TestOwnerName(input.get_wstring_argument("OwnerName"))) {
        throw exc::runtime_exc_t("'%1' isn't current owner. You have to change current owner",
                                 text::wide_to_utf8(input.get_wstring_argument("OwnerName")));
    }
    scope.ok();
}

}  // namespace

std::span<const procedure_row> ProcedureTable() {
    return procedure_table;
}

bool ProcedureMayWait(std::u16string_view name) {
    if (name == wrap::serial_invoker_procedure) {
        return false;
    }
    const procedure_row* row = find_procedure(name);
    return row == nullptr || row->may_wait;
}

void CTapeInvokeDispatcher::Invoke(const std::u16string& procedure, const CInputArguments& input, COutputArguments& output) {
    const procedure_row* row = find_procedure(procedure);
    if (row != nullptr && row->group == before_gate) {
        row->body({*context_, input, output});
        if (row->end == procedure_end::answered) {
            return;
        }
    } else {
        // The gate comes before the look at the groups, so that a stranger doesn't even learn which names exist.
        pass_owner_gate(input);
        if (row != nullptr) {
            row->body({*context_, input, output, row->group == changers_by_scsi});
            return;
        }
    }
    throw exc::runtime_exc_t("Unknown command: '%1'", text::wide_to_ansi(procedure));
}

void CTapeInvokeDispatcher::LogSoapEnter(const std::u16string& procedure, const std::u16string& input) {
    IInvokeDispatcher::LogSoapEnter(procedure, input);
}

void CTapeInvokeDispatcher::LogSoapExit(const std::u16string& procedure, const std::u16string& output) {
    IInvokeDispatcher::LogSoapExit(procedure, output);
}

void CTapeInvokeDispatcher::LogCallFailure(const std::u16string& procedure, const std::u16string& input, const std::exception& e) {
    IInvokeDispatcher::LogCallFailure(procedure, input, e);
}
