#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "foundation/win/lazy_path.h"
#include "platform/files.h"

namespace win {

/// What a distance is counted from.
enum class seek_method : std::uint8_t { begin = 0, current = 1, end = 2 };

/// An open file whose failures are exceptions that name it: `exc::win_sys_exc_t` when the system refuses an operation. Used by one
/// thread at a time; closed by its destructor.
class win_file_t {
public:
    /// Opens for reading and writing; others may read meanwhile, but not write.
    [[nodiscard]] static win_file_t open(const text::wide_string& path, platform::file_open_mode disposition);
    /// Takes over an open file that stands at its start.
    win_file_t(std::unique_ptr<platform::file> handle, lazy_path_t path);

    /// Writes at the position and moves it. A share that is busy, and answers that a lock or the buffer is in the way, is tried
    /// again: as often and with pauses as long as the product options allow, each failure in the log. A failure isn't undone: what
    /// was written stays. Fewer bytes than asked for are an `exc::runtime_exc_t`.
    void write(std::span<const std::uint8_t> bytes);
    void write(std::string_view text);
    /// The count read, 0 at the end of the file.
    [[nodiscard]] std::size_t read(std::span<std::uint8_t> buffer);
    void seek(std::int64_t distance, seek_method method);
    void seek_to_begin(std::int64_t distance = 0);
    void seek_to_end(std::int64_t distance = 0);
    /// Cuts or fills up the file to so many bytes and leaves the position there.
    void set_size(std::uint64_t size);
    [[nodiscard]] std::uint64_t size() const;
    /// Forces what was written to stable storage.
    void flush();

    [[nodiscard]] std::uint64_t position() const { return position_; }
    /// UTF-8.
    [[nodiscard]] const std::string& path() const { return path_.narrow(); }

private:
    std::unique_ptr<platform::file> handle_;
    lazy_path_t path_;
    std::uint64_t position_ = 0;
};

}  // namespace win
