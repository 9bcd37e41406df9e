#include "platform/testing/virtual_clock.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace platform::testing {

namespace {

local_time later(const local_time& start, std::int64_t seconds) {
    using namespace std::chrono;
    const sys_days first_day =
        year_month_day{year{start.year}, month{static_cast<unsigned>(start.month)}, day{static_cast<unsigned>(start.day)}};
    const sys_seconds moment = first_day + hours{start.hour} + minutes{start.minute} + std::chrono::seconds{start.second + seconds};
    const sys_days today = floor<days>(moment);
    const year_month_day date{today};
    const hh_mm_ss<std::chrono::seconds> time{moment - today};
    return {true,
            static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            static_cast<int>(time.hours().count()),
            static_cast<int>(time.minutes().count()),
            static_cast<int>(time.seconds().count())};
}

}  // namespace

std::int64_t virtual_clock::seconds() {
    return milliseconds() / 1000;
}

std::int64_t virtual_clock::milliseconds() {
    const std::lock_guard lock(mutex_);
    return now_;
}

local_time virtual_clock::now_local() {
    const std::lock_guard lock(mutex_);
    return local_.valid ? later(local_, (now_ - local_set_at_) / 1000) : local_time{};
}

void virtual_clock::sleep(std::int64_t milliseconds) {
    sleep_hook hook;
    {
        const std::lock_guard lock(mutex_);
        sleeps_.push_back(milliseconds);
        hook = hook_;
    }
    move(std::max<std::int64_t>(milliseconds, 0));
    if (hook) {
        hook(milliseconds);
    }
}

void virtual_clock::advance(std::int64_t milliseconds) {
    move(milliseconds);
}

void virtual_clock::move(std::int64_t milliseconds) {
    {
        const std::lock_guard lock(mutex_);
        now_ += milliseconds;
    }
    if (changed_) {
        changed_();
    }
}

void virtual_clock::on_change(std::function<void()> changed) {
    changed_ = std::move(changed);
}

void virtual_clock::set_local(const local_time& now) {
    const std::lock_guard lock(mutex_);
    local_ = now;
    local_set_at_ = now_;
}

void virtual_clock::on_sleep(sleep_hook hook) {
    const std::lock_guard lock(mutex_);
    hook_ = std::move(hook);
}

std::vector<std::int64_t> virtual_clock::sleeps() const {
    const std::lock_guard lock(mutex_);
    return sleeps_;
}

std::int64_t virtual_clock::slept_milliseconds() const {
    const std::lock_guard lock(mutex_);
    std::int64_t sum = 0;
    for (const std::int64_t sleep : sleeps_) {
        sum += sleep > 0 ? sleep : 0;
    }
    return sum;
}

void virtual_clock::forget_sleeps() {
    const std::lock_guard lock(mutex_);
    sleeps_.clear();
}

}  // namespace platform::testing
