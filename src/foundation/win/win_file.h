#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "foundation/perf/perf_event.h"
#include "foundation/win/lazy_path.h"
#include "platform/overlapped_file.h"

namespace win {

/// What a distance is counted from.
enum class seek_method : std::uint8_t { begin = 0, current = 1, end = 2 };

/// The kinds of performance events that a file tells. Opening has no event yet, and cutting is told with writing.
struct perf_kinds_t {
    bool perf_read = false;
    bool perf_write = false;
    bool perf_seek = false;
    bool perf_flush = false;
    bool perf_open = false;
    bool perf_close = false;
};

/// An open file whose failures are exceptions that name it: `exc::win_sys_exc_t` when the system refuses an operation. Used by one
/// thread at a time; closed by its destructor.
///
/// In async mode the system is asked for overlapped operations, reads are carried out by a pool of threads, and the position is
/// kept here. Each call still returns when its work is done.
class win_file_t {
public:
    /// Opens for reading and writing; others may read meanwhile, but not write.
    [[nodiscard]] static win_file_t open(const text::wide_string& path, platform::file_open_mode disposition);
    /// The same, in async mode.
    [[nodiscard]] static win_file_t open_async(const text::wide_string& path, platform::file_open_mode disposition);
    /// Takes over an open file that stands at its start.
    win_file_t(std::unique_ptr<platform::file> handle, lazy_path_t path);
    /// The same in async mode, with two threads for each processor, which start when they are needed.
    win_file_t(std::unique_ptr<platform::overlapped_file> handle, lazy_path_t path);
    ~win_file_t();
    /// What is left can only be destroyed.
    win_file_t(win_file_t&& other) noexcept;
    win_file_t& operator=(win_file_t&&) = delete;
    win_file_t(const win_file_t&) = delete;
    win_file_t& operator=(const win_file_t&) = delete;

    /// Writes at the position and moves it. A share that is busy, and answers that a lock or the buffer is in the way, is tried
    /// again: as often and with pauses as long as the product options allow, each failure in the log. A failure isn't undone: what
    /// was written stays. Fewer bytes than asked for are an `exc::runtime_exc_t`.
    void write(std::span<const std::uint8_t> bytes);
    void write(std::string_view text);
    /// The count read, 0 at the end of the file. Moves the position.
    [[nodiscard]] std::size_t read(std::span<std::uint8_t> buffer);
    /// The position never lies before the start, nor behind what 63 bits count: 131. An unknown method is 87, 50 in async mode.
    void seek(std::int64_t distance, seek_method method);
    void seek_to_begin(std::int64_t distance = 0);
    void seek_to_end(std::int64_t distance = 0);
    /// Cuts or fills up the file to so many bytes and leaves the position there.
    void set_size(std::uint64_t size);
    [[nodiscard]] std::uint64_t size() const;
    /// Forces what was written to stable storage.
    void flush();

    /// Whether the path still leads to this file: not every system keeps others from moving or removing it.
    [[nodiscard]] bool is_in_place() const { return handle_->is_named(path_.wide()); }
    [[nodiscard]] std::uint64_t position() const { return position_; }
    [[nodiscard]] bool is_async() const { return async_ != nullptr; }
    /// UTF-8.
    [[nodiscard]] const std::string& path() const { return path_.narrow(); }
    /// None at first. They go to `perf::perf_log_t`, if that is on.
    void set_perf_kinds(const perf_kinds_t& kinds) { perf_ = kinds; }

private:
    class async_part_t;

    std::uint32_t write_once(std::span<const std::uint8_t> bytes, std::size_t& written);
    std::uint32_t target_of(std::int64_t distance, seek_method method, std::uint64_t& target);
    void told_seek(std::int64_t distance, seek_method method);
    void close();
    template <typename... Values>
    void tell(bool wanted, perf::file_event event, Values... values) const;

    std::unique_ptr<platform::file> handle_;
    /// Null for a synchronous file.
    std::unique_ptr<async_part_t> async_;
    lazy_path_t path_;
    std::uint64_t position_ = 0;
    perf_kinds_t perf_;
};

}  // namespace win
