#include "platform/testing/fake_debug_output.h"

#include <charconv>

namespace platform::testing {

class fake_debug_output::socket final : public datagram_socket {
public:
    explicit socket(fake_debug_output& owner) : owner_(owner) {}

    void send(const datagram_endpoint& to, std::string_view bytes) override {
        const std::lock_guard lock(owner_.mutex_);
        owner_.datagrams_.emplace_back(to, bytes);
    }

private:
    fake_debug_output& owner_;
};

void fake_debug_output::write(std::string_view text) {
    const std::lock_guard lock(mutex_);
    texts_.emplace_back(text);
}

std::unique_ptr<datagram_socket> fake_debug_output::open_datagram_socket() {
    const std::lock_guard lock(mutex_);
    ++sockets_asked_for_;
    if (refuse_) {
        return nullptr;
    }
    return std::make_unique<socket>(*this);
}

std::uint32_t fake_debug_output::parse_address(const std::string& text) {
    constexpr std::uint32_t none = 0xFFFFFFFF;
    std::uint32_t address = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (int part = 0; part < 4; ++part) {
        std::uint8_t number = 0;
        const auto [stop, failure] = std::from_chars(at, end, number);
        if (failure != std::errc() || (part < 3 ? stop == end || *stop != '.' : stop != end)) {
            return none;
        }
        address = address << 8 | number;
        at = stop + 1;
    }
    return address;
}

std::vector<std::string> fake_debug_output::texts() const {
    const std::lock_guard lock(mutex_);
    return texts_;
}

std::vector<std::pair<datagram_endpoint, std::string>> fake_debug_output::datagrams() const {
    const std::lock_guard lock(mutex_);
    return datagrams_;
}

int fake_debug_output::sockets_asked_for() const {
    const std::lock_guard lock(mutex_);
    return sockets_asked_for_;
}

void fake_debug_output::refuse_sockets(bool refuse) {
    const std::lock_guard lock(mutex_);
    refuse_ = refuse;
}

}  // namespace platform::testing
