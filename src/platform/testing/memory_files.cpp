#include "platform/testing/memory_files.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/errors.h"

namespace platform::testing {

namespace {

constexpr std::uint64_t last_position = std::numeric_limits<std::int64_t>::max();

std::string parent_of(const std::string& path) {
    const std::size_t last = path.rfind('/');
    if (last == std::string::npos) {
        return {};
    }
    return last == 0 ? "/" : path.substr(0, last);
}

}  // namespace

/// An open file. What it does with contents is shared by its two styles; an operation at an offset may outlive the call that
/// began it, but not the file.
class memory_file final : public overlapped_file {
public:
    enum class style : std::uint8_t { positioned, overlapped };

    memory_file(memory_files& owner, std::uint64_t id, style opened_as) : owner_(owner), id_(id), style_(opened_as) {}
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    ~memory_file() override {
        const std::lock_guard lock(owner_.mutex_);
        owner_.open_.erase(id_);
    }

    std::uint32_t read(std::span<std::uint8_t> data, std::size_t& count) override {
        count = 0;
        if (style_ == style::overlapped) {
            return error::invalid_parameter;
        }
        const std::uint32_t outcome = read_at(position_, data, count);
        position_ += count;
        return outcome;
    }

    std::uint32_t write(std::span<const std::uint8_t> data, std::size_t& count) override {
        count = 0;
        if (style_ == style::overlapped) {
            return error::invalid_parameter;
        }
        position_ = write_position();
        const std::uint32_t outcome = write_at(position_, data, count);
        position_ += count;
        return outcome;
    }

    std::uint32_t seek(std::uint64_t position) override {
        memory_files::file_data* target = nullptr;
        if (const std::uint32_t refused = begin(memory_files::operation::seek, 0, target)) {
            return refused;
        }
        if (position > last_position) {
            return error::invalid_parameter;
        }
        position_ = position;
        return error::success;
    }

    std::uint32_t size(std::uint64_t& bytes) override {
        memory_files::file_data* target = nullptr;
        if (const std::uint32_t refused = begin(memory_files::operation::size, 0, target)) {
            return refused;
        }
        const std::lock_guard lock(owner_.mutex_);
        bytes = target->content.size();
        return error::success;
    }

    std::uint32_t truncate_here() override {
        memory_files::file_data* target = nullptr;
        if (const std::uint32_t refused = begin(memory_files::operation::truncate, file_access::write, target)) {
            return refused;
        }
        const std::lock_guard lock(owner_.mutex_);
        target->content.resize(static_cast<std::size_t>(position_));
        target->changed = ++owner_.changes_;
        return error::success;
    }

    std::uint32_t flush() override {
        memory_files::file_data* target = nullptr;
        if (const std::uint32_t refused = begin(memory_files::operation::flush, file_access::write, target)) {
            return refused;
        }
        const std::lock_guard lock(owner_.mutex_);
        const auto named = owner_.present_.find(target->path);
        if (named != owner_.present_.end() && named->second.get() == target) {
            owner_.durable_[target->path] = named->second;
            target->durable_content = target->content;
        }
        return error::success;
    }

    [[nodiscard]] std::uint64_t number() const override { return id_; }

    std::uint32_t begin_read(std::uint64_t offset, std::span<std::uint8_t> data, std::unique_ptr<file_operation>& begun) override {
        return start(offset, data.size(), file_access::read, begun,
                     [this, offset, data](std::size_t& count) { return read_at(offset, data, count); });
    }

    std::uint32_t begin_write(std::uint64_t offset, std::span<const std::uint8_t> data, wait_handle /*done*/,
                              std::unique_ptr<file_operation>& begun) override {
        return start(offset, data.size(), file_access::write, begun,
                     [this, offset, data](std::size_t& count) { return write_at(offset, data, count); });
    }

    bool is_named(const std::u16string& path) override {
        const std::lock_guard lock(owner_.mutex_);
        const auto own = owner_.open_.find(id_);
        const auto named = owner_.present_.find(owner_.normal(path));
        return own == owner_.open_.end() || (named != owner_.present_.end() && named->second == own->second.data);
    }

private:
    using work = std::function<std::uint32_t(std::size_t&)>;

