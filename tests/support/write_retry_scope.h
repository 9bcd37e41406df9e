#pragma once

#include "foundation/util/product_options.h"

/// Brings the options of the write retries back to what they were.
class write_retry_scope {
public:
    ~write_retry_scope() {
        product_options().win_file_write_retry_count = count_;
        product_options().win_file_write_retry_max_timeout_msec = longest_;
    }

private:
    const std::uint32_t count_ = product_options().win_file_write_retry_count;
    const std::uint32_t longest_ = product_options().win_file_write_retry_max_timeout_msec;
};
