#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "foundation/logging/log.h"
#include "foundation/text/conversion.h"

namespace logging {

/// How large a log may grow and how many archives of it are kept beside the newest one.
struct log_limits_t {
    std::uint64_t size = std::uint64_t{15} << 20;  ///< bytes; 0: the log grows without end
    std::int32_t count = 10;                       ///< 0 to 1000
};

/// What the product options say. Both numbers have their defaults unless both can be read.
[[nodiscard]] log_limits_t read_log_limits();

/// The names of files by their age: age 0 is the path, any other number stands before `extension` if the path ends in that, else
/// behind the path.
[[nodiscard]] text::wide_string aged_path(const text::wide_string& path, std::u16string_view extension, std::int32_t age);

/// Makes every file of that name older by one, so that age 0 becomes free; the one of age `limit` is deleted. All that is done can
/// be undone until the end: the oldest file is only put aside, under its name and ".old".
class ageing_t {
public:
    ageing_t(text::wide_string path, std::u16string_view extension, std::int32_t limit);
    /// Brings the former names back unless they were given up.
    ~ageing_t();
    ageing_t(const ageing_t&) = delete;
    ageing_t& operator=(const ageing_t&) = delete;

    /// Gives the former names up and deletes the oldest file.
    void complete();

private:
    void shift();
    void put_oldest_aside();
    void move(const text::wide_string& from, const text::wide_string& to);
    void undo();
    [[noreturn]] void rethrow(std::exception& e) const;

    const text::wide_string path_;
    const text::wide_string extension_;
    const std::int32_t limit_;
    std::vector<std::pair<text::wide_string, text::wide_string>> moves_;  ///< from, to
    text::wide_string aside_;                                             ///< empty: there was no file of age `limit`
};

void age_file(const text::wide_string& path, std::u16string_view extension, std::int32_t limit);

/// Moves a log that has reached its limit into an archive beside it; the log goes on, empty. Whatever fails, archives that were
/// whole stay, and the log is cut only when all of it is in a whole archive. Throws when something fails.
void check_log_size(receiver::log_file_t& receiver, const log_limits_t& limits);

/// The process's rotation. Reads the limits once, when it is made: a look comes with the log's mutex held, and the registry logs
/// under its own.
class log_rotation_t final : public size_check_t {
public:
    log_rotation_t();
    void check(receiver::log_file_t& receiver) override;

private:
    const log_limits_t limits_;
};

}  // namespace logging
