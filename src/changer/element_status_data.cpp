#include "changer/element_status_data.h"

#include <stdexcept>

#include "foundation/exc/exceptions.h"
#include "foundation/util/bytes.h"

namespace {

constexpr std::size_t header_length = 8;
constexpr std::size_t page_header_length = 8;

}  // namespace

std::uint16_t ElementsAvailable(std::span<const std::uint8_t> data) {
    return util::load_be16(data, 2);
}

void WalkElementStatus(std::span<const std::uint8_t> data, const element_descriptor_visitor& visit) {
    std::uint32_t remaining = ElementsAvailable(data);
    std::size_t position = header_length;
    while (remaining != 0) {
        const auto head = util::slice(data, position, page_header_length);
        element_status_page_t page;
        page.element_type = util::load_u8(head, 0);
        page.primary_volume_tag = (util::load_u8(head, 1) & 0x80) != 0;
        page.descriptor_length = util::load_be16(head, 2);
        if (page.descriptor_length == 0) {
            throw exc::runtime_exc_t("Element descriptors of zero length.");
        }
        const std::uint32_t descriptors = util::load_be24(head, 5) / page.descriptor_length;
        position += page_header_length;
        for (std::uint32_t number = 0; number < descriptors; ++number) {
            if (position >= data.size()) {
                throw std::out_of_range("invalid vector<T> subscript");
            }
            visit(page, util::slice(data, position, page.descriptor_length));
            position += page.descriptor_length;
            remaining -= remaining != 0 ? 1 : 0;
        }
    }
}
