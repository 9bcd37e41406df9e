#include "platform/testing/scripted_devices.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/errors.h"
#include "platform/scsi_records.h"
#include "platform/system.h"

namespace platform::testing {

namespace {

constexpr std::string_view link_prefix = "\\\\.\\";

std::string folded(std::string_view name) {
    std::string text(name);
    for (char& unit : text) {
        if (unit >= 'A' && unit <= 'Z') {
            unit = static_cast<char>(unit + ('a' - 'A'));
        }
    }
    return text;
}

}  // namespace

device_answer answer_scsi(const device_request& request, std::uint8_t scsi_status, std::span<const std::uint8_t> sense,
                          std::span<const std::uint8_t> data) {
    const bool direct = request.what == device_request::kind::direct;
    auto header = util::load_record<SCSI_PASS_THROUGH>(request.input);
    const std::size_t sense_count = std::min<std::size_t>(sense.size(), header.SenseInfoLength);
    const std::size_t data_count = std::min<std::size_t>(data.size(), header.DataTransferLength);
    header.ScsiStatus = scsi_status;
    header.SenseInfoLength = static_cast<std::uint8_t>(sense_count);
    header.DataTransferLength = static_cast<std::uint32_t>(data_count);

    device_answer answer;
    answer.output = request.input;
    const std::size_t sense_end = header.SenseInfoOffset + sense_count;
    const std::size_t data_end = direct || data_count == 0 ? 0 : header.DataBufferOffset + data_count;
    answer.output.resize(std::max({answer.output.size(), sense_count == 0 ? 0 : sense_end, data_end}));
    const std::span<const std::uint8_t> head = util::record_bytes(header);
    std::copy(head.begin(), head.end(), answer.output.begin());
    std::copy_n(sense.begin(), sense_count, answer.output.begin() + header.SenseInfoOffset);
    if (direct) {
        answer.data.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(data_count));
        answer.returned = static_cast<std::uint32_t>(request.input.size());
    } else {
        std::copy_n(data.begin(), data_count, answer.output.begin() + header.DataBufferOffset);
        // Without data coming in, the port counts up to the end of the sense area.
        answer.returned = static_cast<std::uint32_t>(header.DataIn == SCSI_DATA_IN ? header.DataBufferOffset + data_count
                                                                                   : header.SenseInfoOffset + sense_count);
        answer.output.resize(std::min(answer.output.size(), request.output_size));
    }
    return answer;
}

std::vector<std::uint8_t> cdb_of(const device_request& request) {
    const auto header = util::load_record<SCSI_PASS_THROUGH>(request.input);
    return {header.Cdb, header.Cdb + std::min<std::size_t>(header.CdbLength, sizeof(header.Cdb))};
}

device_handle scripted_devices::open_device(const std::string& link_name) {
    open_handler handler;
    {
        const std::lock_guard lock(mutex_);
        device_request request;
        request.what = device_request::kind::open;
        request.link_name = link_name;
        requests_.push_back(std::move(request));
        if (!is_known(folded(link_name))) {
            refuse(error::file_not_found);
            return invalid_device;
        }
        handler = open_handler_;
    }
    const std::uint32_t refused = handler ? handler(link_name) : error::success;
    if (refused != error::success) {
        refuse(refused);
        return invalid_device;
    }
    const std::lock_guard lock(mutex_);
    next_ += 4;
    handles_[next_] = link_name;
    return next_;
}

/// By the name itself, or by a DOS name that leads to an object, over other names where their targets name such.
bool scripted_devices::is_known(std::string link) const {
    constexpr std::string_view own_name_space = "\\??\\";
    constexpr int longest_chain = 8;
    for (int step = 0; step < longest_chain; ++step) {
        if (devices_.contains(link)) {
            return true;
        }
        const auto dos_name = link.starts_with(link_prefix) ? dos_names_.find(link.substr(link_prefix.size())) : dos_names_.end();
        if (dos_name == dos_names_.end()) {
            return false;
        }
        const std::string target = folded(dos_name->second.back());
        if (!target.starts_with(own_name_space)) {
            return objects_.contains(target);
        }
        link = std::string(link_prefix) + target.substr(own_name_space.size());
    }
    return false;
}

