#include "foundation/win/win_file.h"

#include <algorithm>
#include <limits>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/perf/perf_log.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/util/product_options.h"
#include "foundation/win/async_file_part.h"
#include "foundation/workload/time_ratio_counter.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace win {

namespace {

constexpr std::string_view write_failure = "Failed to write data to the file [%1].";
constexpr std::int64_t delay_step_ms = 100;
/// Systems count positions with a sign: what passes this one comes out before the start.
constexpr std::uint64_t last_position = std::numeric_limits<std::int64_t>::max();

/// What a busy network share answers for a while.
bool is_worth_a_retry(std::uint32_t code) {
    return code == platform::error::lock_violation || code == platform::error::invalid_user_buffer;
}

std::string name_of(seek_method method) {
    switch (method) {
        case seek_method::begin:
            return "FILE_BEGIN";
        case seek_method::current:
            return "FILE_CURRENT";
        case seek_method::end:
            return "FILE_END";
    }
    return text::to_string(static_cast<std::uint32_t>(method));
}

std::string decimal(std::uint64_t number) {
    return text::to_string(number);
}

template <typename Handle, typename Open>
std::unique_ptr<Handle> opened(const text::wide_string& path, platform::file_open_mode disposition, Open open) {
    common_lib_ctx().files_access_permissions().check(path);
    std::unique_ptr<Handle> handle;
    const std::uint32_t code = (platform::system().files->*open)(path, platform::file_access::read | platform::file_access::write,
                                                                 platform::file_share::read, disposition, handle);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to create or open file [%1].", text::wide_to_utf8(path), code);
    }
    return handle;
}

}  // namespace

win_file_t win_file_t::open(const text::wide_string& path, platform::file_open_mode disposition) {
    return {opened<platform::file>(path, disposition, &platform::files::open_file), lazy_path_t(path)};
}

win_file_t win_file_t::open_async(const text::wide_string& path, platform::file_open_mode disposition) {
    return {opened<platform::overlapped_file>(path, disposition, &platform::files::open_overlapped), lazy_path_t(path)};
}

win_file_t::win_file_t(std::unique_ptr<platform::file> handle, lazy_path_t path)
    : handle_(std::move(handle)), path_(std::move(path)) {}

win_file_t::win_file_t(std::unique_ptr<platform::overlapped_file> handle, lazy_path_t path)
    : async_(std::make_unique<async_part_t>(*handle)), path_(std::move(path)) {
    handle_ = std::move(handle);
}

win_file_t::win_file_t(win_file_t&& other) noexcept = default;

win_file_t::~win_file_t() {
    if (handle_ == nullptr) {
        return;
    }
    try {
        close();
    } catch (const std::exception&) {
        return;  // out of memory for an event, or a failed look at the log's size
    }
}

/// Requests may reach for the file until they are done, so each is waited for before its caller goes on; here is none left.
void win_file_t::close() {
    const std::uint64_t number = handle_->number();
    tell(perf_.perf_close, perf::file_event::close_start);
    if (is_async()) {
        async_->write_event.close();
    }
    handle_.reset();
    if (perf_.perf_close) {
        perf::perf_log_t::instance().add(perf::file_event::close_end, perf::CPerfEventArg(number));
    }
    if (is_async()) {
        async_->stop();
    }
}

template <typename... Values>
void win_file_t::tell(bool wanted, perf::file_event event, Values... values) const {
    if (wanted && perf::perf_log_t::instance().is_on()) {
        perf::perf_log_t::instance().add(event, perf::CPerfEventArg(handle_->number(), static_cast<std::uint64_t>(values)...));
    }
}

void win_file_t::write(std::span<const std::uint8_t> bytes) {
    const workload::time_ratio_scope_t measured(workload::CTimeRatioCounter::file_writes());
    tell(perf_.perf_write, perf::file_event::write_start, position_, bytes.size());
    const std::uint32_t most_tries = product_options().win_file_write_retry_count;
    const std::int64_t longest_delay = product_options().win_file_write_retry_max_timeout_msec;
    std::size_t written = 0;
    std::int64_t delay = 0;
    for (std::uint32_t tries = 0; tries < most_tries;) {
        const std::uint32_t code = write_once(bytes, written);
        if (code == platform::error::success) {
            break;
        }
        const exc::win_sys_exc_t failure(write_failure, path(), code);
        if (!is_worth_a_retry(code) || ++tries == most_tries) {
            throw failure;
        }
        g_libraryLog.LogWarning(failure);
        platform::system().clock->sleep(std::min(delay, longest_delay));
        g_libraryLog.LogWarning("Retry.");
        delay += delay_step_ms;
    }
    if (written != bytes.size()) {
        throw exc::runtime_exc_t("Failed to write %1 bytes to the file '%2': %3 bytes were written instead", decimal(bytes.size()),
                                 path(), decimal(written));
    }
}