    /// Carried out when it is begun, or, while operations are to be pending, when somebody waits for it.
    class operation final : public file_operation {
    public:
        operation(work what, bool pending) : what_(std::move(what)) {
            if (!pending) {
                outcome_ = what_(count_);
                what_ = nullptr;
            }
        }

        std::uint32_t wait(std::size_t& count) override {
            if (what_) {
                outcome_ = std::exchange(what_, nullptr)(count_);
            }
            count = count_;
            return outcome_;
        }

    private:
        work what_;
        std::uint32_t outcome_ = error::success;
        std::size_t count_ = 0;
    };

    /// A dead handle, or missing access. To be called under the owner's lock, where what is found stays.
    std::uint32_t find_entry(std::uint32_t needed, const memory_files::open_entry*& entry) const {
        const auto found = owner_.open_.find(id_);
        if (found == owner_.open_.end()) {
            return error::invalid_handle;
        }
        entry = &found->second;
        return (entry->access & needed) == needed ? error::success : error::access_denied;
    }

    std::uint32_t start(std::uint64_t offset, std::size_t size, std::uint32_t needed, std::unique_ptr<file_operation>& begun,
                        work what) {
        bool pending = false;
        {
            const std::lock_guard lock(owner_.mutex_);
            const memory_files::open_entry* entry = nullptr;
            if (const std::uint32_t refused = find_entry(needed, entry)) {
                return refused;
            }
            pending = owner_.pending_;
        }
        if (offset > last_position || size > last_position - offset) {
            return error::invalid_parameter;
        }
        begun = std::make_unique<operation>(std::move(what), pending);
        return pending ? error::io_pending : error::success;
    }

    [[nodiscard]] std::uint64_t write_position() const {
        const std::lock_guard lock(owner_.mutex_);
        const auto found = owner_.open_.find(id_);
        return found != owner_.open_.end() && found->second.appends ? found->second.data->content.size() : position_;
    }

    std::uint32_t read_at(std::uint64_t offset, std::span<std::uint8_t> data, std::size_t& count) {
        count = 0;
        memory_files::file_data* target = nullptr;
        if (const std::uint32_t refused = begin(memory_files::operation::read, file_access::read, target)) {
            return refused;
        }
        const std::lock_guard lock(owner_.mutex_);
        const std::string& content = target->content;
        if (offset < content.size()) {
            count = std::min({data.size(), content.size() - static_cast<std::size_t>(offset), owner_.most_moved_});
            std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(offset), count, data.begin());
        }
        return error::success;
    }

    std::uint32_t write_at(std::uint64_t offset, std::span<const std::uint8_t> data, std::size_t& count) {
        count = 0;
        memory_files::file_data* target = nullptr;
        if (const std::uint32_t refused = begin(memory_files::operation::write, file_access::write, target)) {
            return refused;
        }
        const std::lock_guard lock(owner_.mutex_);
        const auto at = static_cast<std::size_t>(offset);
        const std::size_t present = target->content.size();
        const std::size_t wanted = std::min(data.size(), owner_.most_moved_);
        std::size_t room = wanted;
        if (owner_.free_bytes_) {
            const std::size_t overwritten = present > at ? present - at : 0;
            room = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, overwritten + *owner_.free_bytes_));
        }
        if (room > 0) {
            const std::size_t end = std::max(present, at + room);
            if (owner_.free_bytes_) {
                *owner_.free_bytes_ -= std::min<std::uint64_t>(*owner_.free_bytes_, end - present);
            }
            target->content.resize(end);
            std::copy_n(data.begin(), room, target->content.begin() + static_cast<std::ptrdiff_t>(at));
            target->writes.emplace_back(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(room));
            target->changed = ++owner_.changes_;
        }
        count = room;
        return room == wanted ? error::success : error::disk_full;
    }

    /// The failures that every operation can meet, in the order a system finds them: a dead handle, missing access, the
    /// device's own.
    std::uint32_t begin(memory_files::operation what, std::uint32_t needed, memory_files::file_data*& target) {
        std::string path;
        {
            const std::lock_guard lock(owner_.mutex_);
            const memory_files::open_entry* entry = nullptr;
            if (const std::uint32_t refused = find_entry(needed, entry)) {
                return refused;
            }
            target = entry->data.get();
            path = target->path;
        }
        return owner_.failure(what, path);
    }

    memory_files& owner_;
    const std::uint64_t id_;
    const style style_;
    std::uint64_t position_ = 0;
};

