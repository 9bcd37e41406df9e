#include "foundation/win/win_file_read_request.h"

#include <boost/make_shared.hpp>

#include <atomic>
#include <memory>

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"

namespace win {

namespace {

constexpr std::string_view read_failure = "Failed to read data from the file [%1].";

}  // namespace

/// What the processor works on; it may hold it a little longer than the caller waits.
class CWinFileReadRequest::CWorker final : public io::request::async_request_t {
public:
    CWorker(platform::overlapped_file& file, const std::string& path, std::uint64_t offset, std::span<std::uint8_t> buffer)
        : file_(file), path_(path), offset_(offset), buffer_(buffer) {}

    void process() override {
        if (!advance(stage::waiting, stage::begun)) {
            return;
        }
        const ended_mark ended(*this);
        try {
            read();
            completion_.complete();
        } catch (const std::exception& e) {
            completion_.fail(e);
        }
    }

    /// False when the read has begun; else it never will.
    bool give_up() {
        advance(stage::waiting, stage::given_up);
        return stage_ == stage::given_up;
    }
    /// Returns when a read that has begun touches file and buffer no longer. This wait can't fail.
    void await_end() const { stage_.wait(stage::begun); }
    [[nodiscard]] synch::completion_port_t& completion() { return completion_; }
    [[nodiscard]] const std::string& path() const { return path_; }
    /// Once completed.
    [[nodiscard]] std::size_t count() const { return count_; }

private:
    enum class stage : std::uint8_t { waiting, begun, ended, given_up };

    class ended_mark {
    public:
        explicit ended_mark(CWorker& worker) : worker_(worker) {}
        ~ended_mark() {
            worker_.stage_ = stage::ended;
            worker_.stage_.notify_all();
        }
        ended_mark(const ended_mark&) = delete;
        ended_mark& operator=(const ended_mark&) = delete;

    private:
        CWorker& worker_;
    };

    bool advance(stage from, stage to) { return stage_.compare_exchange_strong(from, to); }

    void read() {
        std::unique_ptr<platform::file_operation> begun;
        std::uint32_t code = file_.begin_read(offset_, buffer_, begun);
        if (code == platform::error::success || code == platform::error::io_pending) {
            code = begun->wait(count_);
        }
        if (code != platform::error::success) {
            throw exc::win_sys_exc_t(read_failure, path_, code);
        }
    }

    platform::overlapped_file& file_;
    const std::string path_;
    const std::uint64_t offset_;
    const std::span<std::uint8_t> buffer_;
    std::size_t count_ = 0;
    std::atomic<stage> stage_ = stage::waiting;
    synch::completion_port_t completion_;
};

CWinFileReadRequest::CWinFileReadRequest(platform::overlapped_file& file, const std::string& path, std::uint64_t offset,
                                         std::span<std::uint8_t> buffer)
    : worker_(boost::make_shared<CWorker>(file, path, offset, buffer)) {}

CWinFileReadRequest::~CWinFileReadRequest() {
    if (!worker_->give_up()) {
        worker_->await_end();
    }
}

void CWinFileReadRequest::post(io::request::async_request_processor_t& processor,
                               const boost::shared_ptr<synch::wait_any_trigger_t>& arrival) {
    worker_->completion().add_completed_sink(boost::make_shared<synch::wait_any_signaler_t>(read_completed, arrival));
    processor.post(worker_);
}

std::size_t CWinFileReadRequest::wait(const synch::completion_port_t& stop_signal, const synch::wait_any_trigger_t& arrival) {
    const bool in_time = arrival.wait();
    if (worker_->give_up()) {
        give_reason(stop_signal, in_time);
    }
    worker_->await_end();
    worker_->completion().rethrow_error();
    return worker_->count();
}

/// Why a read that nobody began never will be.
void CWinFileReadRequest::give_reason(const synch::completion_port_t& stop_signal, bool in_time) const {
    try {
        stop_signal.rethrow_error();
        throw exc::runtime_exc_t(in_time ? "The reading of files was stopped." : "Timeout waiting for the read request.");
    } catch (std::exception& e) {
        exc::rethrow_with_trace(read_failure, worker_->path(), e);
    }
}

}  // namespace win
