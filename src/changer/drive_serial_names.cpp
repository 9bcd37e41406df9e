#include "changer/changer_handle.h"
#include "changer/element_status_data.h"
#include "changer/unit_identity.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

namespace {

// Of a data transfer element's descriptor without volume tags.
constexpr std::size_t identifier_type_at = 13;
constexpr std::size_t identifier_length_at = 15;
constexpr std::size_t identifier_at = 16;

constexpr std::uint8_t identifier_vendor_specific = 0;
constexpr std::uint8_t identifier_t10_vendor = 1;

constexpr std::size_t vendor_specific_length = 32;

}  // namespace

std::vector<std::string> ParseDriveSerialNames(std::span<const std::uint8_t> data) {
    g_log.LogInfo("Find '%1' serial names", text::to_string(std::uint32_t{ElementsAvailable(data)}));
    std::vector<std::string> names;
    WalkElementStatus(data, [&](const element_status_page_t& page, std::span<const std::uint8_t> descriptor) {
        if (page.primary_volume_tag) {
            return;  // the identifier isn't where this looks for it
        }
        const std::uint8_t type = util::load_u8(descriptor, identifier_type_at) & 0x0F;
        if (type == identifier_t10_vendor) {
            const std::uint8_t length = util::load_u8(descriptor, identifier_length_at);
            names.push_back(LastWord(util::to_text(util::slice(descriptor, identifier_at, length))).c_str());
        } else if (type == identifier_vendor_specific) {
            const auto identifier = util::slice(descriptor, identifier_at, vendor_specific_length);
            names.push_back(util::without_trailing_blanks(util::to_text(identifier)).c_str());
        }
    });
    return names;
}
