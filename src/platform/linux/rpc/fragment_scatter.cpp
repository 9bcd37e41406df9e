#include "platform/linux/rpc/fragment_scatter.h"

#include <algorithm>

namespace platform::linux_rpc {

fragment_scatter::fragment_scatter(std::span<std::uint8_t> memory, std::size_t fragment_stub, std::span<const std::uint8_t> kept,
                                   std::size_t most)
    : memory_(memory), fragment_stub_(fragment_stub), there_(kept.size()) {
    const auto add = [this](std::span<std::uint8_t> place) {
        vectors_[vector_count_++] = {place.data(), place.size()};
        room_ += place.size();
    };
    if (!kept.empty()) {
        const std::span<const std::uint8_t> stub = kept.subspan(request_header_size);
        const std::span<std::uint8_t> place = stub_of(0);
        std::copy_n(kept.begin(), request_header_size, heads_[0].begin());
        std::ranges::copy(stub, place.begin());
        add(place.subspan(stub.size()));
        count_ = 1;
    }
    while (count_ < most_fragments) {
        const std::span<std::uint8_t> place = stub_of(count_);
        if (place.empty() || (count_ != 0 && kept.size() + room_ + request_header_size + place.size() > most)) {
            break;
        }
        add(heads_[count_]);
        add(place);
        ++count_;
    }
}

std::span<std::uint8_t> fragment_scatter::stub_of(std::size_t index) const {
    const std::size_t begin = std::min(index * fragment_stub_, memory_.size());
    return memory_.subspan(begin, std::min(fragment_stub_, memory_.size() - begin));
}

fragment_scatter::fragment fragment_scatter::front() {
    if (front_ == count_ || there_ < request_header_size) {
        return {};
    }
    const std::span<std::uint8_t> stub = stub_of(front_);
    return {heads_[front_], stub, there_ >= request_header_size + stub.size()};
}

void fragment_scatter::take_front() {
    there_ -= request_header_size + stub_of(front_).size();
    ++front_;
}

std::span<std::uint8_t> fragment_scatter::behind(std::size_t fragments, std::span<std::uint8_t> to) const {
    std::size_t skipped = 0;
    for (std::size_t i = front_; i < std::min(front_ + fragments, count_); ++i) {
        skipped += request_header_size + stub_of(i).size();
    }
    std::size_t done = 0;
    const std::size_t wanted = there_ > skipped ? there_ - skipped : 0;
    const auto put = [&](std::span<const std::uint8_t> bytes) {
        const std::size_t size = std::min(bytes.size(), wanted - done);
        std::copy_n(bytes.begin(), size, to.begin() + static_cast<std::ptrdiff_t>(done));
        done += size;
    };
    for (std::size_t i = front_ + fragments; i < count_ && done < wanted; ++i) {
        put(heads_[i]);
        put(stub_of(i));
    }
    return to.first(done);
}

}  // namespace platform::linux_rpc
