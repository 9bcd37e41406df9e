#pragma once

#include <string>

namespace test_support {

/// Names the instances of a typed suite: each implementation has its own as `name`.
struct implementation_names {
    template <typename Implementation>
    static std::string GetName(int) {
        return Implementation::name;
    }
};

}  // namespace test_support
