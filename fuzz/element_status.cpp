#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <span>

#include "changer/changer_handle.h"
#include "changer/element_records.h"
#include "changer/mode_pages.h"

/// Element status data and mode pages as a changer may send them. Data with impossible lengths is refused by an exception;
/// nothing else may happen, and no more comes out than descriptors fit into the data.
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
    for (const bool by_scsi : {false, true}) {
        try {
            const auto serials = by_scsi ? ParseIdentifiedSerials(answer, map) : ParseDriveSerialNames(answer);
            if (serials.size() > size) {
                std::abort();
            }
        } catch (const std::exception&) {
            continue;
        }
    }
    element_map_t read;
    if (ParseElementAddressAssignment(answer, read) != (read.first_addresses.size() == 5 && read.counts.size() == 5)) {
        std::abort();
    }
    GET_CHANGER_PARAMETERS parameters;
    static_cast<void>(ParseDeviceCapabilities(answer, parameters));
    return 0;
}
