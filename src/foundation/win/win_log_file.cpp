#include "foundation/win/win_log_file.h"

#include <span>

#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace win {

namespace {

constexpr std::string_view open_failure = "Failed to create or open file [%1].";

}  // namespace

win_log_file_t::win_log_file_t(const text::wide_string& path) : path_(text::wide_to_utf8(path)) {
    const std::uint32_t code =
        platform::system().files->open_file(path, platform::file_access::read | platform::file_access::write,
                                            platform::file_share::read, platform::file_open_mode::open_always, file_);
    if (code == platform::error::sharing_violation || code == platform::error::lock_violation) {
        throw exc::file_locked_exc_t(path_);
    }
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t(open_failure, path_, code);
    }
    const std::uint32_t seek_code = file_->seek(size());
    if (seek_code != platform::error::success) {
        throw exc::win_sys_exc_t(open_failure, path_, seek_code);
    }
}

void win_log_file_t::write(const std::string& text) {
    std::size_t count = 0;
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    if (file_->write(bytes, count) == platform::error::success && flush_each_write) {
        file_->flush();
    }
}

std::uint64_t win_log_file_t::size() {
    std::uint64_t bytes = 0;
    const std::uint32_t code = file_->size(bytes);
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("WINAPI: Cannot get file size. File: [%1].", path_, code);
    }
    return bytes;
}

}  // namespace win
