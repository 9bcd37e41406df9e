#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace platform::linux_rpc {

/// Bytes that are about to be written anyway: not initialised when they are made, and kept for the next use.
class byte_block {
public:
    byte_block() = default;
    byte_block(byte_block&& other) noexcept { *this = std::move(other); }
    byte_block& operator=(byte_block&& other) noexcept {
        bytes_ = std::move(other.bytes_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }
    byte_block(const byte_block&) = delete;
    byte_block& operator=(const byte_block&) = delete;
    ~byte_block() = default;

    /// So many bytes of any value, aligned to 8; what was there is gone.
    std::span<std::uint8_t> take(std::size_t size) {
        if (size > capacity_) {
            bytes_.reset();  // before the larger one is made
            capacity_ = 0;
            bytes_ = std::make_unique_for_overwrite<std::uint8_t[]>(size);
            capacity_ = size;
        }
        size_ = size;
        return all();
    }
    [[nodiscard]] std::span<std::uint8_t> all() { return {bytes_.get(), size_}; }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::size_t capacity() const { return capacity_; }
    /// Empties it, and gives the memory back unless it is small.
    void clear(std::size_t kept_capacity) {
        size_ = 0;
        if (capacity_ > kept_capacity) {
            bytes_.reset();
            capacity_ = 0;
        }
    }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace platform::linux_rpc
