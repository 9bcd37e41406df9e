#pragma once

#include <atomic>
#include <cstdint>

namespace workload {

/// How much of the time goes into one kind of work. Counts from when it is made; updated by any threads without a lock, so with
/// several at work at once the share can pass 1.
class CTimeRatioCounter {
public:
    CTimeRatioCounter();
    CTimeRatioCounter(const CTimeRatioCounter&) = delete;
    CTimeRatioCounter& operator=(const CTimeRatioCounter&) = delete;

    /// The process's counters of time spent in reading and in writing files, each made on first use.
    static CTimeRatioCounter& file_reads();
    static CTimeRatioCounter& file_writes();

    void add(std::int64_t milliseconds);
    [[nodiscard]] std::int64_t busy_milliseconds() const { return busy_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::uint64_t count() const { return count_.load(std::memory_order_relaxed); }
    /// Time in work by time passed; 0 while none has passed.
    [[nodiscard]] double ratio() const;

private:
    const std::int64_t since_;
    std::atomic<std::int64_t> busy_ = 0;
    std::atomic<std::uint64_t> count_ = 0;
};

/// Counts the time of a scope, however it ends.
class time_ratio_scope_t {
public:
    explicit time_ratio_scope_t(CTimeRatioCounter& counter);
    ~time_ratio_scope_t();
    time_ratio_scope_t(const time_ratio_scope_t&) = delete;
    time_ratio_scope_t& operator=(const time_ratio_scope_t&) = delete;

private:
    CTimeRatioCounter& counter_;
    const std::int64_t start_;
};

}  // namespace workload
