#pragma once

#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/com_runtime.h"

namespace platform::testing {

/// Counts. As the real library does, it answers 1 to a thread's second initialisation, and refuses one of another model
/// (0x80010106); both are seen only while the thread's first is open.
class fake_com_runtime final : public com_runtime {
public:
    std::uint32_t initialize(com_model model) override;
    void uninitialize() override;

    /// Every initialisation fails with this from now on; 0 lets them work.
    void fail_initialize(std::uint32_t result);
    /// Models of all initialisations asked for, in order.
    [[nodiscard]] std::vector<com_model> models() const;
    [[nodiscard]] std::size_t uninitialize_count() const;
    /// Successful initialisations that wait for their end, over all threads.
    [[nodiscard]] std::size_t open_count() const;

private:
    struct thread_state {
        com_model model = com_model::apartment_threaded;
        std::size_t open = 0;
    };

    mutable std::mutex mutex_;
    std::uint32_t failure_ = 0;
    std::vector<com_model> models_;
    std::size_t uninitialize_count_ = 0;
    std::map<std::thread::id, thread_state> threads_;
};

}  // namespace platform::testing