memory_files::memory_files(char16_t separator)
    : separator_(separator),
      system_folder_(separator == u'\\' ? u"C:\\Windows\\System32" : u"/usr/bin"),
      common_data_folder_(separator == u'\\' ? u"C:\\ProgramData" : u"/var/log") {
    folders_.insert(separator == u'\\' ? "C:" : "/");
    add_folders(normal(system_folder_));
    add_folders(normal(common_data_folder_));
    add_folders(separator == u'\\' ? "C:/Temp" : "/tmp");
}

std::uint32_t memory_files::open_file(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                                      std::unique_ptr<file>& opened) {
    std::uint64_t id = 0;
    const std::uint32_t refused = enter(path, access, share, mode, id);
    if (refused == error::success) {
        opened = std::make_unique<memory_file>(*this, id, memory_file::style::positioned);
    }
    return refused;
}

std::uint32_t memory_files::open_overlapped(const std::u16string& path, std::uint32_t access, std::uint32_t share,
                                            file_open_mode mode, std::unique_ptr<overlapped_file>& opened) {
    if ((access & file_access::append) != 0) {
        return error::invalid_parameter;
    }
    std::uint64_t id = 0;
    const std::uint32_t refused = enter(path, access, share, mode, id);
    if (refused == error::success) {
        opened = std::make_unique<memory_file>(*this, id, memory_file::style::overlapped);
    }
    return refused;
}

