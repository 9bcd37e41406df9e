#include "platform/linux/rpc/event_throttle.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace platform::linux_rpc {

namespace {

std::string times(std::size_t count) {
    return count == 1 ? "once" : std::to_string(count) + " times";
}

std::string with_count(const std::string& sentence, std::size_t repeated) {
    return repeated == 0 ? sentence : sentence + " (The same happened " + times(repeated) + " more since it was last told.)";
}

std::string about_unsaid(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " event was" : " events were") + " left out of the log: there were too many.";
}

}  // namespace

event_throttle::event_throttle(sink out, bounds allowed, std::function<time_point()> now)
    : out_(std::move(out)), bounds_(allowed), now_(std::move(now)), left_(allowed.burst), refilled_(now_()) {}

void event_throttle::say(const std::string& sentence) {
    std::size_t unsaid = 0;
    std::string admitted;
    {
        const std::lock_guard lock(mutex_);
        admitted = admit(sentence);
        if (!admitted.empty()) {
            unsaid = std::exchange(unsaid_, 0);
        }
    }
    if (unsaid != 0) {
        out_(about_unsaid(unsaid));
    }
    if (!admitted.empty()) {
        out_(admitted);
    }
}

/// The sentence as it is to be said; empty when it is only counted.
std::string event_throttle::admit(const std::string& sentence) {
    const time_point now = now_();
    refill(now);
    const auto known = recent_.find(sentence);
    if (known != recent_.end() && now - known->second.said < bounds_.same_sentence) {
        ++known->second.repeated;
        return {};
    }
    if (left_ == 0) {
        ++unsaid_;
        return {};
    }
    --left_;
    const std::size_t repeated = known == recent_.end() ? 0 : known->second.repeated;
    recent_[sentence] = {now, 0};
    forget_old(now);
    return with_count(sentence, repeated);
}

void event_throttle::refill(time_point now) {
    const auto more = static_cast<std::size_t>((now - refilled_) / bounds_.refill);
    left_ = std::min(bounds_.burst, left_ + std::min(more, bounds_.burst));
    refilled_ += more * bounds_.refill;
}

void event_throttle::forget_old(time_point now) {
    for (auto entry = recent_.begin(); entry != recent_.end();) {
        const auto age = now - entry->second.said;
        if (age >= (entry->second.repeated == 0 ? bounds_.same_sentence : bounds_.count_kept)) {
            unsaid_ += entry->second.repeated;
            entry = recent_.erase(entry);
        } else {
            ++entry;
        }
    }
}

event_throttle::sink throttled(event_throttle::sink out) {
    const auto throttle = std::make_shared<event_throttle>(std::move(out), event_throttle::bounds{});
    return [throttle](const std::string& sentence) { throttle->say(sentence); };
}

}  // namespace platform::linux_rpc
