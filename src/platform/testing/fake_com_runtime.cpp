#include "platform/testing/fake_com_runtime.h"

namespace platform::testing {

namespace {

constexpr std::uint32_t already_initialized = 1;
constexpr std::uint32_t changed_mode = 0x80010106;

}  // namespace

std::uint32_t fake_com_runtime::initialize(com_model model) {
    const std::lock_guard lock(mutex_);
    models_.push_back(model);
    if (failure_ != 0) {
        return failure_;
    }
    thread_state& state = threads_[std::this_thread::get_id()];
    if (state.open > 0 && state.model != model) {
        return changed_mode;
    }
    state.model = model;
    return state.open++ == 0 ? 0 : already_initialized;
}

void fake_com_runtime::uninitialize() {
    const std::lock_guard lock(mutex_);
    ++uninitialize_count_;
    const auto state = threads_.find(std::this_thread::get_id());
    if (state != threads_.end() && --state->second.open == 0) {
        threads_.erase(state);
    }
}

void fake_com_runtime::fail_initialize(std::uint32_t result) {
    const std::lock_guard lock(mutex_);
    failure_ = result;
}

std::vector<com_model> fake_com_runtime::models() const {
    const std::lock_guard lock(mutex_);
    return models_;
}

std::size_t fake_com_runtime::uninitialize_count() const {
    const std::lock_guard lock(mutex_);
    return uninitialize_count_;
}

std::size_t fake_com_runtime::open_count() const {
    const std::lock_guard lock(mutex_);
    std::size_t count = 0;
    for (const auto& [thread, state] : threads_) {
        count += state.open;
    }
    return count;
}

}  // namespace platform::testing
