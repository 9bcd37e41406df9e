#include "foundation/crash/deinit_seq.h"

#include <boost/thread/lock_guard.hpp>

namespace crash {

namespace {

using lock_t = boost::lock_guard<boost::recursive_mutex>;

}  // namespace

void deinit_seq_t::add(std::int32_t key, const boost::shared_ptr<deinit_step_t>& step) {
    const lock_t lock(mutex_);
    steps_[key] = step;
}

void deinit_seq_t::remove(std::int32_t key) {
    const lock_t lock(mutex_);
    steps_.erase(key);
}

void deinit_seq_t::run() {
    const lock_t lock(mutex_);
    for (const auto& [key, step] : steps_) {
        step->run();
    }
}

}  // namespace crash
