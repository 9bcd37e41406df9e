#include "foundation/win/win_file.h"

#include <algorithm>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/util/product_options.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace win {

namespace {

constexpr std::string_view write_failure = "Failed to write data to the file [%1].";
constexpr std::int64_t delay_step_ms = 100;

/// What a busy network share answers for a while.
bool is_worth_a_retry(std::uint32_t code) {
    return code == platform::error::lock_violation || code == platform::error::invalid_user_buffer;
}

std::string_view name_of(seek_method method) {
    switch (method) {
        case seek_method::begin:
            return "FILE_BEGIN";
        case seek_method::current:
            return "FILE_CURRENT";
        default:
            return "FILE_END";
    }
}

std::string decimal(std::uint64_t number) {
    return text::to_string(number);
}

}  // namespace

win_file_t win_file_t::open(const text::wide_string& path, platform::file_open_mode disposition) {
    common_lib_ctx().files_access_permissions().check(path);
    std::unique_ptr<platform::file> handle;
    const std::uint32_t code = platform::system().files->open_file(path, platform::file_access::read | platform::file_access::write,
                                                                   platform::file_share::read, disposition, handle);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to create or open file [%1].", text::wide_to_utf8(path), code);
    }
    return {std::move(handle), lazy_path_t(path)};
}

win_file_t::win_file_t(std::unique_ptr<platform::file> handle, lazy_path_t path)
    : handle_(std::move(handle)), path_(std::move(path)) {}

void win_file_t::write(std::span<const std::uint8_t> bytes) {
    const std::uint32_t most_tries = product_options().win_file_write_retry_count;
    const std::int64_t longest_delay = product_options().win_file_write_retry_max_timeout_msec;
    std::size_t written = 0;
    std::int64_t delay = 0;
    for (std::uint32_t tries = 0; tries < most_tries;) {
        std::size_t count = 0;
        const std::uint32_t code = handle_->write(bytes.subspan(written), count);
        written += count;
        position_ += count;
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

void win_file_t::write(std::string_view text) {
    write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::size_t win_file_t::read(std::span<std::uint8_t> buffer) {
    std::size_t count = 0;
    const std::uint32_t code = handle_->read(buffer, count);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to read data from the file [%1].", path(), code);
    }
    position_ += count;
    return count;
}

void win_file_t::seek(std::int64_t distance, seek_method method) {
    std::uint32_t code = platform::error::success;
    std::uint64_t from = 0;
    if (method == seek_method::current) {
        from = position_;
    } else if (method == seek_method::end) {
        code = handle_->size(from);
    }
    const std::uint64_t target = from + static_cast<std::uint64_t>(distance);
    if (code == platform::error::success && distance < 0 && target > from) {
        code = platform::error::negative_seek;
    }
    if (code == platform::error::success) {
        code = handle_->seek(target);
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Seek operation has failed. File: [%1]. Distance to move: [%2]. Move method: [%3].", path(),
                                 text::to_string(distance), name_of(method), code);
    }
    position_ = target;
}

void win_file_t::seek_to_begin(std::int64_t distance) {
    seek(distance, seek_method::begin);
}

void win_file_t::seek_to_end(std::int64_t distance) {
    seek(distance, seek_method::end);
}

void win_file_t::set_size(std::uint64_t size) {
    if (const std::uint32_t code = handle_->seek(size)) {
        throw exc::win_sys_exc_t("Unable to reset file size: move operation has failed. Specified file size: [%1]. File: [%2].",
                                 decimal(size), path(), code);
    }
    position_ = size;
    if (const std::uint32_t code = handle_->truncate_here()) {
        throw exc::win_sys_exc_t("Unable to reset file size: trunk operation has failed. File: [%1].", path(), code);
    }
}

std::uint64_t win_file_t::size() const {
    std::uint64_t bytes = 0;
    if (const std::uint32_t code = handle_->size(bytes)) {
        throw exc::win_sys_exc_t("WINAPI: Cannot get file size. File: [%1].", path(), code);
    }
    return bytes;
}

void win_file_t::flush() {
    if (const std::uint32_t code = handle_->flush()) {
        throw exc::win_sys_exc_t("Failed to flush file buffers. File: [%1].", path(), code);
    }
}

}  // namespace win
