#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <cstdint>
#include <map>

namespace crash {

/// A piece of cleaning up that is to be done even when the process crashes.
class deinit_step_t {
public:
    virtual ~deinit_step_t() = default;
    virtual void run() = 0;
};

/// Steps in the order of their keys. Callable from any thread; the lock is recursive, because the thread that crashes may be the
/// one that is adding a step.
class deinit_seq_t {
public:
    /// A step under a key that is taken replaces the one that was there.
    void add(std::int32_t key, const boost::shared_ptr<deinit_step_t>& step);
    /// Without such a key nothing happens.
    void remove(std::int32_t key);
    /// Runs each step under the lock. A step that throws ends it: the ones behind it don't run.
    void run();

private:
    boost::recursive_mutex mutex_;
    std::map<std::int32_t, boost::shared_ptr<deinit_step_t>> steps_;
};

}  // namespace crash
