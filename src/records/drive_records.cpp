#include "foundation/text/conversion.h"
#include "records/device_record_writer.h"

namespace CDeviceRecordWriter {

namespace {

void add_text_child(const winxml::node_t& parent, std::string_view name, std::string_view value) {
    winxml::set_text(winxml::add_element(parent, name), value);
}

}  // namespace

// Each value is read right before it is written: a record that breaks off shows how far the drive answered.
void WriteDrive(const winxml::node_t& node, const CDriveHandle& drive, const std::u16string& product_name) {
    winxml::set_attribute(node, "SerialNumber", text::wide_to_utf8(SerialNumberRules::ShownDeviceSerial(drive.GetSerialNumber())));
    winxml::set_attribute(node, "DeviceName", text::wide_to_utf8(drive.GetDeviceName()));
    winxml::set_attribute(node, "Name", text::wide_to_utf8(product_name));
    winxml::set_attribute(node, "SymbolicLink", text::wide_to_utf8(drive.GetSymbolicLink()));
}

void WriteAddress(const winxml::node_t& node, const CDriveHandle& drive) {
    WriteAddress(node, drive.GetScsiAddress());
}

void WriteBlockSizes(const winxml::node_t& node, CDriveHandle& drive) {
    TapeDriveParameters parameters;
    drive.GetDriveParameters(parameters);
    WriteDriveInfo(winxml::add_element(node, "BlockSizes"), parameters);
}

void WriteDriveInfo(const winxml::node_t& node, const TapeDriveParameters& parameters) {
    winxml::set_attribute(node, "DefaultBlockSize", text::to_string(std::uint64_t{parameters.DefaultBlockSize}));
    winxml::set_attribute(node, "MinimumBlockSize", text::to_string(std::uint64_t{parameters.MinimumBlockSize}));
    winxml::set_attribute(node, "MaximumBlockSize", text::to_string(parameters.MaximumBlockSize));
}

void WriteMediaInfo(const winxml::node_t& node, bool worm, const TapeMediaInfo& media) {
    winxml::set_attribute(node, "Capacity", text::to_string(media.Capacity));
    winxml::set_attribute(node, "Remaining", text::to_string(media.Remaining));
    winxml::set_attribute(node, "BlockSize", text::to_string(media.BlockSize));
    winxml::set_attribute(node, "PartitionCount", text::to_string(media.PartitionCount));
    winxml::set_attribute(node, "WriteProtected", media.WriteProtected != 0);
    winxml::set_attribute(node, "IsWorm", worm);
}

void WriteUsageStatistic(const winxml::node_t& node, const TapeUsageStatistic& usage) {
    add_text_child(node, "IsValid", usage.valid ? "True" : "False");
    if (!usage.valid) {
        return;
    }
    add_text_child(node, "LifetimeMegabytesWritten", text::to_string(usage.lifetime_megabytes_written));
    add_text_child(node, "LifetimeMegabytesRead", text::to_string(usage.lifetime_megabytes_read));
}

}  // namespace CDeviceRecordWriter
