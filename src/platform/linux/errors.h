#pragma once

#include "platform/errors.h"

namespace platform::linux_os {

/// The system error number for a value of `errno`. What has no counterpart becomes 31, a general failure.
[[nodiscard]] std::uint32_t from_errno(int number);

/// The last error is a variable of the thread, shared by all instances. Linux has no texts for these numbers, so they come from
/// the table of `english_error_text`; there is no internet library and no COM.
class linux_errors final : public errors {
public:
    [[nodiscard]] std::uint32_t last_error() override;
    void set_last_error(std::uint32_t code) override;
    [[nodiscard]] std::optional<std::string> system_text(std::uint32_t code) override;
    [[nodiscard]] std::optional<std::string> internet_text(std::uint32_t code) override;
    [[nodiscard]] std::string category_text(std::uint32_t code) override;
    [[nodiscard]] std::optional<std::string> take_com_description() override;
};

}  // namespace platform::linux_os