bool scripted_devices::close_device(device_handle device) {
    const std::lock_guard lock(mutex_);
    device_request request;
    request.what = device_request::kind::close;
    request.handle = device;
    const auto found = handles_.find(device);
    request.link_name = found != handles_.end() ? found->second : std::string{};
    requests_.push_back(std::move(request));
    if (found == handles_.end()) {
        return refuse(error::invalid_handle);
    }
    handles_.erase(found);
    return true;
}

bool scripted_devices::control(device_handle device, std::uint32_t code, std::span<const std::uint8_t> input,
                               std::span<std::uint8_t> output, std::uint32_t& returned) {
    returned = 0;
    device_request request;
    request.what = device_request::kind::control;
    request.handle = device;
    request.code = code;
    request.input.assign(input.begin(), input.end());
    request.output_size = output.size();
    control_handler handler;
    std::deque<device_answer>* queue = nullptr;
    {
        const std::lock_guard lock(mutex_);
        const std::optional<std::string> link = link_of(device);
        request.link_name = link.value_or(std::string{});
        requests_.push_back(request);
        if (!link) {
            return refuse(error::invalid_handle);
        }
        if (code == ioctl::scsi_pass_through_direct) {
            return refuse(error::invalid_parameter);
        }
        handler = control_handler_;
        queue = &control_queue_[code];
    }
    const device_answer answer = next_answer(request, queue, handler);
    if (answer.error != error::success) {
        return refuse(answer.error);
    }
    if (answer.output.size() > output.size()) {
        return refuse(error::insufficient_buffer);
    }
    std::copy(answer.output.begin(), answer.output.end(), output.begin());
    returned = answer.returned.value_or(static_cast<std::uint32_t>(answer.output.size()));
    return true;
}

bool scripted_devices::pass_through_direct(device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                                           std::uint32_t& returned) {
    returned = 0;
    device_request request;
    request.what = device_request::kind::direct;
    request.handle = device;
    request.code = ioctl::scsi_pass_through_direct;
    request.input.assign(block.begin(), block.end());
    request.data.assign(data.begin(), data.end());
    request.output_size = data.size();
    control_handler handler;
    {
        const std::lock_guard lock(mutex_);
        const std::optional<std::string> link = link_of(device);
        request.link_name = link.value_or(std::string{});
        requests_.push_back(request);
        if (!link) {
            return refuse(error::invalid_handle);
        }
        handler = direct_handler_;
    }
    const device_answer answer = next_answer(request, &direct_queue_, handler);
    if (answer.error != error::success) {
        return refuse(answer.error);
    }
    if (answer.output.size() > block.size() || answer.data.size() > data.size()) {
        return refuse(error::insufficient_buffer);
    }
    std::copy(answer.output.begin(), answer.output.end(), block.begin());
    std::copy(answer.data.begin(), answer.data.end(), data.begin());
    returned = answer.returned.value_or(static_cast<std::uint32_t>(block.size()));
    return true;
}

bool scripted_devices::query_dos_device(const std::string& name, std::string& target) {
    const std::lock_guard lock(mutex_);
    device_request request;
    request.what = device_request::kind::query_dos_device;
    request.name = name;
    requests_.push_back(std::move(request));
    const auto found = dos_names_.find(folded(name));
    if (found == dos_names_.end()) {
        return refuse(error::file_not_found);
    }
    target = found->second.back();
    return true;
}

