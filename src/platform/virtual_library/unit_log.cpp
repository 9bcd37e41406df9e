#include <algorithm>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/virtual_library/logical_unit.h"

namespace platform::tape_library {

namespace {

constexpr std::uint8_t page_supported = 0x00;
constexpr std::uint8_t page_alerts = 0x2E;

/// Values of the page control field.
constexpr std::uint8_t threshold_values = 0;
constexpr std::uint8_t default_threshold_values = 2;
constexpr std::uint8_t default_cumulative_values = 3;

bool is_counter(const log_parameter& parameter) {
    return parameter.format == log_format::bounded_counter || parameter.format == log_format::unbounded_counter;
}

/// A counter starts at 0 and is never reported for reaching a threshold, so that each threshold is the greatest number it can
/// hold. To lists the page control means nothing.
void append_parameter(byte_vector& reply, log_parameter parameter, std::uint8_t control) {
    if (is_counter(parameter)) {
        if (control == threshold_values || control == default_threshold_values) {
            std::fill(parameter.value.begin(), parameter.value.end(), std::uint8_t{0xFF});
        } else if (control == default_cumulative_values) {
            std::fill(parameter.value.begin(), parameter.value.end(), std::uint8_t{0});
        }
    }
    reply.insert(reply.end(), {static_cast<std::uint8_t>(parameter.code >> 8), static_cast<std::uint8_t>(parameter.code & 0xFF),
                               static_cast<std::uint8_t>(parameter.format), static_cast<std::uint8_t>(parameter.value.size())});
    reply.insert(reply.end(), parameter.value.begin(), parameter.value.end());
}

}  // namespace

std::vector<std::uint8_t> logical_unit::log_pages() const {
    return {page_alerts};
}

/// Of TapeAlert an initiator sees what was raised since it last looked, unless the flags stay until they are cleared.
log_parameters logical_unit::log_page(std::uint8_t, const nexus& initiator) const {
    const alert_flags shown = core_.made_of.clear_alerts_on_read ? alerts_ & ~initiator.alerts_read : alerts_;
    log_parameters parameters;
    for (std::size_t bit = 0; bit < shown.size(); ++bit) {
        parameters.push_back({static_cast<std::uint16_t>(bit + 1), log_format::binary_list,
                              byte_vector{static_cast<std::uint8_t>(shown.test(bit) ? 1 : 0)}});
    }
    return parameters;
}

command_result logical_unit::log_sense(command_request& request) {
    const bool saves_or_compares = (request.cdb[1] & 0x03) != 0;
    const std::uint8_t control = request.cdb[2] >> 6;
    const std::uint8_t page = request.cdb[2] & 0x3F;
    const bool has_subpage = request.cdb[3] != 0;
    const std::uint16_t pointer = util::load_be16(request.cdb, 5);
    const std::vector<std::uint8_t> pages = log_pages();
    if (saves_or_compares || has_subpage ||
        (page != page_supported && std::find(pages.begin(), pages.end(), page) == pages.end())) {
        return command_result::check(sense::invalid_field);
    }
    byte_vector reply{page, 0, 0, 0};
    if (page == page_supported) {
        reply.push_back(page_supported);
        reply.insert(reply.end(), pages.begin(), pages.end());
    } else {
        log_parameters parameters = log_page(page, request.initiator);
        if (parameters.back().code < pointer) {
            return command_result::check(sense::invalid_field);
        }
        for (log_parameter& each : parameters) {
            if (each.code >= pointer) {
                append_parameter(reply, std::move(each), control);
            }
        }
    }
    if (page == page_alerts) {
        request.initiator.alerts_read |= alerts_;
    }
    util::store_be16(reply, 2, static_cast<std::uint16_t>(reply.size() - 4));
    return command_result::with_data(std::move(reply), util::load_be16(request.cdb, 7));
}

}  // namespace platform::tape_library
