#include "platform/device_stack/io_manager.h"

#include <algorithm>

#include "platform/device_stack/changer_class.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/storage_port.h"
#include "platform/device_stack/tape_class.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace platform::device_stack {

namespace {

/// Handles are multiples of four, as callers of the real system know them.
constexpr device_handle handle_step = 4;
/// A chain of names that point at names ends somewhere.
constexpr int longest_chain = 8;
/// Folders of the object manager in which a DOS name's target may name another DOS name.
constexpr const char* name_folders[] = {"\\??\\", "\\dosdevices\\", "\\global??\\"};
constexpr const char* link_prefixes[] = {"\\\\.\\", "\\\\?\\"};

/// Leaves a failure in the last error; true for success.
bool succeeded(std::uint32_t code) {
    if (code != error::success) {
        system().errors->set_last_error(code);
    }
    return code == error::success;
}

std::optional<std::string> name_of_link(const std::string& link_name) {
    for (const std::string prefix : link_prefixes) {
        if (link_name.starts_with(prefix) && link_name.size() > prefix.size()) {
            return link_name.substr(prefix.size());
        }
    }
    return std::nullopt;
}

}  // namespace

io_manager::io_manager(std::vector<std::shared_ptr<scsi_source>> sources, const std::vector<std::string>& without_driver)
    : sources_(std::move(sources)), table_(without_driver), seen_(std::make_shared<look_result>(unit_list())) {}

io_manager::~io_manager() = default;

io_manager::look_result::look_result(unit_list found) : units(std::move(found)) {
    for (const unit& known : units) {
        if (!known.device_name.empty()) {
            by_device_name.emplace(fold_name(known.device_name), &known);
            by_class_object.emplace(fold_name(known.class_object), &known);
        }
        by_port_object.emplace(fold_name(known.port_object), &known);
    }
}

std::shared_ptr<const unit_list> io_manager::look() {
    const look_ptr seen = new_look();
    return {seen, &seen->units};
}

io_manager::look_ptr io_manager::new_look() {
    std::unique_lock lock(look_mutex_);
    // A look that is under way may have asked a source already, before what the caller wants to see was plugged in.
    const std::uint64_t wanted = looks_begun_ + 1;
    while (looks_done_ < wanted) {
        if (looking_) {
            look_done_.wait(lock);
        } else {
            look_once(lock);
        }
    }
    return seen_;
}

void io_manager::look_once(std::unique_lock<std::mutex>& lock) {
    struct ending {
        io_manager& manager;
        std::unique_lock<std::mutex>& lock;
        ~ending() {
            if (!lock.owns_lock()) {
                lock.lock();
            }
            manager.looking_ = false;
            manager.look_done_.notify_all();
        }
    };
    looking_ = true;
    const std::uint64_t number = ++looks_begun_;
    const ending at_end{*this, lock};
    lock.unlock();
    std::vector<std::vector<logical_unit_info>> found;
    found.reserve(sources_.size());
    for (const std::shared_ptr<scsi_source>& source : sources_) {
        found.push_back(source->enumerate());
    }
    look_ptr seen = std::make_shared<const look_result>(table_.name_units(found));
    lock.lock();
    seen_ = std::move(seen);
    looks_done_ = number;
}

io_manager::look_ptr io_manager::last_look() const {
    const std::lock_guard lock(look_mutex_);
    return seen_;
}

std::vector<device_map_leaf> io_manager::device_map() {
    std::vector<device_map_leaf> leaves;
    // Another look may let go of this one's result meanwhile.
    const std::shared_ptr<const unit_list> units = look();
    for (const unit& found : *units) {
        const bool is_tape = found.info.peripheral_type == peripheral_type::tape;
        leaves.push_back(
            {found.location, is_tape ? "TapePeripheral" : "MediumChangerPeripheral", found.device_name, found.info.serial});
    }
    return leaves;
}

std::optional<std::string> io_manager::built_in_target(const look_result& seen, const std::string& name) {
    const auto found = seen.by_device_name.find(fold_name(name));
    return found == seen.by_device_name.end() ? std::nullopt : std::optional(found->second->class_object);
}

std::optional<std::string> io_manager::object_of(const look_result& seen, std::string name) const {
    for (int step = 0; step < longest_chain; ++step) {
        std::optional<std::string> target = names_.target_of(name);
        if (!target) {
            target = built_in_target(seen, name);
        }
        if (!target) {
            return std::nullopt;
        }
        const std::string folded = fold_name(*target);
        const auto folder = std::find_if(std::begin(name_folders), std::end(name_folders),
                                         [&](const char* prefix) { return folded.starts_with(prefix); });
        if (folder == std::end(name_folders)) {
            return folded;
        }
        name = target->substr(std::string(*folder).size());
    }
    return std::nullopt;
}

