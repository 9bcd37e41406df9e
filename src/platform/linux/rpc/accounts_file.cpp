#include "platform/linux/rpc/accounts_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "platform/linux/rpc/unicode.h"

namespace platform::linux_rpc {

namespace {

constexpr std::size_t largest_file = std::size_t{16} << 20;
constexpr mode_t owner_only = S_IRUSR | S_IWUSR;

class descriptor {
public:
    explicit descriptor(int number) : number_(number) {}
    ~descriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    [[nodiscard]] bool open() const { return number_ >= 0; }
    [[nodiscard]] int number() const { return number_; }

private:
    int number_;
};

[[noreturn]] void fail(const std::string& what, const std::string& path) {
    const int reason = errno;
    throw accounts_file_error(what + " '" + path + "': " + std::generic_category().message(reason) + ".");
}

/// O_NONBLOCK: a named pipe in the file's place must not hold the reader up.
int open_for_reading(const std::string& path) {
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

/// `expected`, the size that the file had: one allocation leaves no outgrown copies of the hashes behind.
std::string read_all(const descriptor& file, off_t expected, const std::string& path) {
    std::string text;
    text.reserve(std::min(static_cast<std::size_t>(expected), largest_file) + 1);
    std::array<char, 16384> portion{};
    for (;;) {
        const ssize_t count = ::read(file.number(), portion.data(), portion.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            fail("Cannot read the accounts file", path);
        }
        if (count == 0) {
            break;
        }
        text.append(portion.data(), static_cast<std::size_t>(count));
        if (text.size() > largest_file) {
            throw accounts_file_error("The accounts file '" + path + "' is larger than 16 MiB.");
        }
    }
    wipe({reinterpret_cast<std::uint8_t*>(portion.data()), portion.size()});
    return text;
}

void write_all(const descriptor& file, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t count = ::write(file.number(), text.data(), text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            fail("Cannot write", path);
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::string exposure_of(const struct stat& status, const std::string& path) {
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        return "The accounts file '" + path + "' belongs to user " + std::to_string(status.st_uid) +
               ", who could let in anybody; it has to belong to root or to the service's own user.";
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return "The accounts file '" + path + "' is open to other users than its owner; it has to have mode 0600.";
    }
    return {};
}

/// The path behind symbolic links, so that a link stays one when the file is replaced.
std::string resolve(const std::string& path) {
    char* const resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        return path;
    }
    std::string target(resolved);
    std::free(resolved);
    return target;
}

std::string folder_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

void sync_folder(const std::string& path) {
    const descriptor folder(::open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.open() || ::fsync(folder.number()) != 0) {
        fail("Cannot make the change durable of", path);
    }
}

bool same_state(const struct stat& left, const struct stat& right) {
    const auto same_time = [](const timespec& one, const timespec& other) {
        return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
    };
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino && left.st_size == right.st_size &&
           left.st_mode == right.st_mode && left.st_uid == right.st_uid && same_time(left.st_mtim, right.st_mtim) &&
           same_time(left.st_ctim, right.st_ctim);
}

}  // namespace

accounts_file::accounts_file(std::string path) : path_(std::move(path)) {}

accounts_file::contents accounts_file::read() const {
    const descriptor file(open_for_reading(path_));
    struct stat status {};
    if (!file.open() || ::fstat(file.number(), &status) != 0) {
        fail("Cannot open the accounts file", path_);
    }
    if (!S_ISREG(status.st_mode)) {
        throw accounts_file_error("The accounts file '" + path_ + "' is no regular file.");
    }
    std::string text = read_all(file, status.st_size, path_);
    try {
        contents found{account_table::parse(text), exposure_of(status, path_)};
        wipe(text);
        return found;
    } catch (const accounts_file_error& error) {
        wipe(text);
        throw accounts_file_error("Accounts file '" + path_ + "', " + error.what());
    }
}

void accounts_file::edit(const std::function<void(account_table&)>& change) const {
    const std::string lock_path = resolve(path_) + ".lock";
    const descriptor lock(::open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, owner_only));
    if (!lock.open()) {
        fail("Cannot open the lock file", lock_path);
    }
    while (::flock(lock.number(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            fail("Cannot lock", lock_path);
        }
    }
    account_table table;
    if (::access(path_.c_str(), F_OK) == 0) {
        table = read().table;
    } else if (errno != ENOENT) {
        fail("Cannot open the accounts file", path_);
    }
    change(table);
    std::string text = table.format();
    replace(text);
    wipe(text);
}

void accounts_file::replace(const std::string& text) const {
    const std::string target = resolve(path_);
    const std::string fresh = target + ".new";
    // What an editor that died left behind; the lock says that nobody writes it now.
    if (::unlink(fresh.c_str()) != 0 && errno != ENOENT) {
        fail("Cannot remove", fresh);
    }
    {
        const descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, owner_only));
        if (!file.open()) {
            fail("Cannot create", fresh);
        }
        // A service that runs under a user of its own keeps its file when root edits it.
        struct stat former {};
        const bool keeps_owner = ::stat(target.c_str(), &former) == 0 && former.st_uid != ::geteuid();
        if (keeps_owner && ::fchown(file.number(), former.st_uid, former.st_gid) != 0) {
            fail("Cannot give to its owner", fresh);
        }
        if (::fchmod(file.number(), owner_only) != 0) {
            fail("Cannot set the mode of", fresh);
        }
        write_all(file, text, fresh);
        if (::fsync(file.number()) != 0) {
            fail("Cannot write", fresh);
        }
    }
    if (::rename(fresh.c_str(), target.c_str()) != 0) {
        fail("Cannot replace the accounts file", target);
    }
    sync_folder(target);
}

live_accounts::live_accounts(std::string path, std::function<void(const std::string&)> report)
    : file_(std::move(path)), report_(std::move(report)), watch_(file_.path()) {}

std::uint64_t live_accounts::generation() {
    // In this order: whoever finds the watch settled already by another thread finds its flag, too, or its result.
    if (watch_.may_have_changed() || refreshing_) {
        const std::lock_guard lock(mutex_);
        refresh();
    }
    return generation_;
}

std::optional<account> live_accounts::find(std::u16string_view name) {
    const std::lock_guard lock(mutex_);
    refresh();
    const account* const found = table_.find(name);
    return found == nullptr ? std::nullopt : std::optional(*found);
}

void live_accounts::refresh() {
    class refreshing {
    public:
        explicit refreshing(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
        ~refreshing() { flag_ = false; }
        refreshing(const refreshing&) = delete;
        refreshing& operator=(const refreshing&) = delete;

    private:
        std::atomic<bool>& flag_;
    };
    const refreshing in_progress(refreshing_);
    const bool touched = watch_.settle();
    // The stamp is taken before the file is read: a change in between shows as a difference at the next look.
    struct stat status {};
    const std::optional<struct stat> now = ::stat(file_.path().c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
    const bool same = looked_ && !touched && now.has_value() == seen_.has_value() && (!now || same_state(*now, *seen_));
    if (same) {
        return;
    }
    ++generation_;
    looked_ = true;
    seen_ = now;
    table_ = account_table();
    try {
        accounts_file::contents read = file_.read();
        if (read.exposure.empty()) {
            table_ = std::move(read.table);
        } else {
            report_(read.exposure);
        }
    } catch (const accounts_file_error& error) {
        report_(error.what());
    }
}

}  // namespace platform::linux_rpc
