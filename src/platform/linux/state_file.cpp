#include "platform/linux/state_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace platform::linux_os {

namespace {

/// What the service keeps is nobody else's to read.
constexpr unsigned private_file = 0600;

int write_and_sync(const std::string& path, const std::string& content) {
    descriptor file;
    if (const int failure = open_descriptor(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, private_file, file)) {
        return failure;
    }
    std::size_t count = 0;
    if (const int failure = write_all(file.get(), {reinterpret_cast<const std::uint8_t*>(content.data()), content.size()}, count)) {
        return failure;
    }
    return fsync(file.get()) == 0 ? 0 : errno;
}

}  // namespace

folder_lock::folder_lock(const std::string& folder) {
    failure_ = open_descriptor(folder, O_RDONLY | O_DIRECTORY, 0, folder_);
    while (failure_ == 0 && flock(folder_.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            failure_ = errno;
        }
    }
}

int replace_content(const std::string& path, const std::string& content) {
    const std::string prepared = path + ".new";
    int failure = write_and_sync(prepared, content);
    if (failure == 0 && rename(prepared.c_str(), path.c_str()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(prepared.c_str());
        return failure;
    }
    return sync_folder(folder_of(path));
}

}  // namespace platform::linux_os
