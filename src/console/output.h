#pragma once

#include <iosfwd>

namespace console {

/// Where a command's answer goes and in which form.
struct output {
    std::ostream& stream;
    bool json = false;
};

}  // namespace console
