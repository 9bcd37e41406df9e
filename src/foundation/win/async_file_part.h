#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <span>
#include <string>

#include "foundation/io/request/async_request_processor.h"
#include "foundation/synch/completion_port.h"
#include "foundation/synch/wait_any_trigger.h"
#include "foundation/win/win_file.h"
#include "foundation/win/win_handle.h"

namespace win {

/// What a file in async mode has beyond its handle.
class win_file_t::async_part_t {
public:
    /// Throws `exc::win_sys_exc_t` without an event to be had, and what the processor throws.
    explicit async_part_t(platform::overlapped_file& file);

    /// One try. `count` tells what was written.
    std::uint32_t write(std::uint64_t offset, std::span<const std::uint8_t> bytes, std::size_t& count);
    [[nodiscard]] std::size_t read(const std::string& path, std::uint64_t offset, std::span<std::uint8_t> buffer);
    /// Ends the pool of threads. Throws what the processor throws.
    void stop();

    /// Tells the end of a write.
    win_handle_t write_event;

private:
    platform::overlapped_file& file_;
    /// Ends the processor, or tells that it has ended.
    boost::shared_ptr<synch::completion_port_t> stop_signal_;
    /// One for all reads: each that added a sink of its own to `stop_signal_` would leave it there.
    boost::shared_ptr<synch::wait_any_trigger_t> arrival_;
    boost::shared_ptr<io::request::async_request_processor_t> read_processor_;
};

}  // namespace win
