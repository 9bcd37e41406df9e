#include "platform/testing/memory_registry.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/errors.h"

namespace platform::testing {

namespace {

/// The rights within the access masks that count here.
constexpr std::uint32_t right_query = 0x1;
constexpr std::uint32_t right_set = 0x2;
constexpr std::uint32_t right_create_subkey = 0x4;
constexpr std::uint32_t right_enumerate = 0x8;

std::u16string wide(std::string_view utf8) {
    return text::unicode::decode_utf8_lenient(utf8);
}

std::vector<std::uint8_t> little_endian(std::uint64_t number, std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(number & 0xFF);
        number >>= 8;
    }
    return bytes;
}

std::vector<std::uint8_t> terminated_units(std::string_view utf8) {
    std::vector<std::uint8_t> bytes;
    for (const char16_t unit : wide(utf8) + u'\0') {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return bytes;
}

/// Components of a path; empty ones don't count.
std::vector<std::u16string> components(const std::u16string& path) {
    std::vector<std::u16string> parts;
    std::u16string part;
    for (const char16_t unit : path + u'\\') {
        if (unit != u'\\') {
            part.push_back(unit);
        } else if (!part.empty()) {
            parts.push_back(std::exchange(part, {}));
        }
    }
    return parts;
}

/// Makes letters compare as upper-case ones: those of ASCII sort in front of '_', the others by their lower-case form.
char16_t sort_unit(char16_t unit) {
    const char16_t folded = text::unicode::to_lower(unit);
    return folded >= u'a' && folded <= u'z' ? static_cast<char16_t>(folded - 32) : folded;
}

}  // namespace

bool memory_registry::upper_case_order::operator()(const std::u16string& left, const std::u16string& right) const {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char16_t a, char16_t b) { return sort_unit(a) < sort_unit(b); });
}

memory_registry::memory_registry() : root_(std::make_shared<node>()) {}

std::uint32_t memory_registry::open_key(const std::u16string& path, std::uint32_t access, registry_key& key) {
    const std::lock_guard lock(mutex_);
    if (open_error_ != 0) {
        return open_error_;
    }
    std::shared_ptr<node> target = find(path, false);
    if (!target) {
        return error::file_not_found;
    }
    if (read_only_ && (access & (right_set | right_create_subkey)) != 0) {
        return error::access_denied;
    }
    return take_handle(std::move(target), access, key);
}

std::uint32_t memory_registry::create_key(const std::u16string& path, std::uint32_t access, registry_key& key) {
    const std::lock_guard lock(mutex_);
    if (create_error_ != 0) {
        return create_error_;
    }
    if (read_only_) {
        return error::access_denied;
    }
    return take_handle(find(path, true), access, key);
}

void memory_registry::close_key(registry_key key) {
    const std::lock_guard lock(mutex_);
    handles_.erase(key);
}

std::uint32_t memory_registry::query_value(registry_key key, const std::u16string& name, std::uint32_t& type,
                                           std::vector<std::uint8_t>& data) {
    const std::lock_guard lock(mutex_);
    open_handle handle;
    if (const std::uint32_t refused = check(key, right_query, handle)) {
        return refused;
    }
    if (query_error_ != 0) {
        return query_error_;
    }
    const auto found = handle.target->values.find(name);
    if (found == handle.target->values.end()) {
        return error::file_not_found;
    }
    type = found->second.type;
    data = found->second.data;
    return error::success;
}

std::uint32_t memory_registry::set_value(registry_key key, const std::u16string& name, std::uint32_t type,
                                         const std::vector<std::uint8_t>& data) {
    const std::lock_guard lock(mutex_);
    open_handle handle;
    if (const std::uint32_t refused = check(key, right_set, handle)) {
        return refused;
    }
    if (set_error_ != 0) {
        return set_error_;
    }
    if (read_only_) {
        return error::access_denied;
    }
    handle.target->values[name] = {type, data};
    return error::success;
}

std::uint32_t memory_registry::longest_subkey(registry_key key, std::size_t& units) {
    const std::lock_guard lock(mutex_);
    open_handle handle;
    if (const std::uint32_t refused = check(key, right_query, handle)) {
        return refused;
    }
    units = 0;
    for (const auto& [child_name, child] : handle.target->children) {
        units = std::max(units, child_name.size());
    }
    return error::success;
}

std::uint32_t memory_registry::enumerate_subkey(registry_key key, std::uint32_t index, std::u16string& name) {
    const std::lock_guard lock(mutex_);
    open_handle handle;
    if (const std::uint32_t refused = check(key, right_enumerate, handle)) {
        return refused;
    }
    if (enumerate_error_ != 0) {
        return enumerate_error_;
    }
    if (index >= handle.target->children.size()) {
        return error::no_more_items;
    }
    name = std::next(handle.target->children.begin(), static_cast<std::ptrdiff_t>(index))->first;
    return error::success;
}

