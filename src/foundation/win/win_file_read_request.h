#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <span>
#include <string>

#include "foundation/io/request/async_request_processor.h"
#include "foundation/synch/completion_port.h"
#include "foundation/synch/wait_any_trigger.h"
#include "platform/overlapped_file.h"

namespace win {

/// The conditions that a reader waits for, in a `synch::wait_any_trigger_t` of this count.
enum read_arrival : std::uint32_t { reads_stopped, read_completed, read_arrival_count };

/// One read at an offset, carried out by a request processor while the caller waits. Made, posted and awaited by one thread.
class CWinFileReadRequest {
public:
    CWinFileReadRequest(platform::overlapped_file& file, const std::string& path, std::uint64_t offset,
                        std::span<std::uint8_t> buffer);
    /// File and buffer are touched no longer when this returns: a read that hasn't begun never will, one that has is waited for.
    ~CWinFileReadRequest();
    CWinFileReadRequest(const CWinFileReadRequest&) = delete;
    CWinFileReadRequest& operator=(const CWinFileReadRequest&) = delete;

    /// `arrival` is told of the end as `read_completed`.
    void post(io::request::async_request_processor_t& processor, const boost::shared_ptr<synch::wait_any_trigger_t>& arrival);

    /// The count read, 0 at the end of the file. Throws `exc::win_sys_exc_t` when the read fails, and the failure of the processor,
    /// with the same text behind it, when that ended or took 21 days before it began the read. `arrival` is also told of
    /// `stop_signal`, as `reads_stopped`.
    [[nodiscard]] std::size_t wait(const synch::completion_port_t& stop_signal, const synch::wait_any_trigger_t& arrival);

private:
    class CWorker;

    [[noreturn]] void give_reason(const synch::completion_port_t& stop_signal, bool in_time) const;

    const boost::shared_ptr<CWorker> worker_;
};

}  // namespace win
