#pragma once

#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <string>

#include "command/tape_worker.h"

/// Erases a tape on a thread of its own, which takes hours. Its id is the system's id of that thread. A failed erase has the
/// drive's tape status as its status, 1627 where the drive had none; any other failure, a drive that can't be opened
/// among them, has the thread's last error. No exception leaves the thread.
class CEraseTapeWorker final : public ITapeWorker {
public:
    /// Starts the thread and returns when that has told its id; the drive need not be there. Throws what the thread library
    /// throws when the thread can't be started.
    CEraseTapeWorker(const std::string& link_name, bool long_erasure);
    /// Leaves a running erase to itself: neither waits for it nor ends it.
    ~CEraseTapeWorker() override;
    CEraseTapeWorker(const CEraseTapeWorker&) = delete;
    CEraseTapeWorker& operator=(const CEraseTapeWorker&) = delete;

    void Join() override;

private:
    boost::thread thread_;
    boost::thread::id own_id_;
    boost::mutex join_mutex_;  ///< the thread library lets one thread at a time join
};

/// Whether the thread of an erase still uses the process's log and devices, so that they must not be taken apart. Nothing ends
/// such a thread but the end of the process.
[[nodiscard]] bool EraseThreadsRunning();
