#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/testing/fakes.h"
#include "platform/virtual_library/virtual_library.h"

namespace {

using namespace platform;

/// The kind chooses the file.
void read(testing::test_system& system, std::uint8_t kind, std::string_view content) {
    switch (kind % 3) {
        case 0: {
            const std::string text = tape_library::personality_text(tape_library::parse_personality(content, "library.xml"));
            if (tape_library::personality_text(tape_library::parse_personality(text, "library.xml")) != text) {
                std::abort();
            }
            break;
        }
        case 1: {
            tape_library::personality value;
            value.drives.count = 0;
            tape_library::inventory elements(value);
            elements.from_text(content, "state.xml");
            break;
        }
        default: {
            system.files.put("C:\\faults.xml", content);
            tape_library::fault_script script(u"C:\\faults.xml");
            (void)script.decide(0, {0xA5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
        }
    }
}

}  // namespace

/// A library's files with any content: each is taken, and then a taken personality reads back as itself, or refused with a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static testing::test_system system;
    if (size == 0) {
        return 0;
    }
    try {
        read(system, data[0], {reinterpret_cast<const char*>(data) + 1, size - 1});
    } catch (const tape_library::library_error&) {
        // refused
    }
    // What is kept from one input to the next would be searched for leaks each time.
    (void)system.files.remove_file(u"C:\\faults.xml");
    system.log.clear();
    return 0;
}
