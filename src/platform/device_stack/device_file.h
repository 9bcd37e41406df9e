#pragma once

#include <cstdint>
#include <span>

namespace platform::device_stack {

/// One open device as its drivers see it: where the device controls of one handle end. Made for one handle, used by one thread
/// at a time. Both operations return a system error number, 0 for success; on failure `returned` is 0 and the output's bytes mean
/// nothing.
class device_file {
public:
    virtual ~device_file() = default;

    /// One device control. `input` and `output` may be the same memory. 1: no driver of this device knows the code.
    virtual std::uint32_t control(std::uint32_t code, std::span<const std::uint8_t> input, std::span<std::uint8_t> output,
                                  std::uint32_t& returned) = 0;

    /// The direct pass-through, whose data area isn't part of its block.
    virtual std::uint32_t pass_through_direct(std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                                              std::uint32_t& returned) = 0;
};

}  // namespace platform::device_stack
