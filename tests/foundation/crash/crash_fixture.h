#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/util/product_options.h"
#include "platform/testing/fakes.h"

namespace test_support {

/// A test system, and the options of crashes as they were afterwards.
class CrashFixture : public ::testing::Test {
protected:
    CrashFixture() = default;
    ~CrashFixture() override {
        product_options().mini_dump_mode_type = type_;
        product_options().mini_dump_mode_mask = mask_;
        product_options().out_of_proc_dump_gen = out_of_proc_;
    }

    /// The log's lines without their thread.
    [[nodiscard]] std::vector<std::string> lines() const {
        std::vector<std::string> kept;
        for (const std::string& line : system_.log.lines()) {
            if (line.find("An exception was thrown from thread") == std::string::npos) {
                kept.push_back(line);
            }
        }
        return kept;
    }

    platform::testing::test_system system_;
    platform::crash_record record_{.code = platform::crash_code::access_violation, .address = 0x401234};

private:
    const std::string type_ = product_options().mini_dump_mode_type;
    const std::uint32_t mask_ = product_options().mini_dump_mode_mask;
    const bool out_of_proc_ = product_options().out_of_proc_dump_gen;
};

}  // namespace test_support
