#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Somebody between two honest sides who changes what they say to each other. What he does comes from the input, in records of
/// 5 bytes: the number of the message, what is done, where (2 bytes) and a value.
class tampering {
public:
    static constexpr std::size_t record_size = 5;

    explicit tampering(std::span<const std::uint8_t> records) : records_(records) {}

    /// The message as it arrives.
    std::vector<std::uint8_t> pass(unsigned number, std::span<const std::uint8_t> message) {
        constexpr unsigned messages = 4;
        std::vector<std::uint8_t> arriving(message.begin(), message.end());
        for (auto rest = records_; rest.size() >= record_size; rest = rest.subspan(record_size)) {
            if (rest[0] % messages == number && !arriving.empty()) {
                change(arriving, rest);
            }
        }
        touched_ = touched_ || !std::equal(arriving.begin(), arriving.end(), message.begin(), message.end());
        return arriving;
    }

    /// Whether any message arrived as another one than was sent.
    [[nodiscard]] bool touched() const { return touched_; }

private:
    static void change(std::vector<std::uint8_t>& message, std::span<const std::uint8_t> record) {
        const std::size_t where = static_cast<std::size_t>(record[2] | record[3] << 8) % message.size();
        const auto place = message.begin() + static_cast<std::ptrdiff_t>(where);
        switch (record[1] % 4) {
            case 0:
                *place = record[4];
                break;
            case 1:
                *place = static_cast<std::uint8_t>(*place ^ record[4]);
                break;
            case 2:
                message.insert(place, record[4]);
                break;
            default:
                message.erase(place);
        }
    }

    std::span<const std::uint8_t> records_;
    bool touched_ = false;
};