std::uint32_t memory_files::enter(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                                  std::uint64_t& id) {
    const std::string name = normal(path);
    if (const std::uint32_t refused = failure(operation::open, name)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (name.empty()) {
        return error::path_not_found;
    }
    if (folders_.contains(name)) {
        return error::access_denied;
    }
    const auto found = present_.find(name);
    if (found == present_.end()) {
        if (mode == file_open_mode::open_existing || !parent_exists(name)) {
            return missing(name);
        }
    } else if (mode == file_open_mode::create_new) {
        return error::file_exists;
    }
    std::shared_ptr<file_data> data = found != present_.end() ? found->second : std::make_shared<file_data>();
    const bool appends = (access & file_access::append) != 0;
    access &= file_access::read | file_access::write;
    for (const auto& [other_id, other] : open_) {
        if (other.data == data && ((access & ~other.share) != 0 || (other.access & ~share) != 0)) {
            return error::sharing_violation;
        }
    }
    data->path = name;
    if (found == present_.end() || mode == file_open_mode::create_always) {
        data->changed = ++changes_;
    }
    present_[name] = data;
    if (mode == file_open_mode::create_always) {
        data->content.clear();
        data->writes.clear();
    }
    id = ++next_open_;
    open_[id] = {std::move(data), access, share, appends};
    return error::success;
}

std::uint32_t memory_files::look_up(const std::u16string& path, path_kind& kind) {
    const std::string name = normal(path);
    if (const std::uint32_t refused = failure(operation::look_up, name)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (name.empty()) {
        return error::path_not_found;
    }
    kind = folders_.contains(name) ? path_kind::folder : present_.contains(name) ? path_kind::file : path_kind::absent;
    return error::success;
}

std::uint32_t memory_files::temp_folder(std::u16string& folder) {
    if (temp_folder_error_ == error::success) {
        folder = separator_ == u'\\' ? u"C:\\Temp" : u"/tmp";
    }
    return temp_folder_error_;
}

bool memory_files::exists(const std::u16string& path) {
    const std::lock_guard lock(mutex_);
    const std::string name = normal(path);
    return present_.contains(name) || folders_.contains(name);
}

std::uint32_t memory_files::create_folder(const std::u16string& path) {
    const std::string name = normal(path);
    if (const std::uint32_t refused = failure(operation::create_folder, name)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (present_.contains(name) || folders_.contains(name)) {
        return error::already_exists;
    }
    if (name.empty() || !parent_exists(name)) {
        return error::path_not_found;
    }
    folders_.insert(name);
    return error::success;
}

std::uint32_t memory_files::remove_file(const std::u16string& path) {
    const std::string name = normal(path);
    if (const std::uint32_t refused = failure(operation::remove, name)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (folders_.contains(name)) {
        return error::access_denied;
    }
    if (!present_.contains(name)) {
        return missing(name);
    }
    if (in_use(name)) {
        return error::sharing_violation;
    }
    present_.erase(name);
    return error::success;
}

std::uint32_t memory_files::list_folder(const std::u16string& folder, const std::u16string& prefix, const std::u16string& suffix,
                                        std::vector<folder_entry>& entries) {
    const std::string place = normal(folder);
    if (const std::uint32_t refused = failure(operation::list, place)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (!folders_.contains(place)) {
        return error::path_not_found;
    }
    std::vector<folder_entry> found;
    const auto take = [&](const std::string& path, std::uint64_t changed) {
        const std::u16string name = text::unicode::decode_utf8_lenient(std::string_view(path).substr(path.rfind('/') + 1));
        if (parent_of(path) == place && name.size() >= prefix.size() + suffix.size() && name.starts_with(prefix) &&
            name.ends_with(suffix)) {
            found.push_back({name, changed});
        }
    };
    for (const auto& [path, data] : present_) {
        take(path, data->changed);
    }
    for (const std::string& path : folders_) {
        take(path, 0);
    }
    entries = std::move(found);
    return error::success;
}

std::uint32_t memory_files::rename_file(const std::u16string& from, const std::u16string& to) {
    const std::string old_name = normal(from);
    const std::string new_name = normal(to);
    if (const std::uint32_t refused = failure(operation::rename, old_name)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t refused = lacking(old_name, new_name)) {
        return refused;
    }
    if (present_.contains(new_name) || folders_.contains(new_name)) {
        return error::already_exists;
    }
    if (in_use(old_name)) {
        return error::sharing_violation;
    }
    give_name(old_name, new_name);
    return error::success;
}

std::uint32_t memory_files::rename_file_durably(const std::u16string& from, const std::u16string& to) {
    if (const std::uint32_t refused = rename_file(from, to)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    make_names_durable(parent_of(normal(to)));
    return error::success;
}

std::uint32_t memory_files::replace_file(const std::u16string& from, const std::u16string& to) {
    const std::string old_name = normal(from);
    const std::string new_name = normal(to);
    if (const std::uint32_t refused = failure(operation::replace, old_name)) {
        return refused;
    }
    const std::lock_guard lock(mutex_);
    if (const std::uint32_t refused = lacking(old_name, new_name)) {
        return refused;
    }
    if (folders_.contains(new_name)) {
        return error::access_denied;
    }
    if (in_use(old_name) || in_use(new_name)) {
        return error::sharing_violation;
    }
    give_name(old_name, new_name);
    // The change of the name is durable; bytes that were never flushed are not, and leave a file without them.
    durable_[new_name] = present_[new_name];
    durable_.erase(old_name);
    return error::success;
}

void memory_files::put(std::string_view path, std::string_view content) {
    const std::lock_guard lock(mutex_);
    const std::string name = normal_utf8(path);
    add_folders(parent_of(name));
    auto data = std::make_shared<file_data>();
    data->content = content;
    data->durable_content = content;
    data->path = name;
    data->changed = ++changes_;
    durable_[name] = data;
    present_[name] = std::move(data);
}

void memory_files::set_written(std::string_view path, std::uint64_t time) {
    const std::lock_guard lock(mutex_);
    present_.at(normal_utf8(path))->changed = time;
}

void memory_files::add_folder(std::string_view path) {
    const std::lock_guard lock(mutex_);
    add_folders(normal_utf8(path));
}

std::optional<std::string> memory_files::content(std::string_view path) const {
    const std::lock_guard lock(mutex_);
    const auto found = present_.find(normal_utf8(path));
    return found != present_.end() ? std::optional<std::string>(found->second->content) : std::nullopt;
}

std::vector<std::string> memory_files::writes(std::string_view path) const {
    const std::lock_guard lock(mutex_);
    const auto found = present_.find(normal_utf8(path));
    return found != present_.end() ? found->second->writes : std::vector<std::string>{};
}

std::vector<std::string> memory_files::paths() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [name, data] : present_) {
        std::string shown = name;
        std::replace(shown.begin(), shown.end(), '/', static_cast<char>(separator_));
        names.push_back(std::move(shown));
    }
    return names;
}

std::size_t memory_files::open_count() const {
    const std::lock_guard lock(mutex_);
    return open_.size();
}

void memory_files::set_free_bytes(std::optional<std::uint64_t> bytes) {
    const std::lock_guard lock(mutex_);
    free_bytes_ = bytes;
}

void memory_files::set_pending(bool pending) {
    const std::lock_guard lock(mutex_);
    pending_ = pending;
}

void memory_files::set_most_moved(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    most_moved_ = bytes;
}

void memory_files::set_failure(failure_hook hook) {
    const std::lock_guard lock(mutex_);
    failure_ = std::move(hook);
}

void memory_files::lose_power() {
    const std::lock_guard lock(mutex_);
    open_.clear();
    present_.clear();
    for (auto& [name, durable] : durable_) {
        auto data = std::make_shared<file_data>();
        data->content = durable->durable_content;
        data->durable_content = durable->durable_content;
        data->path = name;
        durable = data;
        present_[name] = std::move(data);
    }
}

void memory_files::unlink(std::string_view path) {
    const std::lock_guard lock(mutex_);
    const auto found = present_.find(normal_utf8(path));
    if (found != present_.end()) {
        found->second->path.clear();
        present_.erase(found);
    }
}

/// With the mutex held.
void memory_files::make_names_durable(const std::string& folder) {
    std::erase_if(durable_, [&](const auto& entry) { return parent_of(entry.first) == folder; });
    for (const auto& [name, data] : present_) {
        if (parent_of(name) == folder) {
            durable_[name] = data;
        }
    }
}

/// One form for every spelling of a path: slashes, none at the end.
std::string memory_files::normal(std::u16string_view path) const {
    return normal_utf8(text::unicode::encode_utf8(path));
}

std::string memory_files::normal_utf8(std::string_view path) const {
    std::string name(path);
    if (separator_ == u'\\') {
        std::replace(name.begin(), name.end(), '\\', '/');
    }
    while (name.size() > 1 && name.back() == '/') {
        name.pop_back();
    }
    return name;
}

bool memory_files::parent_exists(const std::string& path) const {
    // A drive stands in no folder: it is there, or nothing makes it.
    const bool is_drive = separator_ == u'\\' && path.size() == 2 && path[1] == ':';
    const std::string parent = parent_of(path);
    return parent.empty() ? !is_drive : folders_.contains(parent);
}

bool memory_files::in_use(const std::string& path) const {
    return std::any_of(open_.begin(), open_.end(), [&path](const auto& entry) { return entry.second.data->path == path; });
}

std::uint32_t memory_files::failure(operation what, const std::string& path) {
    failure_hook hook;
    {
        const std::lock_guard lock(mutex_);
        hook = failure_;
    }
    std::string shown = path;
    std::replace(shown.begin(), shown.end(), '/', static_cast<char>(separator_));
    return hook ? hook(what, shown) : error::success;
}

void memory_files::add_folders(const std::string& path) {
    if (!path.empty() && folders_.insert(path).second) {
        add_folders(parent_of(path));
    }
}

std::uint32_t memory_files::missing(const std::string& path) const {
    return parent_exists(path) ? error::file_not_found : error::path_not_found;
}

std::uint32_t memory_files::lacking(const std::string& old_name, const std::string& new_name) const {
    if (!present_.contains(old_name)) {
        return missing(old_name);
    }
    return parent_exists(new_name) ? error::success : error::path_not_found;
}

void memory_files::give_name(const std::string& old_name, const std::string& new_name) {
    std::shared_ptr<file_data> data = present_[old_name];
    present_.erase(old_name);
    data->path = new_name;
    present_[new_name] = std::move(data);
}

}  // namespace platform::testing
