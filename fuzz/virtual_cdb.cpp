#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/testing/fakes.h"
#include "platform/virtual_library/create_library.h"
#include "platform/virtual_library/virtual_library.h"

namespace {

using namespace platform;

/// Records of 17 bytes: the unit and the CDB's length in the first, then the CDB.
constexpr std::size_t record_size = 17;
constexpr std::uint16_t cartridges = 4;

/// Small, so that a run is short; with a tape in a drive and one of each kind. Everything takes a moment, so that work is under
/// way when the next command comes.
std::string small_library() {
    tape_library::personality value =
        tape_library::make_personality({.slots = 4, .ports = 1, .drives = 2, .cartridges = cartridges});
    value.cartridges[0].element = value.drives.first;
    value.cartridges[1].cleaning = true;
    value.cartridges[2].worm = true;
    value.timings = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    return tape_library::personality_text(value);
}

/// Fakes that live as long as the process, with a library whose state is that of the first start.
void begin_anew() {
    static testing::test_system system;
    static const bool made = [] {
        system.files.put("C:\\library\\library.xml", small_library());
        return true;
    }();
    (void)made;
    (void)system.files.remove_file(u"C:\\library\\state.xml");
    system.clock.forget_sleeps();
    system.log.clear();
}

void run(tape_library::virtual_library& library, const std::uint8_t* data, std::size_t size) {
    std::vector<std::shared_ptr<device_stack::scsi_transport>> units;
    for (std::uint8_t unit = 0; unit < library.units(); ++unit) {
        units.push_back(library.connect(unit));
    }
    std::vector<std::uint8_t> room(4096);
    for (; size >= record_size; data += record_size, size -= record_size) {
        device_stack::scsi_command command;
        command.cdb_length = static_cast<std::uint8_t>(data[0] & 0x1F);
        std::copy_n(data + 1, command.cdb.size(), command.cdb.begin());
        command.direction = device_stack::data_direction::from_device;
        command.data = room;
        (void)units[(data[0] >> 5) % units.size()]->execute(command);
    }
}

}  // namespace

/// Any commands in any order: every one is answered, and no cartridge is lost or doubled.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    begin_anew();
    {
        const std::shared_ptr<tape_library::virtual_library> library = tape_library::virtual_library::open(u"C:\\library");
        run(*library, data, size);
        std::vector<std::string> labels;
        for (const tape_library::cartridge_place& each : library->cartridges()) {
            labels.push_back(each.barcode);
        }
        std::sort(labels.begin(), labels.end());
        if (labels.size() != cartridges || std::unique(labels.begin(), labels.end()) != labels.end()) {
            std::abort();
        }
    }
    // What is kept from one input to the next would be searched for leaks each time.
    begin_anew();
    return 0;
}
