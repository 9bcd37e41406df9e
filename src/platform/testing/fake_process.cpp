#include "platform/testing/fake_process.h"

#include <atomic>

#include "platform/errors.h"
#include "platform/system.h"

namespace platform::testing {

namespace {

void set_last_error(std::uint32_t code) {
    if (errors* const current = system().errors) {
        current->set_last_error(code);
    }
}

}  // namespace

module_version fake_process::version_of(const std::u16string& module) {
    if (module != path) {
        set_last_error(error::file_not_found);
        return {version_failure::size_unknown, 0, 0};
    }
    if (version.failure != version_failure::none) {
        set_last_error(version_error);
        return {version.failure, 0, 0};
    }
    return version;
}

std::u16string fake_process::comments_of(const std::u16string& module) {
    return module == path ? comments : std::u16string{};
}

std::uint32_t fake_process::current_thread_id() {
    static std::atomic<std::uint32_t> last{1000};
    thread_local const std::uint32_t own = ++last;
    return own;
}

}  // namespace platform::testing
