#include "platform/system.h"

namespace platform {

namespace {

system_set& current() {
    static system_set set;
    return set;
}

}  // namespace

const system_set& system() {
    return current();
}

void install(const system_set& set) {
    current() = set;
}

scoped_system::scoped_system(const system_set& set) : former_(current()) {
    current() = set;
}

scoped_system::~scoped_system() {
    current() = former_;
}

}  // namespace platform
