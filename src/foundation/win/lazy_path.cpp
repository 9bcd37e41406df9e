#include "foundation/win/lazy_path.h"

#include "foundation/exc/exceptions.h"

namespace win {

namespace {

template <typename Text>
const Text& require(const std::optional<Text>& text) {
    if (!text) {
        throw exc::runtime_exc_t("Parameter is not available.");
    }
    return *text;
}

}  // namespace

const std::string& lazy_path_t::narrow() const {
    if (!narrow_) {
        narrow_ = text::wide_to_utf8(require(wide_));
    }
    return *narrow_;
}

const text::wide_string& lazy_path_t::wide() const {
    if (!wide_) {
        wide_ = text::utf8_to_wide(require(narrow_));
    }
    return *wide_;
}

}  // namespace win
