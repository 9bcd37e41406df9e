#include "platform/linux/settings_file.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Whatever the bytes: a tree or a refusal, nothing else. A tree that was read survives being written and read again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace platform::linux_os;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    settings_key root;
    try {
        root = parse_settings(bytes, "fuzz.reg");
    } catch (const settings_error&) {
        return 0;
    }
    root.values.clear();  // nothing writes values of the root itself
    const settings_key again = parse_settings(format_settings(root), "again.reg");
    // UTF-16 can hold halves of surrogate pairs in names, which UTF-8 can't.
    if (!bytes.starts_with("\xFF\xFE") && !(again == root)) {
        std::abort();
    }
    return 0;
}
