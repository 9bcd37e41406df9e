#include "platform/linux/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/errors.h"
#include "platform/linux/share_locks.h"
#include "platform/overlapped_file.h"

namespace platform::linux_os {

namespace {

constexpr unsigned new_file_mode = 0640;
constexpr unsigned new_folder_mode = 0750;

/// The path for the kernel. Empty when it can't be one.
std::string native(const std::u16string& path) {
    std::string text = text::unicode::encode_utf8(path);
    return text.find('\0') == std::string::npos ? text : std::string{};
}

bool is_folder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// What a failed call on a path means: the kernel has one number for an absent file and an absent folder on the way to it.
std::uint32_t path_error(int number, const std::string& path) {
    if (number == ENOENT) {
        return is_folder(folder_of(path)) ? error::file_not_found : error::path_not_found;
    }
    return from_errno(number);
}

std::uint64_t nanoseconds_of(const timespec& time) {
    constexpr std::uint64_t nanoseconds_a_second = 1'000'000'000;
    // Before 1970 nobody wrote here.
    return time.tv_sec < 0
               ? 0
               : static_cast<std::uint64_t>(time.tv_sec) * nanoseconds_a_second + static_cast<std::uint64_t>(time.tv_nsec);
}

/// An operation that the kernel has carried out in one go: it has no pending ones for files that are worth the name.
class finished_operation final : public file_operation {
public:
    finished_operation(std::uint32_t outcome, std::size_t count) : outcome_(outcome), count_(count) {}

    std::uint32_t wait(std::size_t& count) override {
        count = count_;
        return outcome_;
    }

private:
    const std::uint32_t outcome_;
    const std::size_t count_;
};

enum class file_style : std::uint8_t { positioned, overlapped };

class linux_file final : public overlapped_file {
public:
    linux_file(descriptor opened, std::uint32_t access, file_style style, std::string folder_to_sync)
        : opened_(std::move(opened)), access_(access), style_(style), folder_to_sync_(std::move(folder_to_sync)) {}

    std::uint32_t read(std::span<std::uint8_t> data, std::size_t& count) override {
        count = 0;
        if (style_ == file_style::overlapped) {
            return error::invalid_parameter;
        }
        if ((access_ & file_access::read) == 0) {
            return error::access_denied;
        }
        ssize_t got = -1;
        do {
            got = ::read(opened_.get(), data.data(), data.size());
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            return from_errno(errno);
        }
        count = static_cast<std::size_t>(got);
        return error::success;
    }

    std::uint32_t write(std::span<const std::uint8_t> data, std::size_t& count) override {
        count = 0;
        if (style_ == file_style::overlapped) {
            return error::invalid_parameter;
        }
        return may_write() ? from_errno(write_all(opened_.get(), data, count)) : error::access_denied;
    }

    std::uint32_t seek(std::uint64_t position) override {
        if (position > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
            return error::invalid_parameter;
        }
        return lseek(opened_.get(), static_cast<off_t>(position), SEEK_SET) >= 0 ? error::success : from_errno(errno);
    }

    std::uint32_t size(std::uint64_t& bytes) override {
        struct stat status {};
        if (fstat(opened_.get(), &status) != 0) {
            return from_errno(errno);
        }
        bytes = static_cast<std::uint64_t>(status.st_size);
        return error::success;
    }

    std::uint32_t truncate_here() override {
        if (!may_write()) {
            return error::access_denied;
        }
        const off_t position = lseek(opened_.get(), 0, SEEK_CUR);
        return position >= 0 && ftruncate(opened_.get(), position) == 0 ? error::success : from_errno(errno);
    }

    std::uint32_t flush() override {
        if (!may_write()) {
            return error::access_denied;
        }
        // A pipe or a terminal has nothing to flush and says so.
        if (fsync(opened_.get()) != 0 && errno != EINVAL && errno != EROFS) {
            return from_errno(errno);
        }
        if (!folder_to_sync_.empty()) {
            if (const int failure = sync_folder(folder_to_sync_)) {
                return from_errno(failure);
            }
            folder_to_sync_.clear();
        }
        return error::success;
    }

    [[nodiscard]] std::uint64_t number() const override { return static_cast<std::uint64_t>(opened_.get()); }

    std::uint32_t begin_read(std::uint64_t offset, std::span<std::uint8_t> data, std::unique_ptr<file_operation>& begun) override {
        if ((access_ & file_access::read) == 0) {
            return error::access_denied;
        }
        if (!fits(offset, data.size())) {
            return error::invalid_parameter;
        }
        std::size_t count = 0;
        const std::uint32_t outcome = from_errno(read_all_at(opened_.get(), data, static_cast<off_t>(offset), count));
        begun = std::make_unique<finished_operation>(outcome, count);
        return error::success;
    }