/// A failure may leave the position behind bytes that were written, and the next try goes on there. In async mode only success
/// moves it: the next try writes all of it to the same place.
std::uint32_t win_file_t::write_once(std::span<const std::uint8_t> bytes, std::size_t& written) {
    std::size_t count = 0;
    if (is_async()) {
        const std::uint32_t code = async_->write(position_, bytes, count);
        if (code == platform::error::success) {
            written = count;
            position_ += count;
        }
        return code;
    }
    const std::uint32_t code = handle_->write(bytes.subspan(written), count);
    written += count;
    position_ += count;
    return code;
}

void win_file_t::write(std::string_view text) {
    write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::size_t win_file_t::read(std::span<std::uint8_t> buffer) {
    const workload::time_ratio_scope_t measured(workload::CTimeRatioCounter::file_reads());
    tell(perf_.perf_read, perf::file_event::read_start, position_, buffer.size());
    std::size_t count = 0;
    if (is_async()) {
        count = async_->read(path(), position_, buffer);
    } else if (const std::uint32_t code = handle_->read(buffer, count)) {
        throw exc::win_sys_exc_t("Failed to read data from the file [%1].", path(), code);
    }
    position_ += count;
    tell(perf_.perf_read, perf::file_event::read_end, count);
    return count;
}

void win_file_t::seek(std::int64_t distance, seek_method method) {
    std::uint64_t target = 0;
    std::uint32_t code = target_of(distance, method, target);
    if (code == platform::error::success && !is_async()) {
        code = handle_->seek(target);
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Seek operation has failed. File: [%1]. Distance to move: [%2]. Move method: [%3].", path(),
                                 text::to_string(distance), name_of(method), code);
    }
    position_ = target;
}

std::uint32_t win_file_t::target_of(std::int64_t distance, seek_method method, std::uint64_t& target) {
    std::uint64_t from = 0;
    switch (method) {
        case seek_method::begin:
            break;
        case seek_method::current:
            from = position_;
            break;
        case seek_method::end:
            if (const std::uint32_t code = handle_->size(from)) {
                return code;
            }
            break;
        default:
            return is_async() ? platform::error::not_supported : platform::error::invalid_parameter;
    }
    target = from + static_cast<std::uint64_t>(distance);
    return target > last_position ? platform::error::negative_seek : platform::error::success;
}

void win_file_t::seek_to_begin(std::int64_t distance) {
    told_seek(distance, seek_method::begin);
}

void win_file_t::seek_to_end(std::int64_t distance) {
    told_seek(distance, seek_method::end);
}

void win_file_t::told_seek(std::int64_t distance, seek_method method) {
    tell(perf_.perf_seek, perf::file_event::seek_start, distance, method);
    seek(distance, method);
    tell(perf_.perf_seek, perf::file_event::seek_end, position_);
}

void win_file_t::set_size(std::uint64_t size) {
    tell(perf_.perf_write, perf::file_event::truncate_start, size);
    if (const std::uint32_t code = handle_->seek(size)) {
        throw exc::win_sys_exc_t("Unable to reset file size: move operation has failed. Specified file size: [%1]. File: [%2].",
                                 decimal(size), path(), code);
    }
    position_ = size;
    if (const std::uint32_t code = handle_->truncate_here()) {
        throw exc::win_sys_exc_t("Unable to reset file size: trunk operation has failed. File: [%1].", path(), code);
    }
    tell(perf_.perf_write, perf::file_event::truncate_end, size);
}

std::uint64_t win_file_t::size() const {
    std::uint64_t bytes = 0;
    if (const std::uint32_t code = handle_->size(bytes)) {
        throw exc::win_sys_exc_t("WINAPI: Cannot get file size. File: [%1].", path(), code);
    }
    return bytes;
}

void win_file_t::flush() {
    tell(perf_.perf_flush, perf::file_event::flush_start);
    if (const std::uint32_t code = handle_->flush()) {
        throw exc::win_sys_exc_t("Failed to flush file buffers. File: [%1].", path(), code);
    }
    tell(perf_.perf_flush, perf::file_event::flush_end);
}

}  // namespace win
