#pragma once

#include "platform/device_stack/io_manager.h"
#include "platform/plug_and_play.h"

namespace platform::device_stack {

/// The plug-and-play view of the I/O manager's medium changers: all of them, with a driver service or without one. Each call is
/// a new look.
class changer_database : public plug_and_play {
public:
    /// The manager isn't owned and must outlive this object.
    explicit changer_database(io_manager& manager);

    [[nodiscard]] std::vector<changer_node> medium_changers() override;

private:
    io_manager& manager_;
};

}  // namespace platform::device_stack
