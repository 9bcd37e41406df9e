#pragma once

#include <mutex>
#include <vector>

#include "platform/threads.h"

namespace platform::testing {

/// Remembers how threads describe themselves.
class fake_threads final : public threads {
public:
    bool describe_current_thread(const std::u16string& description) override;

    /// False for a system that takes no descriptions. Set before other threads ask.
    bool takes_descriptions = true;
    /// In order of their coming.
    [[nodiscard]] std::vector<std::u16string> descriptions() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::u16string> descriptions_;
};

}  // namespace platform::testing
