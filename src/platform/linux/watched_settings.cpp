#include "platform/linux/watched_settings.h"

#include <fcntl.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/linux/errors.h"
#include "platform/linux/settings_file.h"

namespace platform::linux_os {

namespace {

/// Far beyond what anybody writes by hand; keeps a slip such as a device's name from filling the memory.
constexpr std::size_t max_file_size = std::size_t{16} << 20;

/// The kernel's stamps move in ticks of up to 10 ms.
constexpr std::int64_t stamp_grain = 50'000'000;

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::int64_t wall_clock_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return nanoseconds(now);
}

std::string reason_of(int number) {
    std::string text = linux_errors{}.system_text(from_errno(number)).value_or("");
    text.erase(text.find_last_not_of("\r\n") + 1);
    return text;
}

}  // namespace

watched_settings::watched_settings(std::string path, bool required) : path_(std::move(path)), required_(required) {}

void watched_settings::load() {
    if (!path_.empty()) {
        read();
    }
}

void watched_settings::refresh(const warn& warning) {
    if (path_.empty()) {
        return;
    }
    const stamp seen = look();
    if (seen == stamp_ && settled_) {
        return;
    }
    if (!seen.present && stamp_.present) {
        take_stamp(seen);
        warning(path_ + ": The file is gone. What was read from it before stays in force.");
        return;
    }
    if (!seen.present) {
        return;
    }
    try {
        read();
    } catch (const settings_error& e) {
        const bool told = seen == stamp_;
        take_stamp(seen);
        if (!told) {
            warning(std::string(e.what()) + " What was read from the file before stays in force.");
        }
    }
}

void watched_settings::adopt(settings_key content) {
    content_ = std::move(content);
    take_stamp(look());
}

watched_settings::stamp watched_settings::to_stamp(const struct stat& status) {
    return {true,
            status.st_dev,
            status.st_ino,
            status.st_size,
            status.st_mode,
            nanoseconds(status.st_mtim),
            nanoseconds(status.st_ctim)};
}

watched_settings::stamp watched_settings::look() const {
    struct stat status {};
    return stat(path_.c_str(), &status) == 0 ? to_stamp(status) : stamp{};
}

void watched_settings::take_stamp(const stamp& seen) {
    stamp_ = seen;
    settled_ = !seen.present || wall_clock_now() - seen.changed > stamp_grain;
}

void watched_settings::read() {
    descriptor file;
    const int failure = open_descriptor(path_, O_RDONLY, 0, file);
    if (failure == ENOENT && !required_ && loads_ == 0) {
        return;
    }
    if (failure == ENOENT) {
        throw settings_error(path_, 0, "There is no such file.");
    }
    if (failure != 0) {
        throw settings_error(path_, 0, "The file can't be opened: " + reason_of(failure));
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw settings_error(path_, 0, "This is no file.");
    }
    std::string bytes;
    if (const int failed = read_all(file.get(), max_file_size, bytes)) {
        throw settings_error(path_, 0,
                             failed == EFBIG ? "The file is larger than 16 MB." : "The file can't be read: " + reason_of(failed));
    }
    content_ = parse_settings(bytes, path_);
    ++loads_;
    take_stamp(to_stamp(status));
}

}  // namespace platform::linux_os
