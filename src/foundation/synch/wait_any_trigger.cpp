#include "foundation/synch/wait_any_trigger.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <boost/thread/lock_guard.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/text/conversion.h"

namespace synch {

namespace {

using lock_t = boost::lock_guard<boost::mutex>;

/// The same on every system: what a vector of bits holds where addresses have 32 bits.
constexpr std::uint32_t most_bits = 0x7FFF'FFFF;

std::vector<bool> make_bits(std::uint32_t count) {
    std::vector<bool> bits;
    if (count > std::min<std::size_t>(most_bits, bits.max_size())) {
        throw std::length_error("vector<bool> too long");
    }
    bits.resize(count);
    return bits;
}

}  // namespace

wait_any_trigger_t::wait_any_trigger_t(std::uint32_t count) : bits_(make_bits(count)), count_(count) {}

void wait_any_trigger_t::set(std::uint32_t id) {
    touch(id);
    const lock_t lock(mutex_);
    event_.set();
    bits_[id] = true;
}

void wait_any_trigger_t::clear(std::uint32_t id) {
    touch(id);
    const lock_t lock(mutex_);
    bits_[id] = false;
    if (std::find(bits_.begin(), bits_.end(), true) == bits_.end()) {
        event_.reset();
    }
}

void wait_any_trigger_t::touch(std::uint32_t id) const {
    if (id >= count_) {
        throw exc::runtime_exc_t(
            "Atomic trigger ID exceeds number of registered triggers. ID: [%1]. Number of registered triggers: [%2].",
            text::to_string(id), text::to_string(count_));
    }
}

bool wait_any_trigger_t::wait(std::uint32_t milliseconds) const {
    return event_.wait(milliseconds);
}

wait_any_signaler_t::wait_any_signaler_t(std::uint32_t id, boost::shared_ptr<wait_any_trigger_t> target)
    : id_(id), target_(std::move(target)) {
    target_->touch(id_);
}

void wait_any_signaler_t::on_change(bool state) {
    if (state) {
        target_->set(id_);
    } else {
        target_->clear(id_);
    }
}

}  // namespace synch
