#pragma once

#include <cstdint>

namespace platform {

enum class com_model : std::uint8_t { apartment_threaded, multi_threaded };

/// The COM library of the calling thread. A system without COM answers success and does nothing.
class com_runtime {
public:
    virtual ~com_runtime() = default;

    /// Returns an HRESULT; negative as a signed number is failure. Each success needs one `uninitialize` on the same thread.
    virtual std::uint32_t initialize(com_model model) = 0;
    virtual void uninitialize() = 0;
};

}  // namespace platform
