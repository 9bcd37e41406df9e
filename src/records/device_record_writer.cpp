#include "records/device_record_writer.h"

#include <algorithm>
#include <string>

#include "changer/tape_variables.h"
#include "foundation/exc/exceptions.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

namespace CDeviceRecordWriter {

namespace {

/// Part of the link name of a changer that no class driver serves.
constexpr std::string_view driverless_mark = "unknownChanger";

/// A fixed text field of a device: its bytes up to the first NUL, without the blanks at the end.
template <std::size_t Size>
std::string_view device_text(const std::uint8_t (&field)[Size]) {
    std::string_view text(reinterpret_cast<const char*>(field), Size);
    text = text.substr(0, text.find('\0'));
    const std::size_t last = text.find_last_not_of(' ');
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

struct changer_identity {
    std::string device_name;
    std::string symbolic_link;
    bool driverless = false;
};

changer_identity identity_of(IChangerHandle& changer) {
    changer_identity identity;
    identity.device_name = text::wide_to_utf8(changer.GetDeviceName());
    identity.symbolic_link = text::wide_to_utf8(changer.GetSymbolicLink());
    identity.driverless = identity.symbolic_link.find(driverless_mark) != std::string::npos;
    return identity;
}

struct parameter_attribute {
    const char* name;
    std::string (*value)(const GET_CHANGER_PARAMETERS& parameters);
};

#define TARNO_PARAMETER(field)                                                                                                    \
    {                                                                                                                             \
#field,                                                                                                                   \
            [](const GET_CHANGER_PARAMETERS& parameters) { return text::to_string(static_cast<std::int32_t>(parameters.field)); } \
    }
#define TARNO_UNSIGNED_PARAMETER(field)                                                                                   \
    {                                                                                                                     \
#field, [](const GET_CHANGER_PARAMETERS& parameters) { return text::to_string(std::uint32_t{parameters.field}); } \
    }

constexpr parameter_attribute parameter_attributes[] = {
    TARNO_PARAMETER(PositionCapabilities),    TARNO_PARAMETER(LockUnlockCapabilities), TARNO_PARAMETER(ExchangeFromDrive),
    TARNO_PARAMETER(ExchangeFromIePort),      TARNO_PARAMETER(ExchangeFromSlot),       TARNO_PARAMETER(ExchangeFromTransport),
    TARNO_PARAMETER(MoveFromDrive),           TARNO_PARAMETER(MoveFromIePort),         TARNO_PARAMETER(MoveFromSlot),
    TARNO_PARAMETER(MoveFromTransport),       TARNO_UNSIGNED_PARAMETER(Features1),     TARNO_UNSIGNED_PARAMETER(Features0),
    TARNO_PARAMETER(DriveCleanTimeout),       TARNO_PARAMETER(MagazineSize),           TARNO_PARAMETER(FirstCleanerSlotAddress),
    TARNO_PARAMETER(FirstIEPortNumber),       TARNO_PARAMETER(FirstTransportNumber),   TARNO_PARAMETER(FirstDriveNumber),
    TARNO_PARAMETER(FirstSlotNumber),         TARNO_PARAMETER(NumberOfDoors),          TARNO_PARAMETER(NumberDataTransferElements),
    TARNO_PARAMETER(NumberIEElements),        TARNO_PARAMETER(NumberCleanerSlots),     TARNO_PARAMETER(NumberStorageElements),
    TARNO_PARAMETER(NumberTransportElements),
};

#undef TARNO_PARAMETER
#undef TARNO_UNSIGNED_PARAMETER

constexpr std::string_view element_attributes[] = {
    "SerialNumber",  "Lun",  "ProductIdentification", "VendorIdentification", "AlternateVolumeID", "PrimaryVolumeID", "TargetId",
    "ExceptionCode", "Flags"};
constexpr std::string_view address_attributes[] = {"ElementAddress", "ElementType"};
constexpr winxml::element_shape element_children[] = {{"Element", address_attributes}, {"SrcElementAddress", address_attributes}};

/// Serial numbers and bar codes as they are shown, for the elements of one list in order. Without postfixes in the settings,
/// the usual case, the device's own bytes go through untouched and uncopied.
class element_names {
public:
    element_names(SerialNumberRules::custom_postfix custom, IChangerHandle& changer)
        : serials_change_(!gDeviceSerialPostfix.empty() ||
                          (custom != SerialNumberRules::custom_postfix::never && !gCustomPostfix.empty())),
          bar_codes_change_(!gBarcodesPostfix.empty()),
          serials_(custom, serials_change_ ? changer.GetDeviceName() : std::u16string()) {}

    /// Valid until the next call.
    std::string_view serial_number(std::string_view reported, ELEMENT_TYPE type) {
        if (!serials_change_) {
            return reported;
        }
        serial_ = text::wide_to_utf8(serials_.Next(text::utf8_to_wide_lenient(reported), type));
        return serial_;
    }

    /// Valid until the next call.
    std::string_view bar_code(const CHANGER_ELEMENT_STATUS_EX& status) {
        if (!bar_codes_change_) {
            return device_text(status.PrimaryVolumeID);
        }
        bar_code_ = text::wide_to_utf8(SerialNumberRules::ShownBarcode(status.PrimaryVolumeID));
        return bar_code_;
    }

private:
    bool serials_change_;
    bool bar_codes_change_;
    SerialNumberRules::CElementSerials serials_;
    std::string serial_;
    std::string bar_code_;
};

/// The values of one element record, in the order of the shape above.
void write_element(winxml::record_stream_t& list, const winxml::record_layout_t& layout, const CHANGER_ELEMENT_STATUS_EX& status,
                   std::string_view serial_number, std::string_view bar_code) {
    list.begin_record(layout);
    list.value(serial_number);
    list.value(status.Lun);
    list.value(device_text(status.ProductIdentification));
    list.value(device_text(status.VendorIdentification));
    list.value(device_text(status.AlternateVolumeID));
    list.value(bar_code);
    list.value(status.TargetId);
    list.value(status.ExceptionCode);
    list.value(status.Flags);
    list.value(status.Element.ElementAddress);
    list.value(static_cast<std::int32_t>(status.Element.ElementType));
    list.value(status.SrcElementAddress.ElementAddress);
    list.value(static_cast<std::int32_t>(status.SrcElementAddress.ElementType));
    list.end_record();
}

std::uint16_t element_maximum(const GET_CHANGER_PARAMETERS& parameters, ELEMENT_TYPE type) {
    switch (type) {
        case ChangerSlot:
            return parameters.NumberStorageElements;
        case ChangerIEPort:
            return parameters.NumberIEElements;
        case ChangerDrive:
            return parameters.NumberDataTransferElements;
        default:
            return 0;
    }
}

/// Only drives can take the custom postfix.
SerialNumberRules::custom_postfix custom_rule(ELEMENT_TYPE type) {
    return type == ChangerDrive ? SerialNumberRules::custom_postfix::for_custom_changer : SerialNumberRules::custom_postfix::never;
}

void write_list_identity(winxml::record_stream_t& list, IChangerHandle& changer) {
    const changer_identity identity = identity_of(changer);
    list.root_attribute("DeviceName", identity.device_name);
    list.root_attribute("SymbolicLink", identity.symbolic_link);
    list.root_attribute("NoDriver", identity.driverless ? "true" : "false");
}

/// All elements of a type, and the changer's identity behind them.
void write_whole_list(winxml::record_stream_t& list, std::string_view element_name, ELEMENT_TYPE type, IChangerHandle& changer) {
    const std::uint16_t count = element_maximum(changer.GetParameters(), type);
    WriteElementList(list, element_name, type, custom_rule(type), count, 0, changer);
    write_list_identity(list, changer);
}

}  // namespace

void WriteChangerIdentity(const winxml::node_t& node, IChangerHandle& changer) {
    const changer_identity identity = identity_of(changer);
    winxml::set_attribute(node, "DeviceName", identity.device_name);
    winxml::set_attribute(node, "SymbolicLink", identity.symbolic_link);
    winxml::set_attribute(node, "NoDriver", identity.driverless);
}

void WriteAddress(const winxml::node_t& node, IChangerHandle& changer) {
    WriteAddress(node, changer.GetScsiAddress());
}

void WriteAddress(const winxml::node_t& node, const SCSI_ADDRESS& address) {
    const winxml::node_t child = winxml::add_element(node, "Address");
    winxml::set_attribute(child, "Lun", std::int32_t{address.Lun});
    winxml::set_attribute(child, "TargetId", std::int32_t{address.TargetId});
    winxml::set_attribute(child, "PathId", std::int32_t{address.PathId});
    winxml::set_attribute(child, "PortNumber", std::int32_t{address.PortNumber});
}

void WriteProductData(const winxml::node_t& node, IChangerHandle& changer) {
    const winxml::node_t child = winxml::add_element(node, "Data");
    winxml::set_attribute(child, "SerialNumber",
                          text::wide_to_utf8(SerialNumberRules::ShownDeviceSerial(changer.GetSerialNumber())));
    CHANGER_PRODUCT_DATA data;
    if (!changer.GetProductData(data)) {
        return;
    }
    winxml::set_attribute(child, "DeviceType", std::int32_t{data.DeviceType});
    winxml::set_attribute(child, "Revision", device_text(data.Revision));
    winxml::set_attribute(child, "ProductId", device_text(data.ProductId));
    winxml::set_attribute(child, "VendorId", device_text(data.VendorId));
}

void WriteParameters(const winxml::node_t& node, const GET_CHANGER_PARAMETERS& parameters) {
    const winxml::node_t child = winxml::add_element(node, "Parameters");
    for (const parameter_attribute& attribute : parameter_attributes) {
        winxml::set_attribute(child, attribute.name, attribute.value(parameters));
    }
}

void WriteDriveStatusList(winxml::record_stream_t& list, IChangerHandle& changer) {
    write_whole_list(list, "DriveStatus", ChangerDrive, changer);
}

void WriteSlotStatusList(winxml::record_stream_t& list, IChangerHandle& changer) {
    write_whole_list(list, "SlotStatus", ChangerSlot, changer);
}

void WriteIEPortStatusList(winxml::record_stream_t& list, IChangerHandle& changer) {
    write_whole_list(list, "IEPortStatus", ChangerIEPort, changer);
}

void WriteElementStatusList(winxml::record_stream_t& list, const element_range& range, IChangerHandle& changer) {
    const std::int32_t maximum = element_maximum(changer.GetParameters(), range.type);
    if (range.first < 0 || range.first > maximum) {
        const std::uint32_t error = exc::last_error();
        throw exc::win_sys_exc_t("Incorrect first element number. Elements adds = %1, Max count = %2", text::to_string(range.first),
                                 text::to_string(maximum), error);
    }
    const std::int32_t count = std::min<std::int32_t>(range.count, maximum - range.first);
    WriteElementList(list, "ElementStatus", range.type, custom_rule(range.type), static_cast<std::uint16_t>(count),
                     static_cast<std::uint16_t>(range.first), changer);
    write_list_identity(list, changer);
}

void WriteElementList(winxml::record_stream_t& list, std::string_view element_name, ELEMENT_TYPE type,
                      SerialNumberRules::custom_postfix custom, std::uint16_t count, std::uint16_t first, IChangerHandle& changer) {
    element_names names(custom, changer);
    const ElementStatusList elements = changer.GetElementStatus(first, type, true, count);
    const SerialNameList serials = changer.GetSerialNames(elements, type);
    if (serials->empty() && !elements->empty()) {
        const std::uint32_t error = exc::last_error();
        throw exc::win_sys_exc_t("Problem with getting serial numbers. Getting serial numbers = %1, waiting elements numbers = %2",
                                 text::to_string(static_cast<std::uint64_t>(serials->size())),
                                 text::to_string(static_cast<std::uint64_t>(elements->size())), error);
    }
    const winxml::record_layout_t layout({{element_name, element_attributes}, element_children}, list.form());
    list.expect_records(elements->size());
    for (std::size_t index = 0; index < elements->size(); ++index) {
        const CHANGER_ELEMENT_STATUS_EX& status = (*elements)[index];
        write_element(list, layout, status, names.serial_number((*serials)[index], type), names.bar_code(status));
    }
}

}  // namespace CDeviceRecordWriter
