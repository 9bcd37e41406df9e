#include "command/svc_context.h"

#include <atomic>

#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/text/conversion.h"

ctx::service_context_slot gServiceContext;

namespace ctx {

std::uint32_t CSvcContext::AddTask(const boost::shared_ptr<ITapeWorker>& task) {
    const std::uint32_t id = task->task_id();
    RemoveTask(id);
    const boost::lock_guard<boost::mutex> lock(task_table_mutex_);
    tasks_[id] = task;
    return id;
}

boost::shared_ptr<ITapeWorker> CSvcContext::FindTask(std::uint32_t id) const {
    const std::uint32_t error = exc::last_error();
    const boost::lock_guard<boost::mutex> lock(task_table_mutex_);
    const auto found = tasks_.find(id);
    if (found == tasks_.end()) {
        throw exc::win_sys_exc_t("There is no task with id = %1", text::to_string(id), error);
    }
    return found->second;
}

void CSvcContext::RemoveTask(std::uint32_t id) {
    boost::shared_ptr<ITapeWorker> removed;  // a last reference goes after the lock
    const boost::lock_guard<boost::mutex> lock(task_table_mutex_);
    const auto found = tasks_.find(id);
    if (found != tasks_.end()) {
        removed.swap(found->second);
        tasks_.erase(found);
    }
}

boost::shared_ptr<boost::mutex> CSvcContext::GetDeviceMutex(const std::string& device_name) {
    if (device_name.empty()) {
        return boost::make_shared<boost::mutex>();
    }
    const boost::lock_guard<boost::mutex> lock(device_table_mutex_);
    boost::shared_ptr<boost::mutex>& mutex = device_mutexes_[device_name];
    if (!mutex) {
        mutex = boost::make_shared<boost::mutex>();
        g_log.LogInfo("New mutex for %1", device_name);
    }
    for (const auto& entry : device_mutexes_) {
        g_log.LogInfo(entry.first);
    }
    return mutex;
}

boost::shared_ptr<CSvcContext> service_context_slot::get() const {
    const place& own = places_[own_place()];
    const boost::lock_guard<boost::mutex> lock(own.mutex);
    return own.context;
}

void service_context_slot::set(const boost::shared_ptr<CSvcContext>& context) {
    for (place& one : places_) {
        boost::shared_ptr<CSvcContext> changed;  // a last reference goes after the lock
        if (context) {
            changed.reset(context.get(), [context](CSvcContext*) {});
        }
        const boost::lock_guard<boost::mutex> lock(one.mutex);
        one.context.swap(changed);
    }
}

std::size_t service_context_slot::own_place() {
    static std::atomic<std::size_t> threads{0};
    thread_local const std::size_t own = threads.fetch_add(1, std::memory_order_relaxed) % place_count;
    return own;
}

}  // namespace ctx

void ShutdownServiceContext() {
    try {
        logging::log_scope_t scope(g_log, "Shutting down service context.");
        scope.ok("Context was cleared.");
    } catch (const std::exception& e) {
        g_log.LogError("Failed to shutdown service context.", e);
    }
}
