#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "changer/changer_interface.h"
#include "drive/drive_handle.h"
#include "drive/serial_numbers.h"
#include "foundation/winxml/record_stream.h"
#include "foundation/winxml/xml.h"

/// Writes the XML records of devices. A simple value is an attribute; attributes and children stand in the order of writing,
/// which readers rely on. Text fields of devices go into the record with their bytes as they are. All failures are
/// exceptions; a record that was begun then holds what was read before.
namespace CDeviceRecordWriter {

/// Name, link and kind of a changer, as attributes of the node.
void WriteChangerIdentity(const winxml::node_t& node, IChangerHandle& changer);
/// Child `Address`.
void WriteAddress(const winxml::node_t& node, IChangerHandle& changer);
void WriteAddress(const winxml::node_t& node, const SCSI_ADDRESS& address);
/// Child `Data`.
void WriteProductData(const winxml::node_t& node, IChangerHandle& changer);
/// Child `Parameters`.
void WriteParameters(const winxml::node_t& node, const GET_CHANGER_PARAMETERS& parameters);

/// A range of elements of one type, as a caller asks for it. An address below 0 or behind the last element is refused; a
/// count that reaches behind the last element is cut.
struct element_range {
    std::int32_t first = 0;
    std::uint16_t count = 0;
    ELEMENT_TYPE type = platform::AllElements;
};

/// Lists of elements, one record each below the list's root, whose attributes are then the changer's identity.
void WriteDriveStatusList(winxml::record_stream_t& list, IChangerHandle& changer);
void WriteSlotStatusList(winxml::record_stream_t& list, IChangerHandle& changer);
void WriteIEPortStatusList(winxml::record_stream_t& list, IChangerHandle& changer);
void WriteElementStatusList(winxml::record_stream_t& list, const element_range& range, IChangerHandle& changer);

/// Reads `count` elements from `first` on and writes a record named `element_name` for each. `custom` tells whether
/// the elements can take the custom postfix.
void WriteElementList(winxml::record_stream_t& list, std::string_view element_name, ELEMENT_TYPE type,
                      SerialNumberRules::custom_postfix custom, std::uint16_t count, std::uint16_t first, IChangerHandle& changer);

/// A drive by itself, on its element: names and serial number as attributes.
void WriteDrive(const winxml::node_t& node, const CDriveHandle& drive, const std::u16string& product_name);
/// Child `Address`.
void WriteAddress(const winxml::node_t& node, const CDriveHandle& drive);
/// Child `BlockSizes`. Zeros where the drive keeps being reset.
void WriteBlockSizes(const winxml::node_t& node, CDriveHandle& drive);
/// The same three sizes, in bytes, as attributes of the node.
void WriteDriveInfo(const winxml::node_t& node, const TapeDriveParameters& parameters);
/// A medium, as attributes of the node.
void WriteMediaInfo(const winxml::node_t& node, bool worm, const TapeMediaInfo& media);
/// What a cartridge was used for, as children of the node with text; only the first of them unless it is known.
void WriteUsageStatistic(const winxml::node_t& node, const TapeUsageStatistic& usage);

}  // namespace CDeviceRecordWriter
