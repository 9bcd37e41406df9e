#include "changer/buffered_scsi_read.h"

#include <algorithm>
#include <cstring>

#include "foundation/util/bytes.h"
#include "platform/scsi_records.h"
#include "platform/system.h"

namespace {

using platform::SCSI_PASS_THROUGH;

constexpr std::size_t block_size = 65840;
constexpr std::uint32_t sense_offset = 48;
constexpr std::uint32_t data_offset = 304;
constexpr std::uint8_t sense_room = 64;
constexpr std::uint32_t time_limit = 10;  // seconds

}  // namespace

buffered_scsi_read_t::buffered_scsi_read_t(std::initializer_list<std::uint8_t> cdb, std::uint32_t transfer_length)
    : transfer_length_(std::min<std::uint32_t>(transfer_length, block_size - data_offset)), block_(block_size) {
    SCSI_PASS_THROUGH header;
    header.Length = sizeof(header);
    header.CdbLength = static_cast<std::uint8_t>(std::min(cdb.size(), sizeof(header.Cdb)));
    header.SenseInfoLength = sense_room;
    header.DataIn = platform::SCSI_DATA_IN;
    header.DataTransferLength = transfer_length_;
    header.TimeOutValue = time_limit;
    header.DataBufferOffset = data_offset;
    header.SenseInfoOffset = sense_offset;
    std::copy_n(cdb.begin(), header.CdbLength, header.Cdb);
    std::memcpy(block_.data(), &header, sizeof(header));
}

bool buffered_scsi_read_t::send(platform::device_handle device) {
    const std::span<std::uint8_t> block(block_);
    return platform::system().devices->control(device, platform::ioctl::scsi_pass_through, block,
                                               block.first(data_offset + transfer_length_), returned_);
}

std::uint8_t buffered_scsi_read_t::scsi_status() const {
    return util::load_record<SCSI_PASS_THROUGH>(block_).ScsiStatus;
}

std::span<const std::uint8_t> buffered_scsi_read_t::sense() const {
    const std::uint8_t delivered = util::load_record<SCSI_PASS_THROUGH>(block_).SenseInfoLength;
    return util::slice(std::span(block_).first(data_offset), sense_offset, delivered);
}

std::span<const std::uint8_t> buffered_scsi_read_t::data() const {
    return std::span(block_).subspan(data_offset);
}

std::span<const std::uint8_t> buffered_scsi_read_t::returned_data() const {
    return util::slice(data(), 0, returned_);
}
