#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// One present device of the class of medium changers, as the plug-and-play database tells it.
struct changer_node {
    /// False when the machine that the list belongs to can't be asked: the node's health is unknown then.
    bool detail_known = false;
    /// The node's problem number, 0 for none. Nothing when the status can't be read.
    std::optional<std::uint32_t> problem;
    /// Bytes that the name of the node's driver service needs, terminator included; 0 when no service drives it.
    std::uint32_t service_size = 0;
    /// The device's object name: what a DOS device name can be pointed at.
    std::u16string object_name;
};

/// The database of plugged-in devices. Callable from any thread.
class plug_and_play {
public:
    virtual ~plug_and_play() = default;

    /// All present medium changers, in the database's order. Empty also when the database can't be read.
    [[nodiscard]] virtual std::vector<changer_node> medium_changers() = 0;
};

}  // namespace platform
