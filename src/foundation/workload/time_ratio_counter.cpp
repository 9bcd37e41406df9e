#include "foundation/workload/time_ratio_counter.h"

#include "platform/clock.h"
#include "platform/system.h"

namespace workload {

namespace {

/// A single write takes less than a tick; over many of them the ticks that fall into one tell its share all the same.
std::int64_t now() {
    return platform::system().clock->coarse_milliseconds();
}

}  // namespace

CTimeRatioCounter::CTimeRatioCounter() : since_(now()) {}

CTimeRatioCounter& CTimeRatioCounter::file_reads() {
    static CTimeRatioCounter counter;
    return counter;
}

CTimeRatioCounter& CTimeRatioCounter::file_writes() {
    static CTimeRatioCounter counter;
    return counter;
}

void CTimeRatioCounter::add(std::int64_t milliseconds) {
    busy_.fetch_add(milliseconds, std::memory_order_relaxed);
    count_.fetch_add(1, std::memory_order_relaxed);
}

double CTimeRatioCounter::ratio() const {
    const std::int64_t passed = now() - since_;
    return passed > 0 ? static_cast<double>(busy_milliseconds()) / static_cast<double>(passed) : 0;
}

time_ratio_scope_t::time_ratio_scope_t(CTimeRatioCounter& counter) : counter_(counter), start_(now()) {}

time_ratio_scope_t::~time_ratio_scope_t() {
    counter_.add(now() - start_);
}

}  // namespace workload
