#include "platform/linux/clock.h"

#include <cerrno>
#include <ctime>

namespace platform::linux_os {

namespace {

timespec monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

std::int64_t in_milliseconds(const timespec& moment) {
    return std::int64_t{moment.tv_sec} * 1000 + moment.tv_nsec / 1'000'000;
}

local_time calendar_time(std::time_t moment) {
    std::tm parts{};
    if (moment == static_cast<std::time_t>(-1) || localtime_r(&moment, &parts) == nullptr) {
        return {};
    }
    return {true, parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

}  // namespace

linux_clock::linux_clock() {
    tzset();
}

std::int64_t linux_clock::seconds() {
    return monotonic_now().tv_sec;
}

std::int64_t linux_clock::milliseconds() {
    return in_milliseconds(monotonic_now());
}

std::int64_t linux_clock::coarse_milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return in_milliseconds(now);
}

local_time linux_clock::now_local() {
    const std::time_t now = std::time(nullptr);
    // The log asks for each of its lines; the C library's calendar, which takes a lock, is asked once a second and thread.
    thread_local std::time_t known_moment = -1;
    thread_local local_time known;
    if (now != known_moment || !known.valid) {
        known = calendar_time(now);
        known_moment = now;
    }
    return known;
}

void linux_clock::sleep(std::int64_t milliseconds) {
    if (milliseconds <= 0) {
        return;
    }
    // Until a fixed moment: signals that interrupt the wait don't lengthen it.
    timespec until = monotonic_now();
    until.tv_sec += milliseconds / 1000;
    until.tv_nsec += milliseconds % 1000 * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_nsec -= 1'000'000'000;
        ++until.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

}  // namespace platform::linux_os
