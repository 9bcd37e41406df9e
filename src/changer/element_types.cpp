#include <array>

#include "changer/changer_interface.h"

namespace {

constexpr std::array<const char*, 5> element_type_names = {"AllElements", "ChangerTransport", "ChangerSlot", "ChangerIEPort",
                                                           "ChangerDrive"};

}  // namespace

const char* ElementTypeName(ELEMENT_TYPE type) {
    return type < element_type_names.size() ? element_type_names[type] : "";
}