bool scripted_devices::define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) {
    const std::lock_guard lock(mutex_);
    device_request request;
    request.what = device_request::kind::define_dos_device;
    request.code = flags;
    request.name = name;
    request.target = target;
    requests_.push_back(std::move(request));
    if (define_error_ != 0) {
        return refuse(define_error_);
    }
    const std::string key = folded(name);
    const bool removes = (flags & dos_device::remove_definition) != 0;
    if (name.empty() || (!removes && target.empty())) {
        return refuse(error::invalid_parameter);
    }
    if (!removes) {
        // A target that isn't marked as raw is a path of the caller's own name space.
        dos_names_[key].push_back((flags & dos_device::raw_target_path) != 0 ? target : "\\??\\" + target);
        return true;
    }
    const auto found = dos_names_.find(key);
    if (found == dos_names_.end()) {
        return refuse(error::file_not_found);
    }
    found->second.pop_back();
    if (found->second.empty()) {
        dos_names_.erase(found);
    }
    return true;
}

void scripted_devices::add_device(const std::string& link_name) {
    const std::lock_guard lock(mutex_);
    devices_.insert(folded(link_name));
}

void scripted_devices::add_object(const std::string& object_name) {
    const std::lock_guard lock(mutex_);
    objects_.insert(folded(object_name));
}

void scripted_devices::remove_device(const std::string& link_name) {
    const std::lock_guard lock(mutex_);
    devices_.erase(folded(link_name));
}

void scripted_devices::on_open(open_handler handler) {
    const std::lock_guard lock(mutex_);
    open_handler_ = std::move(handler);
}

void scripted_devices::on_control(control_handler handler) {
    const std::lock_guard lock(mutex_);
    control_handler_ = std::move(handler);
}

void scripted_devices::on_direct(control_handler handler) {
    const std::lock_guard lock(mutex_);
    direct_handler_ = std::move(handler);
}

void scripted_devices::queue_control(std::uint32_t code, device_answer answer) {
    const std::lock_guard lock(mutex_);
    control_queue_[code].push_back(std::move(answer));
}

void scripted_devices::queue_direct(device_answer answer) {
    const std::lock_guard lock(mutex_);
    direct_queue_.push_back(std::move(answer));
}

void scripted_devices::set_dos_device(const std::string& name, const std::string& target) {
    const std::lock_guard lock(mutex_);
    dos_names_[folded(name)] = {target};
}

void scripted_devices::fail_define(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    define_error_ = error;
}

std::vector<device_request> scripted_devices::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<device_request> scripted_devices::requests(device_request::kind what) const {
    const std::lock_guard lock(mutex_);
    std::vector<device_request> chosen;
    std::copy_if(requests_.begin(), requests_.end(), std::back_inserter(chosen),
                 [what](const device_request& request) { return request.what == what; });
    return chosen;
}

void scripted_devices::forget_requests() {
    const std::lock_guard lock(mutex_);
    requests_.clear();
}

std::size_t scripted_devices::open_handles() const {
    const std::lock_guard lock(mutex_);
    return handles_.size();
}

std::size_t scripted_devices::unused_answers() const {
    const std::lock_guard lock(mutex_);
    std::size_t count = direct_queue_.size();
    for (const auto& [code, queue] : control_queue_) {
        count += queue.size();
    }
    return count;
}

bool scripted_devices::refuse(std::uint32_t error) {
    if (errors* const current = system().errors) {
        current->set_last_error(error);
    }
    return false;
}

std::optional<std::string> scripted_devices::link_of(device_handle device) const {
    const auto found = handles_.find(device);
    return found != handles_.end() ? std::optional<std::string>(found->second) : std::nullopt;
}

device_answer scripted_devices::next_answer(const device_request& request, std::deque<device_answer>* queue,
                                            const control_handler& handler) {
    {
        const std::lock_guard lock(mutex_);
        if (!queue->empty()) {
            device_answer answer = std::move(queue->front());
            queue->pop_front();
            return answer;
        }
    }
    if (handler) {
        return handler(request);
    }
    device_answer refused;
    refused.error = error::invalid_function;
    return refused;
}

}  // namespace platform::testing
