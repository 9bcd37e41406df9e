#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdint>
#include <span>
#include <string>

#include "changer/changer_interface.h"
#include "platform/devices.h"

/// The open device of a changer handle: the device's lock, its handle, and the limits read at its opening. Both backends have
/// one.
class open_changer_t {
public:
    /// Words in which the backends differ.
    struct wording {
        const char* not_opened;  ///< begins the service message of a failed opening; the link follows
        const char* not_closed;  ///< logged when closing fails
    };

    /// Locks the mutex, waiting without limit, and opens the device. Throws `exc::xml_type_exc_t` when it can't be opened.
    open_changer_t(const wording& words, const std::string& link, std::uint16_t slot_portion,
                   const boost::shared_ptr<boost::mutex>& device_mutex);
    /// Closes the device, then unlocks.
    ~open_changer_t();
    open_changer_t(const open_changer_t&) = delete;
    open_changer_t& operator=(const open_changer_t&) = delete;

    [[nodiscard]] const std::string& link() const { return link_; }
    [[nodiscard]] std::uint16_t slot_portion() const { return slot_portion_; }
    /// Seconds to wait for the device to become ready.
    [[nodiscard]] std::int64_t not_ready_timeout() const { return not_ready_timeout_; }

    /// The handle for a device call. Throws `exc::win_sys_exc_t` when there is none.
    [[nodiscard]] platform::device_handle EnsureDeviceHandle() const;
    /// Closes the device early; a failure isn't reported.
    void Close();
    /// Tells in the log when the time-out isn't the usual one.
    void LogChangedTimeout() const;

    /// One control on the ensured handle. False: the reason is in the last error.
    bool Control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                 std::uint32_t& returned) const;
    /// A control that only brings a record, repeated once when the medium has changed meanwhile. False: the reason is in the last
    /// error.
    bool Query(std::uint32_t code, std::span<std::uint8_t> output) const;

    /// Serial number: by the device's identifiers, else by the unit serial number page.
    [[nodiscard]] std::u16string SerialNumber() const;
    [[nodiscard]] std::u16string SymbolicLink() const;

private:
    void Open();

    boost::shared_ptr<boost::mutex> mutex_;
    boost::unique_lock<boost::mutex> lock_;
    wording words_;
    platform::device_handle device_ = platform::invalid_device;
    std::string link_;
    std::uint16_t slot_portion_;
    std::int64_t not_ready_timeout_;
};
