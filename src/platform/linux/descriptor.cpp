#include "platform/linux/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace platform::linux_os {

namespace {

/// Moves so many bytes, in as many steps as the system likes. `step`: moves some of those behind the first `done`. `at_end`: the
/// answer when nothing can be moved any more.
template <typename Step>
int move_all(std::size_t size, std::size_t& done, int at_end, Step step) {
    done = 0;
    while (done < size) {
        const ssize_t moved = step(done);
        if (moved < 0 && errno != EINTR) {
            return errno;
        }
        if (moved == 0) {
            return at_end;
        }
        done += moved > 0 ? static_cast<std::size_t>(moved) : 0;
    }
    return 0;
}

}  // namespace

void descriptor::reset() {
    if (number_ >= 0) {
        close(number_);
        number_ = -1;
    }
}

int open_descriptor(const std::string& path, int flags, unsigned mode, descriptor& opened) {
    int number = -1;
    do {
        number = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, mode);
    } while (number < 0 && errno == EINTR);
    if (number < 0) {
        return errno;
    }
    opened = descriptor(number);
    return 0;
}

int write_all(int number, std::span<const std::uint8_t> data, std::size_t& count) {
    return move_all(data.size(), count, ENOSPC,
                    [=](std::size_t done) { return write(number, data.data() + done, data.size() - done); });
}

int write_all_at(int number, std::span<const std::uint8_t> data, std::int64_t offset, std::size_t& count) {
    return move_all(data.size(), count, ENOSPC, [=](std::size_t done) {
        return pwrite(number, data.data() + done, data.size() - done, offset + static_cast<std::int64_t>(done));
    });
}

int read_all_at(int number, std::span<std::uint8_t> data, std::int64_t offset, std::size_t& count) {
    return move_all(data.size(), count, 0, [=](std::size_t done) {
        return pread(number, data.data() + done, data.size() - done, offset + static_cast<std::int64_t>(done));
    });
}

int read_all(int number, std::size_t limit, std::string& content) {
    content.clear();
    std::array<char, 65536> block{};
    while (true) {
        const ssize_t count = read(number, block.data(), block.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count == 0) {
            return 0;
        }
        if (count > 0) {
            content.append(block.data(), static_cast<std::size_t>(count));
        }
        if (content.size() > limit) {
            return EFBIG;
        }
    }
}

int sync_folder(const std::string& folder) {
    descriptor opened;
    if (const int failure = open_descriptor(folder, O_RDONLY | O_DIRECTORY, 0, opened)) {
        return failure;
    }
    // A file system that has nothing to sync for a folder says so; that is no failure.
    return fsync(opened.get()) == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : errno;
}

std::string folder_of(const std::string& path) {
    const std::size_t last = path.rfind('/');
    if (last == std::string::npos) {
        return ".";
    }
    return last == 0 ? "/" : path.substr(0, last);
}

}  // namespace platform::linux_os
