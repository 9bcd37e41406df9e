#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace platform::linux_os {

/// An open file descriptor, closed by its destructor; -1 is none.
class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int number) : number_(number) {}
    ~descriptor() { reset(); }
    descriptor(descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    descriptor& operator=(descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    [[nodiscard]] int get() const { return number_; }
    [[nodiscard]] bool is_open() const { return number_ >= 0; }
    void reset();

private:
    int number_ = -1;
};

/// All of these return a value of `errno`, 0 for success, and go on when a signal interrupts.
int open_descriptor(const std::string& path, int flags, unsigned mode, descriptor& opened);
/// Writes everything; `count` tells how much was written, also on failure.
int write_all(int number, std::span<const std::uint8_t> data, std::size_t& count);
/// The same at an offset; the descriptor's own position stays. A read ends early only at the end of the file.
int write_all_at(int number, std::span<const std::uint8_t> data, std::int64_t offset, std::size_t& count);
int read_all_at(int number, std::span<std::uint8_t> data, std::int64_t offset, std::size_t& count);
/// Reads everything up to the end, at most `limit` bytes; EFBIG when there is more.
int read_all(int number, std::size_t limit, std::string& content);
/// Makes the names in a folder durable.
int sync_folder(const std::string& folder);
/// The folder that a path names its last component in.
[[nodiscard]] std::string folder_of(const std::string& path);

}  // namespace platform::linux_os
