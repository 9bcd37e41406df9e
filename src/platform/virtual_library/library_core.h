#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/virtual_library/fault_script.h"
#include "platform/virtual_library/inventory.h"
#include "platform/virtual_library/personality.h"

namespace platform::tape_library {

/// Keeps the inventory on disk.
class state_store {
public:
    explicit state_store(std::u16string path) : path_(std::move(path)) {}

    /// Takes over the state file if there is one. Throws `library_error`.
    void load(inventory& elements) const;
    /// Returns a system error number. After success the state survives a crash; after a failure the former one does.
    [[nodiscard]] std::uint32_t save(const inventory& elements) const;

private:
    std::u16string path_;
};

/// What the units of one library share. `mutex` guards all that changes; it is never held while time passes.
struct library_core {
    library_core(personality value, std::u16string state_path, std::u16string faults_path)
        : made_of(std::move(value)), elements(made_of), store(std::move(state_path)), faults(std::move(faults_path)) {}

    const personality made_of;
    std::mutex mutex;
    inventory elements;
    state_store store;
    fault_script faults;
    std::int64_t robot_free_at = 0;  ///< milliseconds of the clock: when the robot has done all that it was given so far
    bool door_open = false;
    bool ports_open = false;
};

}  // namespace platform::tape_library
