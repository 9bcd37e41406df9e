#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace platform::linux_rpc {

/// Tells for the price of one small system call whether a file may have changed, so that its time stamp needn't be looked up for
/// each call. The kernel notes a change before the one who makes it goes on, so an answer is never behind the file. Where the
/// kernel can't know (network file systems, links), the answer is always that it may have; and so it is once a second anyhow.
class folder_watch {
public:
    explicit folder_watch(std::string file);
    ~folder_watch();
    folder_watch(const folder_watch&) = delete;
    folder_watch& operator=(const folder_watch&) = delete;

    /// Whether something may have happened to the file since `settle` began. Callable from any thread.
    [[nodiscard]] bool may_have_changed() const;
    /// Begins to watch anew. By one thread at a time, before the file is looked at. True: something is known to have happened to
    /// the file since the last time, whatever its time stamp says, which two quick changes can have in common.
    bool settle();

private:
    struct events_seen {
        bool touched = false;  ///< something has happened to the file, or may have
        bool ended = false;    ///< the watch tells nothing more, or not about the folder of that name
    };
    [[nodiscard]] events_seen take_events() const;
    [[nodiscard]] bool watches_the_named_folder() const;
    void establish();
    void forget();

    const std::string file_;
    const std::string folder_;
    const std::string name_;
    const int events_;  ///< inotify; -1: there is none to be had
    int watch_ = -1;
    dev_t device_ = 0;  ///< with `inode_`: the folder that is watched
    ino_t inode_ = 0;
    std::atomic<bool> sees_{false};
    std::atomic<std::chrono::steady_clock::rep> settled_{0};
};

}  // namespace platform::linux_rpc