void memory_registry::add_key(std::string_view path) {
    const std::lock_guard lock(mutex_);
    static_cast<void>(find(wide(path), true));
}

void memory_registry::set_dword(std::string_view path, std::string_view name, std::uint32_t value) {
    set_raw(path, name, registry_type::dword, little_endian(value, 4));
}

void memory_registry::set_qword(std::string_view path, std::string_view name, std::uint64_t value) {
    set_raw(path, name, registry_type::qword, little_endian(value, 8));
}

void memory_registry::set_string(std::string_view path, std::string_view name, std::string_view value) {
    set_raw(path, name, registry_type::string, terminated_units(value));
}

void memory_registry::set_expand_string(std::string_view path, std::string_view name, std::string_view value) {
    set_raw(path, name, registry_type::expand_string, terminated_units(value));
}

void memory_registry::set_raw(std::string_view path, std::string_view name, std::uint32_t type, std::vector<std::uint8_t> data) {
    const std::lock_guard lock(mutex_);
    find(wide(path), true)->values[wide(name)] = {type, std::move(data)};
}

void memory_registry::remove_value(std::string_view path, std::string_view name) {
    const std::lock_guard lock(mutex_);
    if (const std::shared_ptr<node> target = find(wide(path), false)) {
        target->values.erase(wide(name));
    }
}

void memory_registry::remove_key(std::string_view path) {
    const std::lock_guard lock(mutex_);
    std::vector<std::u16string> parts = components(wide(path));
    if (parts.empty()) {
        return;
    }
    const std::u16string last = std::move(parts.back());
    parts.pop_back();
    std::u16string parent_path;
    for (const std::u16string& part : parts) {
        parent_path += part + u'\\';
    }
    const std::shared_ptr<node> parent = find(parent_path, false);
    if (!parent) {
        return;
    }
    const auto child = parent->children.find(last);
    if (child != parent->children.end()) {
        child->second->removed = true;
        parent->children.erase(child);
    }
}

std::optional<std::string> memory_registry::string_at(std::string_view path, std::string_view name) {
    const std::lock_guard lock(mutex_);
    const std::shared_ptr<node> target = find(wide(path), false);
    if (!target) {
        return std::nullopt;
    }
    const auto found = target->values.find(wide(name));
    if (found == target->values.end() ||
        (found->second.type != registry_type::string && found->second.type != registry_type::expand_string)) {
        return std::nullopt;
    }
    const std::vector<std::uint8_t>& data = found->second.data;
    std::u16string units;
    for (std::size_t at = 0; at + 1 < data.size(); at += 2) {
        units.push_back(static_cast<char16_t>(data[at] | (data[at + 1] << 8)));
    }
    return text::unicode::encode_utf8(std::u16string_view(units).substr(0, units.find(u'\0')));
}

bool memory_registry::has_key(std::string_view path) {
    const std::lock_guard lock(mutex_);
    return find(wide(path), false) != nullptr;
}

std::size_t memory_registry::open_keys() const {
    const std::lock_guard lock(mutex_);
    return handles_.size();
}

void memory_registry::set_read_only(bool read_only) {
    const std::lock_guard lock(mutex_);
    read_only_ = read_only;
}

void memory_registry::fail_open(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    open_error_ = error;
}

void memory_registry::fail_create(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    create_error_ = error;
}

void memory_registry::fail_query(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    query_error_ = error;
}

void memory_registry::fail_set(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    set_error_ = error;
}

void memory_registry::fail_enumerate(std::uint32_t error) {
    const std::lock_guard lock(mutex_);
    enumerate_error_ = error;
}

std::shared_ptr<memory_registry::node> memory_registry::find(const std::u16string& path, bool make) {
    std::shared_ptr<node> at = root_;
    for (const std::u16string& part : components(path)) {
        auto child = at->children.find(part);
        if (child == at->children.end()) {
            if (!make) {
                return nullptr;
            }
            child = at->children.emplace(part, std::make_shared<node>()).first;
        }
        at = child->second;
    }
    return at;
}

std::uint32_t memory_registry::take_handle(std::shared_ptr<node> target, std::uint32_t access, registry_key& key) {
    next_ += 4;
    handles_[next_] = {std::move(target), access};
    key = next_;
    return error::success;
}

std::uint32_t memory_registry::check(registry_key key, std::uint32_t right, open_handle& handle) {
    const auto found = handles_.find(key);
    if (found == handles_.end()) {
        return error::invalid_handle;
    }
    constexpr std::uint32_t key_deleted = 1018;
    if (found->second.target->removed) {
        return key_deleted;
    }
    if ((found->second.access & right) == 0) {
        return error::access_denied;
    }
    handle = found->second;
    return error::success;
}

}  // namespace platform::testing
