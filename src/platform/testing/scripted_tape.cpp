#include "platform/testing/scripted_tape.h"

#include <algorithm>
#include <cstring>

#include "platform/errors.h"
#include "platform/system.h"

namespace platform::testing {

std::uint32_t scripted_tape::answer(const tape_request& request) {
    std::uint32_t status = error::success;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        std::deque<std::uint32_t>& queue = queued_[request.what];
        if (queue.empty()) {
            status = standing_[request.what];
        } else {
            status = queue.front();
            queue.pop_front();
        }
    }
    if (status != error::success) {
        system().errors->set_last_error(status);
    }
    return status;
}

std::uint32_t scripted_tape::get_parameters(device_handle device, std::uint32_t operation, std::uint32_t& size,
                                            std::span<std::uint8_t> record) {
    const bool media = operation == GET_TAPE_MEDIA_INFORMATION;
    tape_request request;
    request.what = media ? kind::media_parameters : kind::drive_parameters;
    request.device = device;
    request.number = operation;
    request.size = size;
    std::uint32_t status = answer(request);
    const std::lock_guard lock(mutex_);
    constexpr std::size_t record_size = sizeof(TAPE_GET_MEDIA_PARAMETERS);
    static_assert(record_size == sizeof(TAPE_GET_DRIVE_PARAMETERS));
    if (status == error::success && (record.size() < record_size || (strict_size_ && size < record_size))) {
        status = error::more_data;
        system().errors->set_last_error(status);
    }
    size = static_cast<std::uint32_t>(record_size);
    if (status == error::success) {
        std::memcpy(record.data(), media ? static_cast<const void*>(&media_) : &drive_, record_size);
    }
    return status;
}

std::uint32_t scripted_tape::prepare(device_handle device, std::uint32_t operation, bool immediate) {
    return answer({kind::prepare, device, operation, 0, 0, 0, immediate});
}

std::uint32_t scripted_tape::set_position(device_handle device, std::uint32_t method, std::uint32_t partition, std::uint64_t offset,
                                          bool immediate) {
    return answer({kind::set_position, device, method, 0, partition, offset, immediate});
}

std::uint32_t scripted_tape::erase(device_handle device, std::uint32_t type, bool immediate) {
    return answer({kind::erase, device, type, 0, 0, 0, immediate});
}

std::uint32_t scripted_tape::get_status(device_handle device) {
    return answer({kind::get_status, device, 0, 0, 0, 0, false});
}

void scripted_tape::queue(kind what, std::initializer_list<std::uint32_t> statuses) {
    const std::lock_guard lock(mutex_);
    queued_[what].insert(queued_[what].end(), statuses);
}

void scripted_tape::always(kind what, std::uint32_t status) {
    const std::lock_guard lock(mutex_);
    standing_[what] = status;
}

void scripted_tape::set_media(const TAPE_GET_MEDIA_PARAMETERS& media) {
    const std::lock_guard lock(mutex_);
    media_ = media;
}

void scripted_tape::set_drive(const TAPE_GET_DRIVE_PARAMETERS& drive) {
    const std::lock_guard lock(mutex_);
    drive_ = drive;
}

void scripted_tape::strict_size(bool on) {
    const std::lock_guard lock(mutex_);
    strict_size_ = on;
}

std::vector<tape_request> scripted_tape::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::size_t scripted_tape::count(kind what) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(requests_.begin(), requests_.end(), [&](const tape_request& request) { return request.what == what; }));
}

}  // namespace platform::testing
