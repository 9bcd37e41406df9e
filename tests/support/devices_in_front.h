#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/devices.h"

namespace test_support {

/// Devices in front of others, which each call goes on to: a test derives its own and meddles with the calls that it is about.
class devices_in_front : public platform::devices {
public:
    explicit devices_in_front(platform::devices& behind) : behind_(behind) {}

    platform::device_handle open_device(const std::string& link_name) override { return behind_.open_device(link_name); }
    bool close_device(platform::device_handle device) override { return behind_.close_device(device); }
    bool control(platform::device_handle device, std::uint32_t code, std::span<const std::uint8_t> input,
                 std::span<std::uint8_t> output, std::uint32_t& returned) override {
        return behind_.control(device, code, input, output, returned);
    }
    bool pass_through_direct(platform::device_handle device, std::span<std::uint8_t> block, std::span<std::uint8_t> data,
                             std::uint32_t& returned) override {
        return behind_.pass_through_direct(device, block, data, returned);
    }
    bool query_dos_device(const std::string& name, std::string& target) override { return behind_.query_dos_device(name, target); }
    bool define_dos_device(std::uint32_t flags, const std::string& name, const std::string& target) override {
        return behind_.define_dos_device(flags, name, target);
    }

private:
    platform::devices& behind_;
};

}  // namespace test_support
