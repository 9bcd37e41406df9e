#pragma once

#include "foundation/perf/perf_log.h"
#include "foundation/util/product_options.h"

namespace test_support {

/// Leaves the performance record off and empty, and the size of its buffer as it was.
class perf_scope {
public:
    perf_scope() = default;
    ~perf_scope() {
        perf::perf_log_t::instance().stop();
        product_options().perf_buf_size = size_;
    }
    perf_scope(const perf_scope&) = delete;
    perf_scope& operator=(const perf_scope&) = delete;

private:
    const std::uint32_t size_ = product_options().perf_buf_size;
};

}  // namespace test_support
