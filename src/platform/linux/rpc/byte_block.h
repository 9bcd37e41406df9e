#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace platform::linux_rpc {

/// Bytes whose memory isn't initialised, since whoever makes it writes it: all at once, or in parts that come one behind the other.
class byte_block {
public:
    byte_block() = default;
    byte_block(std::initializer_list<std::uint8_t> bytes) { append({bytes.begin(), bytes.size()}); }
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

    [[nodiscard]] std::span<std::uint8_t> all() { return {bytes_.get(), size_}; }
    [[nodiscard]] std::span<const std::uint8_t> all() const { return {bytes_.get(), size_}; }
    [[nodiscard]] const std::uint8_t* begin() const { return bytes_.get(); }
    [[nodiscard]] const std::uint8_t* end() const { return bytes_.get() + size_; }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] std::size_t capacity() const { return capacity_; }

    /// So many bytes of any value, aligned to 8; what was there is gone.
    std::span<std::uint8_t> take(std::size_t size) {
        if (size > capacity_) {
            clear(0);  // before the larger one is made
            reserve(size);
        }
        size_ = size;
        return all();
    }
    /// Room for so many bytes altogether, aligned to 8; what is there is kept.
    void reserve(std::size_t capacity) {
        if (capacity > capacity_) {
            auto larger = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
            std::copy_n(bytes_.get(), size_, larger.get());
            bytes_ = std::move(larger);
            capacity_ = capacity;
        }
    }
    /// The room behind the bytes, of any value until it is written.
    [[nodiscard]] std::span<std::uint8_t> spare() { return {bytes_.get() + size_, capacity_ - size_}; }
    /// Counts the first bytes of `spare` in.
    void extend(std::size_t written) { size_ += written; }
    void append(std::span<const std::uint8_t> more) {
        reserve(size_ + more.size());
        std::copy(more.begin(), more.end(), spare().begin());
        extend(more.size());
    }
    void truncate(std::size_t size) { size_ = std::min(size_, size); }
    /// Empties it, and gives the memory back unless it is small.
    void clear(std::size_t kept_capacity) {
        size_ = 0;
        if (capacity_ > kept_capacity) {
            bytes_.reset();
            capacity_ = 0;
        }
    }

    friend bool operator==(const byte_block& left, const std::vector<std::uint8_t>& right) {
        return std::ranges::equal(left.all(), right);
    }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

}  // namespace platform::linux_rpc
