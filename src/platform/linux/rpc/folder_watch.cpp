#include "platform/linux/rpc/folder_watch.h"

#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace platform::linux_rpc {

namespace {

using clock = std::chrono::steady_clock;

/// A change that reaches the file around its folder, such as a mount over it, shows after this long.
constexpr clock::duration longest_trust = std::chrono::seconds(1);

constexpr std::uint32_t watched_events = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE |
                                         IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
/// After these the watch tells nothing more, or not about the folder of that name.
constexpr std::uint32_t ending_events = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

/// Blocks of events, each with room for a hundred and more, that one look takes.
constexpr int most_blocks = 16;

/// File systems that nobody changes but this machine's kernel (XFS has no name in the header).
constexpr std::uint32_t xfs_magic = 0x58465342;
constexpr std::uint32_t local_file_systems[] = {EXT4_SUPER_MAGIC, BTRFS_SUPER_MAGIC, TMPFS_MAGIC, F2FS_SUPER_MAGIC, xfs_magic};

bool is_local(const std::string& folder) {
    struct statfs status {};
    return ::statfs(folder.c_str(), &status) == 0 &&
           std::find(std::begin(local_file_systems), std::end(local_file_systems), static_cast<std::uint32_t>(status.f_type)) !=
               std::end(local_file_systems);
}

std::string folder_of(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : file.substr(0, slash + 1);
}

std::string name_of(const std::string& file) {
    return file.substr(file.rfind('/') + 1);
}

}  // namespace

folder_watch::folder_watch(std::string file)
    : file_(std::move(file)), folder_(folder_of(file_)), name_(name_of(file_)), events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

folder_watch::~folder_watch() {
    if (events_ >= 0) {
        (void)::close(events_);
    }
}

bool folder_watch::may_have_changed() const {
    int waiting = 0;
    return !sees_.load(std::memory_order_acquire) ||
           clock::now().time_since_epoch().count() - settled_.load(std::memory_order_relaxed) > longest_trust.count() ||
           ioctl(events_, FIONREAD, &waiting) != 0 || waiting != 0;
}

/// A folder's name can come to mean another one without an event of either: by a link or a mount on the way to it.
bool folder_watch::watches_the_named_folder() const {
    struct stat status {};
    return watch_ >= 0 && ::stat(folder_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

void folder_watch::establish() {
    forget();
    // Looked up in this order, so that a change in between shows the next time.
    struct stat status {};
    if (events_ >= 0 && ::stat(folder_.c_str(), &status) == 0 && is_local(folder_)) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
        watch_ = inotify_add_watch(events_, folder_.c_str(), watched_events);
    }
}

void folder_watch::forget() {
    if (watch_ >= 0) {
        (void)inotify_rm_watch(events_, watch_);
        watch_ = -1;
    }
}

folder_watch::events_seen folder_watch::take_events() const {
    events_seen seen;
    alignas(inotify_event) std::array<char, 4096> block;
    ssize_t count = 1;
    for (int left = most_blocks; events_ >= 0 && count > 0; --left) {
        if (left == 0) {
            // Somebody writes faster than this reads. What is left shows the next time; the file may be among it.
            seen.touched = true;
            break;
        }
        count = read(events_, block.data(), block.size());
        for (ssize_t at = 0; at < count;) {
            inotify_event event{};
            std::memcpy(&event, block.data() + at, sizeof(event));
            // The name is filled up with zeros.
            const char* const name = block.data() + at + sizeof(event);
            seen.touched = seen.touched || (event.mask & IN_Q_OVERFLOW) != 0 || (event.len != 0 && name_ == name);
            // The end of an earlier watch is told, too, and means nothing to this one.
            seen.ended = seen.ended || (event.wd == watch_ && (event.mask & ending_events) != 0);
            at += static_cast<ssize_t>(sizeof(event) + event.len);
        }
    }
    return seen;
}

bool folder_watch::settle() {
    events_seen seen = take_events();
    const bool touched = seen.touched;
    if (seen.ended || !watches_the_named_folder()) {
        establish();
        seen = take_events();
        if (seen.ended) {
            forget();  // a folder that comes and goes: the next time may find it at rest
        }
    }
    // What a link leads to can change without its folder.
    struct stat status {};
    const bool is_link = ::lstat(file_.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    sees_.store(watch_ >= 0 && !is_link, std::memory_order_release);
    settled_.store(clock::now().time_since_epoch().count(), std::memory_order_relaxed);
    return touched || seen.touched;
}

}  // namespace platform::linux_rpc
