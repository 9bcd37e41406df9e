#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <span>

#include "changer/changer_handle.h"
#include "changer/element_records.h"
#include "changer/mode_pages.h"

/// Element status data as a changer may send it. Data with impossible lengths is refused by an exception; nothing else may
/// happen, and no more records come out than descriptors fit into the data.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> answer(data, size);
    const element_map_t map{{0, 0x0000, 0x1000, 0x0010, 0x0100}, {0, 1, 24, 2, 2}};
    for (const ELEMENT_TYPE type : {ChangerSlot, ChangerDrive}) {
        try {
            const auto records = ParseElementStatusData(answer, type, map, [](std::span<const std::uint8_t>) {});
            if (records.size() > size) {
                std::abort();
            }
        } catch (const std::exception&) {
            continue;
        }
    }
    try {
        static_cast<void>(ParseDriveSerialNames(answer));
        static_cast<void>(ParseIdentifiedSerials(answer, map));
    } catch (const std::exception&) {
        return 0;
    }
    element_map_t read;
    if (ParseElementAddressAssignment(answer, read) && read.first_addresses.size() != 5) {
        std::abort();
    }
    return 0;
}
