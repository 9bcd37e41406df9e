#pragma once

#include <atomic>
#include <map>
#include <mutex>

#include "platform/errors.h"

namespace platform::testing {

/// Last errors by thread, and the English texts that every system's implementation has; a test may put its own in their place.
class fake_errors final : public errors {
public:
    fake_errors();

    [[nodiscard]] std::uint32_t last_error() override;
    void set_last_error(std::uint32_t code) override;
    [[nodiscard]] std::optional<std::string> system_text(std::uint32_t code) override;
    [[nodiscard]] std::optional<std::string> internet_text(std::uint32_t code) override;
    [[nodiscard]] std::string category_text(std::uint32_t code) override;
    [[nodiscard]] std::optional<std::string> take_com_description() override;

    /// Text given out as it stands: a line end has to be in it. Nothing: the system has no text for the number.
    void set_system_text(std::uint32_t code, std::optional<std::string> text);
    void set_internet_text(std::uint32_t code, std::string text);
    void set_category_text(std::uint32_t code, std::string text);
    /// Makes a COM error object pend on the calling thread.
    void set_com_description(std::string text);

private:
    const std::uint64_t instance_;  ///< tells the threads' states of several instances apart
    std::mutex mutex_;
    std::map<std::uint32_t, std::optional<std::string>> system_texts_;
    std::map<std::uint32_t, std::string> internet_texts_;
    std::map<std::uint32_t, std::string> category_texts_;
};

}  // namespace platform::testing
