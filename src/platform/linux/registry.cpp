#include "platform/linux/registry.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <set>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/errors.h"
#include "platform/linux/errors.h"
#include "platform/linux/linux_settings.h"
#include "platform/linux/settings_file.h"
#include "platform/linux/state_file.h"

namespace platform::linux_os {

namespace {

/// The rights within the access masks that count here.
constexpr std::uint32_t right_query = 0x1;
constexpr std::uint32_t right_set = 0x2;
constexpr std::uint32_t right_enumerate = 0x8;
constexpr std::uint32_t write_rights = 0x6;

constexpr std::uint32_t key_deleted = 1018;
constexpr std::size_t max_key_name = 255;
constexpr std::size_t max_value_name = 16383;

const std::vector<std::u16string> device_map_root{u"HARDWARE", u"DEVICEMAP", u"Scsi"};

bool same_name(std::u16string_view left, std::u16string_view right) {
    const name_order before;
    return !before(left, right) && !before(right, left);
}

/// Everything below the device map's first component belongs to it.
bool is_device_path(const std::vector<std::u16string>& path) {
    return !path.empty() && same_name(path.front(), device_map_root.front());
}

/// Whether a name can stand in the file and be read back as it is.
bool is_storable(const std::u16string& name, std::size_t longest) {
    std::u16string back;
    return name.size() <= longest && std::none_of(name.begin(), name.end(), [](char16_t unit) { return unit < 0x20; }) &&
           text::unicode::decode_utf8(text::unicode::encode_utf8(name), back) && back == name;
}

/// Whether a key's line in the file would seem to end within the name, at a bracket that looks like the last one before a comment.
bool looks_commented(const std::u16string& name) {
    for (std::size_t at = name.find(u']'); at != std::u16string::npos; at = name.find(u']', at + 1)) {
        const std::size_t next = name.find_first_not_of(u" \t", at + 1);
        if (next != std::u16string::npos && name[next] == u';') {
            return true;
        }
    }
    return false;
}

settings_key device_map_tree(const std::vector<device_stack::device_map_leaf>& leaves) {
    settings_key tree;
    make_key(tree, device_map_root);
    const auto numbered = [](const char16_t* prefix, std::uint8_t number) {
        return prefix + text::unicode::decode_utf8_lenient(std::to_string(number));
    };
    for (const device_stack::device_map_leaf& leaf : leaves) {
        std::vector<std::u16string> path = device_map_root;
        path.push_back(numbered(u"Scsi Port ", leaf.location.port));
        path.push_back(numbered(u"Scsi Bus ", leaf.location.path));
        path.push_back(numbered(u"Target Id ", leaf.location.target));
        path.push_back(numbered(u"Logical Unit Id ", leaf.location.lun));
        settings_key& key = make_key(tree, path);
        const auto put = [&key](const char16_t* name, const std::string& text) {
            if (!text.empty()) {
                key.values[name] = text_value(registry_type::string, text::unicode::decode_utf8_lenient(text));
            }
        };
        put(u"Type", leaf.type);
        put(u"DeviceName", leaf.device_name);
        put(u"SerialNumber", leaf.serial_number);
    }
    return tree;
}

/// The device map's place is not the administrator's to fill.
void refuse_device_keys(const watched_settings& file) {
    const auto found = file.content().keys.find(device_map_root.front());
    if (found != file.content().keys.end()) {
        throw settings_error(file.path(), found->second.line,
                             "Keys below HARDWARE are made from the devices; a file can't set them.");
    }
}

}  // namespace

linux_registry::linux_registry(const options& from)
    : state_folder_(from.state_folder),
      settings_(from.settings_file, from.settings_required),
      state_(from.state_folder.empty() ? std::string{} : from.state_folder + "/state.reg", false) {
    settings_.load();
    refuse_device_keys(settings_);
    state_.load();
    check_secret();
}

void linux_registry::set_device_map(device_map_source source) {
    const std::lock_guard lock(mutex_);
    device_map_ = std::move(source);
}

void linux_registry::set_warning_handler(warning_handler handler) {
    {
        const std::lock_guard lock(mutex_);
        warning_handler_ = std::move(handler);
    }
    deliver_warnings();
}

std::uint32_t linux_registry::open_key(const std::u16string& path, std::uint32_t access, registry_key& key) {
    open_handle handle{path_components(path), access, nullptr};
    if (is_device_path(handle.path)) {
        handle.devices = look_at_devices(handle.path);
        if (find_key(*handle.devices, handle.path) == nullptr) {
            return error::file_not_found;
        }
        if ((access & write_rights) != 0) {
            return error::access_denied;
        }
        const std::lock_guard lock(mutex_);
        return take_handle(std::move(handle), key);
    }
    std::uint32_t result = error::file_not_found;
    {
        const std::lock_guard lock(mutex_);
        refresh();
        if (exists(handle.path)) {
            const bool refused = (access & write_rights) != 0 && state_folder_.empty();
            result = refused ? error::access_denied : take_handle(std::move(handle), key);
        }
    }
    deliver_warnings();
    return result;
}

std::uint32_t linux_registry::create_key(const std::u16string& path, std::uint32_t access, registry_key& key) {
    open_handle handle{path_components(path), access, nullptr};
    if (is_device_path(handle.path)) {
        return error::access_denied;
    }
    if (!std::all_of(handle.path.begin(), handle.path.end(),
                     [](const std::u16string& part) { return is_storable(part, max_key_name) && !looks_commented(part); })) {
        return error::invalid_parameter;
    }
    std::uint32_t result = error::success;
    {
        const std::lock_guard lock(mutex_);
        refresh();
        if (!exists(handle.path) || state_folder_.empty()) {
            result = change_state([&handle](settings_key& state) {
                make_key(state, handle.path);
                return true;
            });
        }
        if (result == error::success) {
            result = take_handle(std::move(handle), key);
        }
    }
    deliver_warnings();
    return result;
}

void linux_registry::close_key(registry_key key) {
    const std::lock_guard lock(mutex_);
    handles_.erase(key);
}

std::uint32_t linux_registry::query_value(registry_key key, const std::u16string& name, std::uint32_t& type,
                                          std::vector<std::uint8_t>& data) {
    std::uint32_t result = error::file_not_found;
    {
        const std::lock_guard lock(mutex_);
        refresh();
        open_handle handle;
        if (const std::uint32_t refused = find_handle(key, right_query, handle)) {
            return refused;
        }
        for (const settings_key* tree : trees_of(handle)) {
            const settings_key* const target = find_key(*tree, handle.path);
            if (target == nullptr) {
                continue;
            }
            const auto found = target->values.find(name);
            if (found != target->values.end()) {
                type = found->second.type;
                data = found->second.data;
                result = error::success;
                break;
            }
        }
    }
    deliver_warnings();
    return result;
}

std::uint32_t linux_registry::set_value(registry_key key, const std::u16string& name, std::uint32_t type,
                                        const std::vector<std::uint8_t>& data) {
    std::uint32_t result = error::success;
    {
        const std::lock_guard lock(mutex_);
        refresh();
        open_handle handle;
        if (const std::uint32_t refused = find_handle(key, right_set, handle)) {
            return refused;
        }
        if (handle.path.empty() || !is_storable(name, max_value_name)) {
            return error::invalid_parameter;
        }
        result = change_state([&](settings_key& state) {
            settings_value& stored = make_key(state, handle.path).values[name];
            const settings_value wanted{type, data};
            const bool changes = stored != wanted;
            stored = wanted;
            return changes;
        });
    }
    deliver_warnings();
    return result;
}

std::uint32_t linux_registry::longest_subkey(registry_key key, std::size_t& units) {
    const std::lock_guard lock(mutex_);
    refresh();
    open_handle handle;
    if (const std::uint32_t refused = find_handle(key, right_query, handle)) {
        return refused;
    }
    units = 0;
    for (const std::u16string& name : subkeys_of(handle)) {
        units = std::max(units, name.size());
    }
    return error::success;
}

std::uint32_t linux_registry::enumerate_subkey(registry_key key, std::uint32_t index, std::u16string& name) {
    const std::lock_guard lock(mutex_);
    refresh();
    open_handle handle;
    if (const std::uint32_t refused = find_handle(key, right_enumerate, handle)) {
        return refused;
    }
    std::shared_ptr<const std::vector<std::u16string>> names = handle.device_names;
    if (!names) {
        names = std::make_shared<const std::vector<std::u16string>>(subkeys_of(handle));
        if (handle.devices) {
            handles_[key].device_names = names;
        }
    }
    if (index >= names->size()) {
        return error::no_more_items;
    }
    name = (*names)[index];
    return error::success;
}

std::vector<std::u16string> linux_registry::subkeys_of(const open_handle& handle) const {
    std::set<std::u16string, name_order> names;
    for (const settings_key* tree : trees_of(handle)) {
        if (const settings_key* const target = find_key(*tree, handle.path)) {
            for (const auto& [child_name, child] : target->keys) {
                names.insert(child_name);
            }
        }
    }
    if (handle.path.empty()) {
        names.insert(device_map_root.front());
    }
    return {names.begin(), names.end()};
}

/// What a key is made of, the first that has a value before the others. A file has no say in the device map, not even one that
/// was changed after the start.
std::vector<const settings_key*> linux_registry::trees_of(const open_handle& handle) const {
    if (handle.devices) {
        return {handle.devices.get()};
    }
    return {&state_.content(), &settings_.content()};
}

std::uint64_t linux_registry::settings_loads() const {
    const std::lock_guard lock(mutex_);
    return settings_.loads();
}

/// A walk opens the map's root, keeps it open and goes down from there on one thread: its deeper opens share the look that the
/// root's open took, or one walk would ask the devices once for each of them. Another thread's look is no use to it: a device that
/// was unplugged between the two would be gone in the middle of the walk.
linux_registry::device_look linux_registry::look_at_devices(const path_type& path) {
    device_map_source source;
    {
        const std::lock_guard lock(mutex_);
        if (path.size() > device_map_root.size()) {
            const auto own = looks_.find(std::this_thread::get_id());
            if (device_look shared = own == looks_.end() ? nullptr : own->second.lock()) {
                return shared;
            }
        }
        source = device_map_;
    }
    device_look fresh =
        std::make_shared<const settings_key>(device_map_tree(source ? source() : std::vector<device_stack::device_map_leaf>{}));
    const std::lock_guard lock(mutex_);
    std::erase_if(looks_, [](const auto& look) { return look.second.expired(); });
    looks_[std::this_thread::get_id()] = fresh;
    return fresh;
}

std::uint32_t linux_registry::take_handle(open_handle handle, registry_key& key) {
    next_ += 4;
    handles_.emplace(next_, std::move(handle));
    key = next_;
    return error::success;
}

std::uint32_t linux_registry::find_handle(registry_key key, std::uint32_t right, open_handle& handle) const {
    const auto found = handles_.find(key);
    if (found == handles_.end()) {
        return error::invalid_handle;
    }
    if (!found->second.devices && !exists(found->second.path)) {
        return key_deleted;
    }
    if ((found->second.access & right) == 0) {
        return error::access_denied;
    }
    handle = found->second;
    return error::success;
}

bool linux_registry::exists(const path_type& path) const {
    return find_key(state_.content(), path) != nullptr || find_key(settings_.content(), path) != nullptr;
}

void linux_registry::refresh() {
    const watched_settings::warn warn = [this](const std::string& text) { warnings_.push_back(text); };
    settings_.refresh(warn);
    state_.refresh(warn);
    check_secret();
}

/// An initiator's password in a file that everybody reads protects nothing.
void linux_registry::check_secret() {
    if (std::exchange(secret_checked_at_, settings_.loads()) == settings_.loads() || !settings_.readable_by_all()) {
        return;
    }
    const settings_key* const devices = find_key(settings_.content(), path_components(devices_key));
    if (devices == nullptr) {
        return;
    }
    const auto found = devices->values.find(std::u16string_view(u"Iscsi"));
    if (found != devices->values.end() && holds_iscsi_secret(text::unicode::encode_utf8(value_text(found->second)))) {
        warnings_.push_back(settings_.path() +
                            ": The file holds an iSCSI secret and can be read by every user of this machine. Take that right away "
                            "(chmod o-r).");
    }
}

/// `change` says whether it changed anything.
std::uint32_t linux_registry::change_state(const std::function<bool(settings_key& state)>& change) {
    if (state_folder_.empty()) {
        return error::access_denied;
    }
    const folder_lock lock(state_folder_);
    if (lock.failure() != 0) {
        return from_errno(lock.failure());
    }
    // Another process may have written meanwhile.
    state_.refresh([this](const std::string& text) { warnings_.push_back(text); });
    settings_key changed = state_.content();
    if (!change(changed)) {
        return error::success;
    }
    if (const int failure = replace_content(state_.path(), format_settings(changed))) {
        return from_errno(failure);
    }
    state_.adopt(std::move(changed));
    return error::success;
}

void linux_registry::deliver_warnings() {
    warning_handler handler;
    std::vector<std::string> due;
    {
        const std::lock_guard lock(mutex_);
        if (!warning_handler_ || warnings_.empty()) {
            return;
        }
        handler = warning_handler_;
        due.swap(warnings_);
    }
    for (const std::string& text : due) {
        handler(text);
    }
}

}  // namespace platform::linux_os
