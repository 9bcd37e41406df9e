#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include "platform/plug_and_play.h"

namespace platform::testing {

/// The medium changers that a test plugs in, in its order.
class fake_plug_and_play final : public plug_and_play {
public:
    [[nodiscard]] std::vector<changer_node> medium_changers() override {
        const std::lock_guard lock(mutex_);
        return nodes_;
    }

    void set_nodes(std::vector<changer_node> nodes) {
        const std::lock_guard lock(mutex_);
        nodes_ = std::move(nodes);
    }

private:
    std::mutex mutex_;
    std::vector<changer_node> nodes_;
};

}  // namespace platform::testing
