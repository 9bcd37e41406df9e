#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "command/tape_worker.h"

namespace ctx {

/// What outlives a call: the long-running tasks by their id, and one mutex per device name, by which calls take turns at a
/// device. Does no device work itself. Callable from any thread; neither table's mutex is held while the other or a device's
/// mutex is taken.
class CSvcContext {
public:
    /// Keeps a task, in the place of an older one of the same id. Returns the id.
    std::uint32_t AddTask(const boost::shared_ptr<ITapeWorker>& task);
    /// Throws `exc::win_sys_exc_t` for an unknown id. The task stays alive for as long as the pointer is held.
    [[nodiscard]] boost::shared_ptr<ITapeWorker> FindTask(std::uint32_t id) const;
    /// An unknown id is no error.
    void RemoveTask(std::uint32_t id);

    /// The mutex of a device name, the same for every call with these bytes. An empty name gets a mutex of its own at each
    /// call, which serialises nothing.
    [[nodiscard]] boost::shared_ptr<boost::mutex> GetDeviceMutex(const std::string& device_name);

private:
    mutable boost::mutex task_table_mutex_;
    boost::mutex device_table_mutex_;
    std::map<std::uint32_t, boost::shared_ptr<ITapeWorker>> tasks_;
    std::map<std::string, boost::shared_ptr<boost::mutex>> device_mutexes_;
};

/// Place of a shared context that one thread sets and many read at once. Each call reads it, so the readers are spread over some
/// places: they would else fight for one lock and for one count of owners.
class service_context_slot {
public:
    [[nodiscard]] boost::shared_ptr<CSvcContext> get() const;
    void set(const boost::shared_ptr<CSvcContext>& context);
    void reset() { set({}); }

private:
    static constexpr std::size_t place_count = 8;
    struct alignas(64) place {
        mutable boost::mutex mutex;
        boost::shared_ptr<CSvcContext> context;  ///< counted apart from those of the other places
    };
    [[nodiscard]] static std::size_t own_place();

    std::array<place, place_count> places_;
};

}  // namespace ctx

/// The context that calls work with; empty while no server runs.
extern ctx::service_context_slot gServiceContext;

/// The context's part in a stop of the server. Throws nothing.
void ShutdownServiceContext();
