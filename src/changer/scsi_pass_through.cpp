#include "changer/scsi_pass_through.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "changer/sense_decoder.h"
#include "changer/tape_variables.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"
#include "foundation/win/win_reg_key.h"
#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/system.h"

namespace {

using platform::SCSI_PASS_THROUGH;

// The block: header, sense area, and in the indirect form the data area.
constexpr std::uint32_t sense_offset = 48;
constexpr std::uint8_t sense_room = 240;
constexpr std::uint32_t data_offset = 560;
constexpr std::uint32_t direct_block_size = 560;
constexpr std::uint32_t data_area_size = 65536;
constexpr std::uint32_t indirect_block_size = data_offset + data_area_size;

constexpr std::uint32_t command_timeout = 300;  // seconds: a robot takes its time
constexpr std::int64_t resend_pause = 400;      // milliseconds

constexpr std::uint8_t check_condition_bit = 0x02;

// After a medium was inserted or a door opened, a device answers the next command once with this, and the command has to be
// sent again.
constexpr char unit_attention_line[] =
    "Fixed format, current;  Sense key: Unit Attention. Additional sense: Not ready to ready change, medium may have changed";
constexpr char ready_change_text[] = "Not ready to ready change, medium may have changed";

}  // namespace

bool IsIndirectScsiEnabled() {
    try {
        const win::reg_key_ptr key = win::open_reg_key(std::u16string_view(tape_key_path), platform::registry_access::read);
        std::uint32_t value = 0;
        if (!key || !key->try_get_dword(std::u16string_view(u"EnableIndirectScsi"), value) || value == 0) {
            return false;
        }
    } catch (const std::exception&) {
        return false;  // a value that can't be read counts as none
    }
    g_log.LogInfo("Using indirect SCSI.");
    return true;
}

CScsiPassThrough::CScsiPassThrough(platform::device_handle device, std::vector<std::uint8_t>& data)
    : direct_(!IsIndirectScsiEnabled()), device_(device), direction_(ScsiDirection::data_in), data_(&data) {
    Prepare();
}

CScsiPassThrough::CScsiPassThrough(platform::device_handle device)
    : direct_(!IsIndirectScsiEnabled()), device_(device), direction_(ScsiDirection::no_data), data_(&own_data_) {
    Prepare();
}

void CScsiPassThrough::Prepare() {
    block_.assign(direct_ ? direct_block_size : indirect_block_size, 0);
    SCSI_PASS_THROUGH header;
    header.Length = sizeof(SCSI_PASS_THROUGH);
    header.SenseInfoLength = sense_room;
    header.DataIn = static_cast<std::uint8_t>(direction_);
    header.TimeOutValue = command_timeout;
    header.SenseInfoOffset = sense_offset;
    if (direct_) {
        PrepareDirect(header);
    } else {
        PrepareIndirect(header);
    }
    StoreHeader(header);
}

void CScsiPassThrough::PrepareDirect(SCSI_PASS_THROUGH& header) {
    if (direction_ != ScsiDirection::no_data) {
        if (data_->empty()) {
            throw exc::runtime_exc_t("Empty %1.", direction_ == ScsiDirection::data_in ? "output buffer" : "input buffer");
        }
        header.DataTransferLength = static_cast<std::uint32_t>(data_->size());
    }
    request_size_ = direct_block_size;
}

void CScsiPassThrough::PrepareIndirect(SCSI_PASS_THROUGH& header) {
    if (direction_ != ScsiDirection::no_data) {
        header.DataTransferLength = data_area_size;
    }
    header.DataBufferOffset = data_offset;
    request_size_ = header.DataTransferLength + data_offset;
}

SCSI_PASS_THROUGH CScsiPassThrough::Header() const {
    return util::load_record<SCSI_PASS_THROUGH>(block_);
}

void CScsiPassThrough::StoreHeader(const SCSI_PASS_THROUGH& header) {
    std::memcpy(block_.data(), &header, sizeof(header));
}

std::span<const std::uint8_t> CScsiPassThrough::Sense() const {
    return util::slice(std::span(block_).subspan(sense_offset, sense_room), 0, Header().SenseInfoLength);
}

