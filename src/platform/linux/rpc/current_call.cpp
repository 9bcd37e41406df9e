#include "platform/linux/rpc/current_call.h"

namespace platform::linux_rpc {

namespace {
thread_local const call_scene* serving = nullptr;
}

const call_scene* current_call() {
    return serving;
}

current_call_scope::current_call_scope(const call_scene& scene) : former_(serving) {
    serving = &scene;
}

current_call_scope::~current_call_scope() {
    serving = former_;
}

}  // namespace platform::linux_rpc
