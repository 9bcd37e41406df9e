#include "platform/linux/errors.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "platform/error_texts.h"

namespace platform::linux_os {

namespace {

thread_local std::uint32_t thread_last_error = error::success;

/// Numbers that errors.h has no name for, since no logic tells them apart.
constexpr std::uint32_t too_many_open_files = 4;
constexpr std::uint32_t not_same_device = 17;
constexpr std::uint32_t broken_pipe = 109;
constexpr std::uint32_t directory_not_empty = 145;
constexpr std::uint32_t filename_too_long = 206;
constexpr std::uint32_t file_too_large = 223;
constexpr std::uint32_t no_such_device = 433;
constexpr std::uint32_t operation_aborted = 995;
constexpr std::uint32_t cannot_resolve_name = 1921;
constexpr std::uint32_t connection_refused = 1225;
constexpr std::uint32_t network_unreachable = 1231;
constexpr std::uint32_t host_unreachable = 1232;
constexpr std::uint32_t connection_aborted = 1236;
constexpr std::uint32_t netname_deleted = 64;

struct mapping {
    int number;
    std::uint32_t code;
};

constexpr mapping mappings[] = {
    {0, error::success},
    {ENOENT, error::file_not_found},
    {ENOTDIR, error::path_not_found},
    {EACCES, error::access_denied},
    {EPERM, error::access_denied},
    {EROFS, error::write_protect},
    {EISDIR, error::access_denied},
    {EBADF, error::invalid_handle},
    {ENOMEM, error::not_enough_memory},
    {EMFILE, too_many_open_files},
    {ENFILE, too_many_open_files},
    {EXDEV, not_same_device},
    {ENODEV, no_such_device},
    {ENXIO, no_such_device},
    {EIO, error::io_device},
    {ENOMEDIUM, error::no_media_in_drive},
    {EBUSY, error::busy},
    {ETXTBSY, error::sharing_violation},
    {EAGAIN, error::busy},
    {EEXIST, error::already_exists},
    {ENOTEMPTY, directory_not_empty},
    {EINVAL, error::invalid_parameter},
    {ENAMETOOLONG, filename_too_long},
    {ELOOP, cannot_resolve_name},
    {ENOSPC, error::disk_full},
    {EDQUOT, error::disk_full},
    {EFBIG, file_too_large},
    {EPIPE, broken_pipe},
    {ENOSYS, error::not_supported},
    {EOPNOTSUPP, error::not_supported},
    {ENOTTY, error::invalid_function},
    {EINTR, operation_aborted},
    {ECANCELED, operation_aborted},
    {ETIMEDOUT, error::semaphore_timeout},
    {ECONNREFUSED, connection_refused},
    {ENETUNREACH, network_unreachable},
    {EHOSTUNREACH, host_unreachable},
    {ECONNABORTED, connection_aborted},
    {ECONNRESET, netname_deleted},
    {ESTALE, error::device_not_exist},
};

}  // namespace

std::uint32_t from_errno(int number) {
    const mapping* found =
        std::find_if(std::begin(mappings), std::end(mappings), [number](const mapping& entry) { return entry.number == number; });
    return found != std::end(mappings) ? found->code : error::general_failure;
}

std::uint32_t linux_errors::last_error() {
    return thread_last_error;
}

void linux_errors::set_last_error(std::uint32_t code) {
    thread_last_error = code;
}

std::optional<std::string> linux_errors::system_text(std::uint32_t code) {
    const std::optional<std::string_view> text = english_error_text(code);
    return text ? std::optional<std::string>(std::string(*text) + "\r\n") : std::nullopt;
}

std::optional<std::string> linux_errors::internet_text(std::uint32_t) {
    return std::nullopt;
}

/// The C++ library's category knows `errno`, not these numbers: its sentences would be about something else.
std::string linux_errors::category_text(std::uint32_t code) {
    return "Unknown error (" + std::to_string(code) + ")";
}

std::optional<std::string> linux_errors::take_com_description() {
    return std::nullopt;
}

}  // namespace platform::linux_os
