#include "foundation/exc/exceptions.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace exc {

namespace {

constexpr std::uint32_t first_internet_error = 12000;
constexpr std::uint32_t last_internet_error = 12175;

std::string raw_error_text(std::uint32_t code) {
    platform::errors& errors = *platform::system().errors;
    if (const auto found = errors.system_text(code)) {
        return *found;
    }
    if (code >= first_internet_error && code <= last_internet_error) {
        if (const auto found = errors.internet_text(code)) {
            return *found;
        }
    }
    return errors.category_text(code);
}

}  // namespace

std::string win_error_text(std::uint32_t code) {
    std::string result = raw_error_text(code);
    if (result.size() >= 2 && result.compare(result.size() - 2, 2, "\r\n") == 0) {
        result.resize(result.size() - 2);
    }
    return result;
}

std::string com_error_text(std::uint32_t hr) {
    return platform::system().errors->take_com_description().value_or(std::string()) + " Error code: " + text::format_hex(hr);
}

std::string with_error_text(std::uint32_t code) {
    return code == platform::error::success ? std::string() : "with error " + win_error_text(code);
}

std::uint32_t last_error() {
    return platform::system().errors->last_error();
}

}  // namespace exc
