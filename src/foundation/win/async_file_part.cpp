#include "foundation/win/async_file_part.h"

#include <boost/make_shared.hpp>

#include <memory>

#include "foundation/exc/exceptions.h"
#include "foundation/io/request/baseimpl/basic_async_request_processor.h"
#include "foundation/win/win_file_read_request.h"
#include "platform/errors.h"
#include "platform/process.h"
#include "platform/system.h"

namespace win {

namespace {

constexpr std::uint32_t threads_per_processor = 2;

platform::wait_handle make_write_event() {
    platform::wait_handle event = platform::no_wait_object;
    if (const std::uint32_t code = platform::system().events->create_event(platform::event_reset::automatic, event)) {
        throw exc::win_sys_exc_t("Failed to create async write event", code);
    }
    return event;
}

}  // namespace

win_file_t::async_part_t::async_part_t(platform::overlapped_file& file)
    : write_event(make_write_event()),
      file_(file),
      stop_signal_(boost::make_shared<synch::completion_port_t>()),
      arrival_(boost::make_shared<synch::wait_any_trigger_t>(read_arrival_count)),
      read_processor_(boost::make_shared<io::request::baseimpl::basic_async_request_processor_t>(
          platform::system().process->processor_count() * threads_per_processor, stop_signal_)) {
    stop_signal_->add_completed_sink(boost::make_shared<synch::wait_any_signaler_t>(reads_stopped, arrival_));
}

std::uint32_t win_file_t::async_part_t::write(std::uint64_t offset, std::span<const std::uint8_t> bytes, std::size_t& count) {
    std::unique_ptr<platform::file_operation> begun;
    const std::uint32_t code = file_.begin_write(offset, bytes, write_event.get(), begun);
    return code == platform::error::success || code == platform::error::io_pending ? begun->wait(count) : code;
}

std::size_t win_file_t::async_part_t::read(const std::string& path, std::uint64_t offset, std::span<std::uint8_t> buffer) {
    CWinFileReadRequest request(file_, path, offset, buffer);
    request.post(*read_processor_, arrival_);
    return request.wait(*stop_signal_, *arrival_);
}

void win_file_t::async_part_t::stop() {
    stop_signal_->complete();
    read_processor_->stop();
}

}  // namespace win