    std::uint32_t begin_write(std::uint64_t offset, std::span<const std::uint8_t> data, wait_handle /*done*/,
                              std::unique_ptr<file_operation>& begun) override {
        if (!may_write()) {
            return error::access_denied;
        }
        if (!fits(offset, data.size())) {
            return error::invalid_parameter;
        }
        std::size_t count = 0;
        const std::uint32_t outcome = from_errno(write_all_at(opened_.get(), data, static_cast<off_t>(offset), count));
        begun = std::make_unique<finished_operation>(outcome, count);
        return error::success;
    }

    bool is_named(const std::u16string& path) override {
        struct stat own {};
        struct stat named {};
        if (fstat(opened_.get(), &own) != 0) {
            return true;
        }
        if (stat(native(path).c_str(), &named) != 0) {
            return errno != ENOENT && errno != ENOTDIR;
        }
        return own.st_dev == named.st_dev && own.st_ino == named.st_ino;
    }

private:
    [[nodiscard]] bool may_write() const { return (access_ & file_access::write) != 0; }
    [[nodiscard]] static bool fits(std::uint64_t offset, std::size_t size) {
        constexpr auto last = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
        return offset <= last && size <= last - offset;
    }

    descriptor opened_;
    const std::uint32_t access_;
    const file_style style_;
    /// Set while a new file's name isn't durable yet: its first flush has to see to that, too.
    std::string folder_to_sync_;
};

/// `O_CREAT` alone doesn't tell whether the file was new; it is tried exclusively first.
int open_or_create(const std::string& path, int flags, file_open_mode mode, descriptor& opened, bool& created) {
    created = false;
    if (mode != file_open_mode::create_new) {
        const int failure = open_descriptor(path, flags, 0, opened);
        if (failure != ENOENT || mode == file_open_mode::open_existing) {
            return failure;
        }
    }
    const int failure = open_descriptor(path, flags | O_CREAT | O_EXCL, new_file_mode, opened);
    created = failure == 0;
    if (failure == EEXIST && mode != file_open_mode::create_new) {
        // Somebody else made it in between, or the name is a link that leads nowhere yet.
        return open_descriptor(path, flags | O_CREAT, new_file_mode, opened);
    }
    return failure;
}

template <typename Opened>
std::uint32_t open_as(file_style style, const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                      std::unique_ptr<Opened>& opened) {
    const std::string name = native(path);
    if (name.empty()) {
        return path.empty() ? error::path_not_found : error::invalid_name;
    }
    // A writer's descriptor reads, too: the locks of the sharing need it.
    const int flags =
        ((access & file_access::write) != 0 ? O_RDWR : O_RDONLY) | ((access & file_access::append) != 0 ? O_APPEND : 0);
    descriptor number;
    bool created = false;
    if (const int failure = open_or_create(name, flags, mode, number, created)) {
        return failure == EEXIST && !is_folder(name) ? error::file_exists
               : failure == EEXIST                   ? error::access_denied
                                                     : path_error(failure, name);
    }
    struct stat status {};
    if (fstat(number.get(), &status) != 0) {
        return from_errno(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return error::access_denied;
    }
    if (S_ISREG(status.st_mode)) {
        if (const std::uint32_t refused = enter_sharing(number.get(), access, share)) {
            return refused;
        }
        if (mode == file_open_mode::create_always && ftruncate(number.get(), 0) != 0) {
            return from_errno(errno);
        }
    }
    opened = std::make_unique<linux_file>(std::move(number), access, style, created ? folder_of(name) : std::string{});
    return error::success;
}

}  // namespace

std::uint32_t linux_files::open_file(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                                     std::unique_ptr<file>& opened) {
    return open_as(file_style::positioned, path, access, share, mode, opened);
}

std::uint32_t linux_files::open_overlapped(const std::u16string& path, std::uint32_t access, std::uint32_t share,
                                           file_open_mode mode, std::unique_ptr<overlapped_file>& opened) {
    if ((access & file_access::append) != 0) {
        return error::invalid_parameter;  // the kernel would write at the end, whatever place is named
    }
    return open_as(file_style::overlapped, path, access, share, mode, opened);
}

std::uint32_t linux_files::look_up(const std::u16string& path, path_kind& kind) {
    const std::string name = native(path);
    if (name.empty()) {
        return path.empty() ? error::path_not_found : error::invalid_name;
    }
    struct stat status {};
    if (stat(name.c_str(), &status) == 0) {
        kind = S_ISDIR(status.st_mode) ? path_kind::folder : path_kind::file;
        return error::success;
    }
    if (errno == ENOENT || errno == ENOTDIR) {
        kind = path_kind::absent;
        return error::success;
    }
    return from_errno(errno);
}

bool linux_files::exists(const std::u16string& path) {
    struct stat status {};
    return stat(native(path).c_str(), &status) == 0;
}

std::uint32_t linux_files::create_folder(const std::u16string& path) {
    const std::string name = native(path);
    if (name.empty()) {
        return path.empty() ? error::path_not_found : error::invalid_name;
    }
    if (mkdir(name.c_str(), new_folder_mode) == 0) {
        return error::success;
    }
    return errno == ENOENT ? error::path_not_found : from_errno(errno);
}

std::uint32_t linux_files::remove_file(const std::u16string& path) {
    const std::string name = native(path);
    return unlink(name.c_str()) == 0 ? error::success : path_error(errno, name);
}

std::uint32_t linux_files::list_folder(const std::u16string& folder, const std::u16string& prefix, const std::u16string& suffix,
                                       std::vector<folder_entry>& entries) {
    const std::string place = native(folder);
    if (place.empty()) {
        return folder.empty() ? error::path_not_found : error::invalid_name;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(place.c_str()), closedir);
    if (listing == nullptr) {
        return errno == ENOENT || errno == ENOTDIR ? error::path_not_found : from_errno(errno);
    }
    const std::string front = native(prefix);
    const std::string back = native(suffix);
    std::vector<folder_entry> found;
    for (errno = 0; const dirent* entry = readdir(listing.get()); errno = 0) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == ".." || name.size() < front.size() + back.size() || !name.starts_with(front) ||
            !name.ends_with(back)) {
            continue;
        }
        struct stat status {};
        // What is gone by now isn't there.
        if (fstatat(dirfd(listing.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
            found.push_back({text::unicode::decode_utf8_lenient(name), nanoseconds_of(status.st_mtim)});
        }
    }
    if (errno != 0) {
        return from_errno(errno);
    }
    entries = std::move(found);
    return error::success;
}

std::uint32_t linux_files::rename_file(const std::u16string& from, const std::u16string& to) {
    const std::string old_name = native(from);
    const std::string new_name = native(to);
    if (renameat2(AT_FDCWD, old_name.c_str(), AT_FDCWD, new_name.c_str(), RENAME_NOREPLACE) == 0) {
        return error::success;
    }
    if (errno == EINVAL || errno == ENOSYS) {
        // The file system can't rename without replacing; a second name, then none of the first, refuses as well.
        if (link(old_name.c_str(), new_name.c_str()) == 0) {
            return unlink(old_name.c_str()) == 0 ? error::success : from_errno(errno);
        }
    }
    if (errno == ENOENT) {
        struct stat status {};
        return lstat(old_name.c_str(), &status) == 0 ? error::path_not_found : path_error(ENOENT, old_name);
    }
    return from_errno(errno);
}

std::uint32_t linux_files::rename_file_durably(const std::u16string& from, const std::u16string& to) {
    if (const std::uint32_t refused = rename_file(from, to)) {
        return refused;
    }
    return from_errno(sync_folder(folder_of(native(to))));
}

std::uint32_t linux_files::replace_file(const std::u16string& from, const std::u16string& to) {
    const std::string old_name = native(from);
    const std::string new_name = native(to);
    if (rename(old_name.c_str(), new_name.c_str()) != 0) {
        const int failure = errno;
        struct stat status {};
        return failure == ENOENT && lstat(old_name.c_str(), &status) == 0 ? error::path_not_found : path_error(failure, old_name);
    }
    if (const int failure = sync_folder(folder_of(new_name))) {
        return from_errno(failure);
    }
    if (folder_of(old_name) != folder_of(new_name)) {
        return from_errno(sync_folder(folder_of(old_name)));
    }
    return error::success;
}

std::uint32_t linux_files::temp_folder(std::u16string& folder) {
    const char* named = std::getenv("TMPDIR");
    std::string path = named != nullptr && *named != '\0' ? named : "/tmp";
    path.erase(path.find_last_not_of('/') + 1);
    folder = text::unicode::decode_utf8_lenient(path.empty() ? "/" : path);
    return error::success;
}

}  // namespace platform::linux_os
