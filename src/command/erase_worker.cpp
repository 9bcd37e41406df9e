#include "command/erase_worker.h"

#include <future>
#include <optional>
#include <utility>

#include <boost/thread/lock_guard.hpp>

#include "drive/drive_handle.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/system.h"

namespace {

std::atomic<std::uint32_t> running_threads{0};

/// Counts a thread from before its start to its last use of anything that the process shares.
class thread_mark {
public:
    thread_mark() { ++running_threads; }
    thread_mark(thread_mark&& other) noexcept : counts_(std::exchange(other.counts_, false)) {}
    thread_mark& operator=(thread_mark&&) = delete;
    ~thread_mark() {
        if (counts_) {
            --running_threads;
        }
    }

private:
    bool counts_ = true;
};

/// The work of one thread. It shares nothing with the worker object but the status.
class erase_job {
public:
    using status_ptr = boost::shared_ptr<std::atomic<std::uint32_t>>;

    erase_job(std::string link_name, std::uint32_t type, status_ptr status)
        : link_name_(std::move(link_name)), type_(type), status_(std::move(status)), initial_status_(*status_) {}

    void run() noexcept {
        try {
            erase();
        } catch (...) {
            const std::uint32_t error = exc::last_error();
            finish(error);
            log_unknown_error(error);
        }
    }

private:
    void erase() {
        logging::log_scope_t scope(g_log, "Erasing tape.");
        std::optional<CDriveHandle> drive(std::in_place, link_name_);
        try {
            drive->EraseTape(type_);
        } catch (const exc::win_sys_exc_t& e) {
            const std::uint32_t status = drive->last_tape_status();
            finish(status != platform::error::success ? status : platform::error::function_failed);
            g_log.LogError(e.what());
            drive.reset();
            return;
        }
        drive.reset();
        finish(platform::error::success);
        scope.ok();
    }

    /// The first end counts: a log that fails doesn't turn an erased tape into a failure.
    void finish(std::uint32_t status) {
        std::uint32_t expected = initial_status_;
        status_->compare_exchange_strong(expected, status);
    }

    static void log_unknown_error(std::uint32_t error) noexcept {
        try {
            g_log.LogError("unknown _error = %1", text::to_string(error));
        } catch (...) {  // with the log gone there is nobody to tell
        }
    }

    std::string link_name_;
    std::uint32_t type_;
    status_ptr status_;
    std::uint32_t initial_status_;
};

}  // namespace

CEraseTapeWorker::CEraseTapeWorker(const std::string& link_name, bool long_erasure) {
    std::promise<std::uint32_t> thread_id;
    std::future<std::uint32_t> told_id = thread_id.get_future();
    erase_job job(link_name, long_erasure ? platform::TAPE_ERASE_LONG : platform::TAPE_ERASE_SHORT, status_);
    thread_ = boost::thread([job = std::move(job), thread_id = std::move(thread_id), mark = thread_mark()]() mutable {
        const thread_mark mine = std::move(mark);
        thread_id.set_value(platform::system().process->current_thread_id());
        job.run();
    });
    own_id_ = thread_.get_id();
    task_id_ = told_id.get();
}

CEraseTapeWorker::~CEraseTapeWorker() {
    thread_.detach();
}

void CEraseTapeWorker::Join() {
    if (!IsFinished()) {
        return;
    }
    if (boost::this_thread::get_id() == own_id_) {
        thread_.join();  // refused by the thread library; the mutex below may be held by who waits for this very thread
    }
    const boost::lock_guard<boost::mutex> lock(join_mutex_);
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool EraseThreadsRunning() {
    return running_threads != 0;
}
