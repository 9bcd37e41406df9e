#pragma once

#include <optional>
#include <string>

#include "foundation/text/conversion.h"

namespace win {

/// A path in the form that it came in; the other form is made when somebody asks for it. Used by one thread at a time.
class lazy_path_t {
public:
    lazy_path_t() = default;
    explicit lazy_path_t(std::string narrow) : narrow_(std::move(narrow)) {}
    explicit lazy_path_t(text::wide_string wide) : wide_(std::move(wide)) {}

    /// UTF-8. Both throw `exc::runtime_exc_t` when there is no path at all.
    [[nodiscard]] const std::string& narrow() const;
    [[nodiscard]] const text::wide_string& wide() const;

private:
    mutable std::optional<std::string> narrow_;
    mutable std::optional<text::wide_string> wide_;
};

}  // namespace win
