#pragma once

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log.h"

namespace test_support {

/// A look at the log's size that fails, as it does when the log's disk is full.
class failing_size_check final : public logging::size_check_t {
public:
    void check(logging::receiver::log_file_t& /*receiver*/) override {
        ++failures;
        throw exc::runtime_exc_t("No room.");
    }

    int failures = 0;
};

}  // namespace test_support