std::shared_ptr<device_file> io_manager::open_object(const look_result& seen, const std::string& object,
                                                     std::uint32_t& failure) const {
    const auto by_class = seen.by_class_object.find(object);
    const bool has_class = by_class != seen.by_class_object.end();
    const auto by_port = seen.by_port_object.find(object);
    if (!has_class && by_port == seen.by_port_object.end()) {
        failure = error::file_not_found;
        return nullptr;
    }
    const unit& known = has_class ? *by_class->second : *by_port->second;
    failure = error::success;
    std::shared_ptr<scsi_transport> transport = sources_[known.source]->open(known.info.identity, failure);
    if (!transport) {
        failure = failure != error::success ? failure : error::file_not_found;
        return nullptr;
    }
    if (!has_class) {
        return std::make_shared<storage_port>(std::move(transport), known.location);
    }
    if (known.info.peripheral_type == peripheral_type::medium_changer) {
        return std::make_shared<changer_class>(std::move(transport), known.location, known.number);
    }
    return std::make_shared<tape_class>(std::move(transport), known.location, known.number);
}

device_handle io_manager::open_device(const std::string& link_name) {
    const std::optional<std::string> name = name_of_link(link_name);
    std::uint32_t failure = error::file_not_found;
    std::shared_ptr<device_file> opened;
    if (name) {
        look_ptr seen = last_look();
        std::optional<std::string> object = object_of(*seen, *name);
        opened = object ? open_object(*seen, *object, failure) : nullptr;
        if (!opened && failure == error::file_not_found) {
            // What the last look knew may be gone, and another device in its place.
            seen = new_look();
            object = object_of(*seen, *name);
            opened = object ? open_object(*seen, *object, failure) : nullptr;
        }
    }
    if (!opened) {
        succeeded(failure);
        return invalid_device;
    }
    const std::lock_guard lock(handle_mutex_);
    last_handle_ += handle_step;
    files_.emplace(last_handle_, std::move(opened));
    return last_handle_;
}

bool io_manager::close_device(device_handle device) {
    std::shared_ptr<device_file> closed;  // outlives the lock: closing may take its time
    const std::lock_guard lock(handle_mutex_);
    const auto found = files_.find(device);
    if (found == files_.end()) {
        return succeeded(error::invalid_handle);
    }
    closed = std::move(found->second);
    files_.erase(found);
    return true;
}

std::shared_ptr<device_file> io_manager::file_of(device_handle device) const {
    const std::lock_guard lock(handle_mutex_);
    const auto found = files_.find(device);
    return found == files_.end() ? nullptr : found->second;
}

bool io_manager::control(device_handle device, std::uint32_t code, std::span<const std::uint8_t> input,
                         std::span<std::uint8_t> output, std::uint32_t& returned) {
    returned = 0;
    const std::shared_ptr<device_file> opened = file_of(device);
    return succeeded(opened ? opened->control(code, input, output, returned) : error::invalid_handle);
}

bool io_manager::pass_through_direct(device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                                     std::uint32_t& returned) {
    returned = 0;
    const std::shared_ptr<device_file> opened = file_of(device);
    return succeeded(opened ? opened->pass_through_direct(block, data, returned) : error::invalid_handle);
}

bool io_manager::query_dos_device(const std::string& name, std::string& target) {
    std::optional<std::string> found = names_.target_of(name);
    if (!found) {
        found = built_in_target(*last_look(), name);
    }
    if (!found) {
        found = built_in_target(*new_look(), name);
    }
    if (!found) {
        return succeeded(error::file_not_found);
    }
    target = *found;
    return true;
}

bool io_manager::define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) {
    constexpr std::uint32_t known_flags = dos_device::raw_target_path | dos_device::remove_definition;
    if ((flags & ~known_flags) != 0 || name.empty()) {
        return succeeded(error::invalid_parameter);
    }
    if ((flags & dos_device::remove_definition) != 0) {
        if (names_.remove(name)) {
            return true;
        }
        // The names that the devices bear by themselves stay.
        return succeeded(built_in_target(*last_look(), name) ? error::access_denied : error::file_not_found);
    }
    if (target.empty()) {
        return succeeded(error::invalid_parameter);
    }
    names_.define(name, (flags & dos_device::raw_target_path) != 0 ? target : name_folders[0] + target);
    return true;
}

}  // namespace platform::device_stack