void CScsiPassThrough::SetCdb(std::initializer_list<std::uint8_t> cdb) {
    SCSI_PASS_THROUGH header = Header();
    const std::size_t length = std::min(cdb.size(), sizeof(header.Cdb));
    std::fill(std::begin(header.Cdb), std::end(header.Cdb), std::uint8_t{0});
    std::copy_n(cdb.begin(), length, header.Cdb);
    header.CdbLength = static_cast<std::uint8_t>(length);
    StoreHeader(header);
}

void CScsiPassThrough::Execute() {
    if (direct_) {
        ExecuteDirect(usual_attempts);
    } else {
        ExecuteIndirect();
    }
}

void CScsiPassThrough::ExecuteIndirect() {
    const std::span<std::uint8_t> block(block_);
    std::uint32_t returned = 0;
    const bool done = platform::system().devices->control(device_, platform::ioctl::scsi_pass_through, block,
                                                          block.first(request_size_), returned);
    const std::uint32_t code = done ? 0 : exc::last_error();
    const SCSI_PASS_THROUGH header = Header();
    if (header.ScsiStatus != 0) {
        CheckScsiStatus(Sense(), header.ScsiStatus);
    }
    if (direction_ == ScsiDirection::data_in) {
        // The bytes in front of the data area count as well: the vector comes back that much longer than the data, with zeros.
        const std::uint32_t count = returned > header.SenseInfoLength ? returned - header.SenseInfoLength : 0;
        const auto received = util::slice(block_, data_offset, count);
        data_->assign(received.begin(), received.end());
    }
    if (!done) {
        throw exc::win_sys_exc_t("DeviceIoControl fails or is pending.", code);
    }
}

void CScsiPassThrough::ExecuteDirect(std::int32_t attempts) {
    bool all_done = true;
    std::uint32_t code = 0;
    for (;;) {
        std::uint32_t returned = 0;
        if (!platform::system().devices->pass_through_direct(device_, block_, *data_, returned)) {
            all_done = false;
            code = exc::last_error();
        }
        const std::uint8_t status = Header().ScsiStatus;
        if (status != 0) {
            CheckScsiStatus(Sense(), status);
        }
        if ((status & check_condition_bit) == 0) {
            break;
        }
        const std::string decoded = DecodeSense(Sense());
        g_log.LogError("SCSI DIRECT ended with error %1. It has %2 attempts", decoded, text::to_string(attempts));
        if (attempts == 0 || decoded.find(ready_change_text) == std::string::npos) {
            ThrowScsiError(decoded);
        }
        // The count of attempts stays: the command is sent for as long as the device answers so.
        platform::system().clock->sleep(resend_pause);
        ResetForResend();
    }
    if (!all_done) {
        throw exc::win_sys_exc_t("DeviceIoControl fails or is pending.", code);
    }
}

/// Undoes what the device has written. Its status goes too, so that a control that fails without an answer isn't taken for
/// the same answer again.
void CScsiPassThrough::ResetForResend() {
    SCSI_PASS_THROUGH header = Header();
    header.ScsiStatus = 0;
    header.SenseInfoLength = sense_room;
    header.DataTransferLength = static_cast<std::uint32_t>(data_->size());
    StoreHeader(header);
}

void CScsiPassThrough::CheckScsiStatus(std::span<const std::uint8_t> sense, std::uint8_t status) const {
    if ((status & check_condition_bit) != 0) {
        const std::string decoded = DecodeSense(sense);
        if (decoded != unit_attention_line) {
            ThrowScsiError(decoded);
        }
        return;
    }
    if (status != 0) {
        // The pattern has no place for the status: the message is these words.
        throw exc::runtime_exc_t("[MT] SCSI ERROR: is", DecodeScsiStatus(status));
    }
}

void CScsiPassThrough::ThrowScsiError(const std::string& decoded) const {
    throw exc::runtime_exc_t(" [MT]SCSI PASS THROUGH %1 ended with Scsi Error %2", direct_ ? "DIRECT" : "INDIRECT", decoded);
}
