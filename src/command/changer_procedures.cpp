#include "command/changer_procedures.h"

#include <utility>

#include "changer/changer_interface.h"
#include "drive/device_enumerator.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "records/device_record_writer.h"

namespace procedures {

namespace {

using changer_ptr = boost::shared_ptr<IChangerHandle>;

changer_ptr open_changer(const procedure_call& call, const std::string& link) {
    return CreateChangerHandle(link, call.byScsi, call.context.GetDeviceMutex(link));
}

void write_changer(const winxml::node_t& node, IChangerHandle& changer) {
    CDeviceRecordWriter::WriteChangerIdentity(node, changer);
    CDeviceRecordWriter::WriteAddress(node, changer);
    CDeviceRecordWriter::WriteProductData(node, changer);
    CDeviceRecordWriter::WriteParameters(node, changer.GetParameters());
}

/// A move between two elements: how it names itself and its two numbers, and the changer's operation. The numbers are read
/// in the order given here and passed on in the operation's own, source first.
struct move_shape {
    const char* scope_text;
    const char* first_argument;
    const char* second_argument;
    bool second_is_source;
    void (IChangerHandle::*operation)(std::uint32_t source, std::uint32_t destination);
};

void run_move(const procedure_call& call, const move_shape& shape) {
    logging::log_scope_t scope(g_log, shape.scope_text);
    const std::string link = call.input.get_string_argument("SymLinkName");
    auto source = static_cast<std::uint32_t>(call.input.get_int_argument(shape.first_argument));
    auto destination = static_cast<std::uint32_t>(call.input.get_int_argument(shape.second_argument));
    if (shape.second_is_source) {
        std::swap(source, destination);
    }
    const changer_ptr changer = open_changer(call, link);
    ((*changer).*shape.operation)(source, destination);
    scope.quiet_end();
}

/// A list of all elements of one type.
void run_status_list(const procedure_call& call, const char* scope_text, const char* output_name,
                     void (*write_list)(winxml::record_stream_t& list, IChangerHandle& changer)) {
    logging::log_scope_t scope(g_log, scope_text);
    const std::string link = call.input.get_string_argument("SymLinkName");
    const changer_ptr changer = open_changer(call, link);
    winxml::record_stream_t list(output_name, winxml::record_form::attribute_value);
    write_list(list, *changer);
    call.output.SetRecord(output_name, std::move(list));
    scope.quiet_end();
}

CDeviceRecordWriter::element_range read_element_range(const CInputArguments& input) {
    CDeviceRecordWriter::element_range range;
    range.first = input.get_int_argument("ElementAddress");
    range.count = static_cast<std::uint16_t>(input.get_int_argument("ElementsCount"));
    range.type = static_cast<ELEMENT_TYPE>(input.get_int_argument("ElementType"));
    return range;
}

/// One entry of the list of changers. A changer that can't be read tells so in its own entry and spoils nothing else.
void write_changer_entry(const procedure_call& call, const std::string& link, const winxml::node_t& entry) {
    const auto write_error = [&](std::string_view error) {
        winxml::set_attribute(entry, "SymbolicLink", link);
        winxml::set_attribute(entry, "Error", error);
    };
    try {
        const changer_ptr changer = open_changer(call, link);
        write_changer(entry, *changer);
    } catch (const exc::xml_type_exc_t& e) {
        write_error(e.xml());
    } catch (const std::exception& e) {
        write_error(e.what());
    }
}

}  // namespace

void GetChangers(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting changers");
    const std::vector<std::string> links = CDeviceEnumerator::FindMediumChangers(call.byScsi);
    const winxml::document_t document = winxml::create_document();
    const winxml::node_t root = winxml::add_element(winxml::document_node(document), "Changers");
    for (const std::string& link : links) {
        write_changer_entry(call, link, winxml::add_element(root, "Changer"));
    }
    call.output.SetRecord("Changers", document);
    scope.quiet_end();
}

void GetChanger(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting changer");
    const std::string link = call.input.get_string_argument("SymLinkName");
    const winxml::document_t document = winxml::create_document();
    try {
        const changer_ptr changer = open_changer(call, link);
        write_changer(winxml::add_element(winxml::document_node(document), "Changer"), *changer);
        call.output.SetRecord("Changer", document);
    } catch (const exc::xml_type_exc_t& e) {
        call.output.SetDeviceText("Error", e.xml());
        scope.fail();
        return;
    } catch (const std::exception&) {
        call.output.SetDeviceText("Error",
                                  "Problem with gathering data in " + link + ". We have " + winxml::serialize_xml(document));
    }
    scope.quiet_end();
}

void GetSlotsStatuses(const procedure_call& call) {
    run_status_list(call, "Getting slots statuses", "SlotsStatuses", CDeviceRecordWriter::WriteSlotStatusList);
}

void GetIEPortsStatuses(const procedure_call& call) {
    run_status_list(call, "Getting IE statuses", "IEPortsStatuses", CDeviceRecordWriter::WriteIEPortStatusList);
}

void GetElementsStatuses(const procedure_call& call) {
    logging::log_scope_t scope(g_log, "Getting Elements statuses");
    winxml::record_stream_t list("ElementsStatuses", winxml::record_form::attribute_value);
    const std::string link = call.input.get_string_argument("SymLinkName");
    const changer_ptr changer = open_changer(call, link);
    CDeviceRecordWriter::WriteElementStatusList(list, read_element_range(call.input), *changer);
    call.output.SetRecord("ElementsStatuses", std::move(list));
    scope.quiet_end();
}

void LoadMedium(const procedure_call& call) {
    run_move(call, {"Loading medium", "SlotNum", "DriveNum", false, &IChangerHandle::LoadMedium});
}

void MoveToSlot(const procedure_call& call) {
    run_move(call, {"Moving to slot", "SourceSlotNum", "destinationSlotNum", false, &IChangerHandle::MoveToSlot});
}

void UnloadMedium(const procedure_call& call) {
    run_move(call, {"Unloading medium", "SlotNum", "DriveNum", true, &IChangerHandle::UnloadMedium});
}

void FromDriveToIEPort(const procedure_call& call) {
    run_move(call, {"Moving from drive to IEPort", "DriveNum", "IEPortNum", false, &IChangerHandle::FromDriveToIEPort});
}

void FromSlotToIEPort(const procedure_call& call) {
    run_move(call, {"Moving from slot to IEPort", "SlotNum", "IEPortNum", false, &IChangerHandle::FromSlotToIEPort});
}

void FromIEPortToSlot(const procedure_call& call) {
    run_move(call, {"Moving from IEPort to slot", "SlotNum", "IEPortNum", true, &IChangerHandle::FromIEPortToSlot});
}

}  // namespace procedures
