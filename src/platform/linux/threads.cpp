#include "platform/linux/threads.h"

#include <pthread.h>

#include "foundation/text/unicode.h"

namespace platform::linux_os {

namespace {

constexpr std::size_t longest_name = 15;

bool continues_a_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

}  // namespace

bool linux_threads::describe_current_thread(const std::u16string& description) {
    std::string name = text::unicode::encode_utf8(description);
    if (name.size() > longest_name) {
        std::size_t end = longest_name;
        while (end > 0 && continues_a_character(name[end])) {
            --end;
        }
        name.resize(end);
    }
    return pthread_setname_np(pthread_self(), name.c_str()) == 0;
}

}  // namespace platform::linux_os
