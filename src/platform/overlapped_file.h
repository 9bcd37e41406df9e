#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/events.h"
#include "platform/files.h"

namespace platform {

/// A read or a write that was begun and may still be under way. Its destructor ends one that is: it gives the operation up, as far
/// as the system can, and returns when data and event are no longer touched.
class file_operation {
public:
    virtual ~file_operation() = default;

    /// Blocks until the operation has ended and tells its outcome, a system error number. `count` tells how many bytes were moved;
    /// reading at or behind the end of the file is no failure and moves none. Asked once for each operation, from any thread.
    virtual std::uint32_t wait(std::size_t& count) = 0;
};

/// A file opened for operations that name their place. Any number of them may be under way at once, begun from any threads; the
/// other operations of the file are for one thread at a time. There is no reading and writing at a position: `read` and `write`
/// answer 87. `seek` sets the place at which `truncate_here` cuts.
///
/// To begin an operation answers 0 when it has ended already, 997 when it is under way, and with both of these gives it out in
/// `begun`: only `wait` tells the outcome. Every other answer is a failure, and nothing is under way. The data and the event stay
/// in place until the operation has ended.
class overlapped_file : public file {
public:
    virtual std::uint32_t begin_read(std::uint64_t offset, std::span<std::uint8_t> data,
                                     std::unique_ptr<file_operation>& begun) = 0;
    /// A place behind the end leaves a gap of zeros. `done` is an event of the current set of implementations, with automatic
    /// reset: by it the system tells the end to `wait`. It serves one operation at a time, and nobody else looks at it meanwhile.
    virtual std::uint32_t begin_write(std::uint64_t offset, std::span<const std::uint8_t> data, wait_handle done,
                                      std::unique_ptr<file_operation>& begun) = 0;
};

}  // namespace platform
