#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "platform/tape_functions.h"
#include "platform/tape_records.h"

namespace platform::testing {

/// One call of the tape functions.
struct tape_request {
    enum class kind { media_parameters, drive_parameters, prepare, set_position, erase, get_status };

    kind what = kind::get_status;
    device_handle device = 0;
    std::uint32_t number = 0;     ///< operation, method or type
    std::uint32_t size = 0;       ///< the size as it came in
    std::uint32_t partition = 0;  ///< set_position
    std::uint64_t offset = 0;     ///< set_position
    bool immediate = false;
};

/// Tape functions that answer as a test says. Every request is recorded. A queued status is used up first; with none left the
/// standing one of that kind holds, 0 unless set. A status other than 0 becomes the last error of the current system. Like the
/// strictest real system it refuses a size that came in smaller than the record with 234 and sets it right, once `strict_size` is
/// on.
class scripted_tape final : public tape_functions {
public:
    using kind = tape_request::kind;

    [[nodiscard]] std::uint32_t get_parameters(device_handle device, std::uint32_t operation, std::uint32_t& size,
                                               std::span<std::uint8_t> record) override;
    [[nodiscard]] std::uint32_t prepare(device_handle device, std::uint32_t operation, bool immediate) override;
    [[nodiscard]] std::uint32_t set_position(device_handle device, std::uint32_t method, std::uint32_t partition,
                                             std::uint64_t offset, bool immediate) override;
    [[nodiscard]] std::uint32_t erase(device_handle device, std::uint32_t type, bool immediate) override;
    [[nodiscard]] std::uint32_t get_status(device_handle device) override;

    /// Statuses for the next calls of this kind, in order.
    void queue(kind what, std::initializer_list<std::uint32_t> statuses);
    /// The status of every later call of this kind.
    void always(kind what, std::uint32_t status);
    void set_media(const TAPE_GET_MEDIA_PARAMETERS& media);
    void set_drive(const TAPE_GET_DRIVE_PARAMETERS& drive);
    void strict_size(bool on);

    [[nodiscard]] std::vector<tape_request> requests() const;
    [[nodiscard]] std::size_t count(kind what) const;

private:
    std::uint32_t answer(const tape_request& request);

    mutable std::mutex mutex_;
    std::map<kind, std::deque<std::uint32_t>> queued_;
    std::map<kind, std::uint32_t> standing_;
    TAPE_GET_MEDIA_PARAMETERS media_;
    TAPE_GET_DRIVE_PARAMETERS drive_;
    bool strict_size_ = false;
    std::vector<tape_request> requests_;
};

}  // namespace platform::testing
