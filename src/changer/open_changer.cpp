#include "changer/open_changer.h"

#include <exception>

#include "changer/tape_variables.h"
#include "changer/unit_identity.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace {

bool is_valid(platform::device_handle device) {
    return device != platform::invalid_device && device != platform::invalid_device - 1;
}

}  // namespace

open_changer_t::open_changer_t(const wording& words, const std::string& link, std::uint16_t slot_portion,
                               const boost::shared_ptr<boost::mutex>& device_mutex)
    : mutex_(device_mutex),
      lock_(*mutex_),
      words_(words),
      link_(link),
      slot_portion_(slot_portion),
      not_ready_timeout_(read_not_ready_timeout()) {
    Open();
}

open_changer_t::~open_changer_t() {
    if (!is_valid(device_) || platform::system().devices->close_device(device_)) {
        return;
    }
    try {
        g_log.LogInfo(words_.not_closed, link_);
    } catch (const std::exception&) {
        return;  // a log that fails doesn't keep the device locked
    }
}

void open_changer_t::Open() {
    const std::int64_t began = platform::system().clock->seconds();
    device_ = platform::system().devices->open_device(link_);
    if (device_ != platform::invalid_device) {
        return;
    }
    const std::uint32_t code = exc::last_error();
    g_log.LogError("Can not open '%1' device for %2 seconds", link_, text::to_string(platform::system().clock->seconds() - began));
    platform::system().errors->set_last_error(code);
    const exc::xml_type_exc_t failure("CreateFile", words_.not_opened + link_);
    g_log.LogError(failure.xml());
    throw failure;
}

void open_changer_t::Close() {
    if (is_valid(device_)) {
        platform::system().devices->close_device(device_);
        device_ = platform::invalid_device;
    }
}

void open_changer_t::LogChangedTimeout() const {
    if (not_ready_timeout_ != default_not_ready_timeout) {
        g_log.LogInfo("Change tape device not ready time out to %1 sec.", text::to_string(not_ready_timeout_));
    }
}

platform::device_handle open_changer_t::EnsureDeviceHandle() const {
    if (!is_valid(device_)) {
        throw exc::win_sys_exc_t("Invalid device handle", exc::last_error());
    }
    return device_;
}

bool open_changer_t::Control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                             std::uint32_t& returned) const {
    return platform::system().devices->control(EnsureDeviceHandle(), code, input, output, returned);
}

bool open_changer_t::Query(std::uint32_t code, std::span<std::uint8_t> output) const {
    std::uint32_t returned = 0;
    if (Control(code, {}, output, returned)) {
        return true;
    }
    return exc::last_error() == platform::error::media_changed && Control(code, {}, output, returned);
}

std::u16string open_changer_t::SerialNumber() const {
    const platform::device_handle device = EnsureDeviceHandle();
    const std::u16string serial = ReadStoragePropertySerial(device, link_);
    return serial.empty() ? ReadUnitSerialPage(device, link_) : serial;
}

std::u16string open_changer_t::SymbolicLink() const {
    return text::ansi_to_wide(link_);
}
