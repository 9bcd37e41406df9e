#include "foundation/text/conversion.h"
#include "platform/virtual_library/disk.h"
#include "platform/virtual_library/library_core.h"

namespace platform::tape_library {

void state_store::load(inventory& elements) const {
    std::string content;
    const std::uint32_t code = read_whole(path_, content);
    if (code == error::file_not_found || code == error::path_not_found) {
        return;
    }
    const std::string shown = text::wide_to_ansi_safe(path_);
    if (code != error::success) {
        throw library_error("Library file '" + shown + "' can't be read: " + exc::win_error_text(code));
    }
    elements.from_text(content, shown);
}

std::uint32_t state_store::save(const inventory& elements) const {
    return write_durably(path_, elements.to_text());
}

}  // namespace platform::tape_library
