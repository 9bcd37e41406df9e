#include "platform/testing/fake_threads.h"

namespace platform::testing {

bool fake_threads::describe_current_thread(const std::u16string& description) {
    if (!takes_descriptions) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    descriptions_.push_back(description);
    return true;
}

std::vector<std::u16string> fake_threads::descriptions() const {
    const std::lock_guard lock(mutex_);
    return descriptions_;
}

}  // namespace platform::testing
