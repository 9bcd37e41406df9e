#include <map>

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "platform/virtual_library/disk.h"
#include "platform/virtual_library/fault_script.h"
#include "platform/virtual_library/personality.h"
#include "platform/virtual_library/xml_values.h"

namespace platform::tape_library {

namespace {

constexpr std::uint64_t longest_time = 24ULL * 60 * 60 * 1000;
constexpr std::uint64_t any_u32 = 0xFFFFFFFF;

/// Attributes of one `fault` element.
struct fault_reader {
    const xml_values& values;
    const winxml::node_t& node;

    [[nodiscard]] std::uint8_t byte(const char* name) const { return static_cast<std::uint8_t>(values.number(node, name, 0xFF)); }
    [[nodiscard]] std::int64_t time(const char* name) const {
        return static_cast<std::int64_t>(values.number(node, name, longest_time));
    }
    [[nodiscard]] std::uint32_t number_or(const char* name, std::uint32_t other) const {
        return static_cast<std::uint32_t>(values.number_or(node, name, any_u32, other));
    }
    [[nodiscard]] fault plain(fault_kind kind) const {
        fault one;
        one.kind = kind;
        one.error = number_or("error", one.error);
        return one;
    }
    [[nodiscard]] fault with_sense(fault_kind kind) const {
        fault one = plain(kind);
        one.sense = {byte("key"), byte("asc"), byte("ascq")};
        return one;
    }
    [[nodiscard]] fault alert() const {
        const auto flag = static_cast<std::uint8_t>(values.number(node, "flag", 64));
        if (flag == 0) {
            values.fail("there is no TapeAlert flag 0");
        }
        return faults::alert(byte("unit"), flag, values.flag_or(node, "raised", true));
    }
};

using make_fault = fault (*)(const fault_reader&);

const std::map<std::string, make_fault>& fault_kinds() {
    static const std::map<std::string, make_fault> kinds{
        {"sense", [](const fault_reader& of) { return of.with_sense(fault_kind::sense); }},
        {"sense-after", [](const fault_reader& of) { return of.with_sense(fault_kind::sense_after); }},
        {"busy", [](const fault_reader& of) { return of.plain(fault_kind::busy); }},
        {"reservation-conflict", [](const fault_reader& of) { return of.plain(fault_kind::reservation_conflict); }},
        {"fail-before", [](const fault_reader& of) { return of.plain(fault_kind::fail_before); }},
        {"lost-reply", [](const fault_reader& of) { return of.plain(fault_kind::lost_reply); }},
        {"half-move", [](const fault_reader& of) { return faults::half_move(of.values.flag_or(of.node, "in-transport", false)); }},
        {"slow-robot", [](const fault_reader& of) { return faults::slow_robot(of.time("milliseconds")); }},
        {"patch-reply",
         [](const fault_reader& of) {
             fault one = of.plain(fault_kind::patch_reply);
             one.offset = static_cast<std::uint32_t>(of.values.number(of.node, "offset", any_u32));
             one.bytes = of.values.bytes_or_none(of.node, "bytes");
             return one;
         }},
        {"cut-reply",
         [](const fault_reader& of) {
             fault one = of.plain(fault_kind::cut_reply);
             one.offset = static_cast<std::uint32_t>(of.values.number(of.node, "length", any_u32));
             return one;
         }},
        {"replace-reply",
         [](const fault_reader& of) {
             fault one = of.plain(fault_kind::replace_reply);
             one.bytes = of.values.bytes_or_none(of.node, "bytes");
             return one;
         }},
        {"alert", [](const fault_reader& of) { return of.alert(); }},
        {"descriptor-length",
         [](const fault_reader& of) {
             return faults::descriptor_length(static_cast<std::uint16_t>(of.values.number(of.node, "length", 0xFFFF)));
         }},
        {"door-open", [](const fault_reader&) { return faults::door_open(); }},
        {"port-accessed", [](const fault_reader& of) { return faults::port_accessed(of.number_or("times", 1)); }},
        {"drive-not-ready",
         [](const fault_reader& of) { return faults::drive_not_ready(of.byte("unit"), of.time("milliseconds")); }},
        {"no-device-identifiers", [](const fault_reader&) { return faults::no_device_identifiers(); }},
        {"dead",
         [](const fault_reader& of) {
             fault one = faults::target_dead();
             one.error = of.number_or("error", one.error);
             one.milliseconds = static_cast<std::int64_t>(of.values.number_or(of.node, "milliseconds", longest_time, 0));
             return one;
         }},
    };
    return kinds;
}

fault read_fault(const xml_values& values, const winxml::node_t& node) {
    const std::string kind = values.text(node, "kind");
    const auto found = fault_kinds().find(kind);
    if (found == fault_kinds().end()) {
        values.fail("there is no fault of the kind '" + kind + "'");
    }
    fault one = found->second({values, node});
    if (values.find(node, "unit")) {
        one.unit = static_cast<std::uint8_t>(values.number(node, "unit", 0xFE));
    }
    if (values.find(node, "page")) {
        one.page = static_cast<std::uint8_t>(values.number(node, "page", 0xFF));
    }
    if (values.find(node, "opcodes")) {
        one.opcodes = values.bytes_or_none(node, "opcodes");
    }
    one.skip = static_cast<std::uint32_t>(values.number_or(node, "skip", any_u32, one.skip));
    one.times = static_cast<std::uint32_t>(values.number_or(node, "times", any_u32, one.times));
    one.lasts = static_cast<std::int64_t>(values.number_or(node, "lasts", longest_time, static_cast<std::uint64_t>(one.lasts)));
    return one;
}

}  // namespace

fault_script::fault_set fault_script::parse(std::string_view xml, const std::string& path) {
    const xml_values values(path);
    fault_set set;
    for (const winxml::node_t& node : values.children(values.root(xml, "faults"))) {
        const std::string name = winxml::element_name(node);
        if (name == "fault") {
            arm(set, read_fault(values, node));
        } else if (name == "seeded") {
            seeded_faults seeded;
            seeded.seed = values.number(node, "seed", ~std::uint64_t{0});
            seeded.per_mille = static_cast<std::uint32_t>(values.number(node, "per-mille", 1000));
            seeded.may_strand = values.flag_or(node, "may-strand", false);
            arm_seed(set, seeded);
        } else if (name == "same-serial") {
            set.drive_serial = values.text(node, "value");
        } else {
            values.fail("element '" + name + "' isn't known");
        }
    }
    return set;
}

void fault_script::refresh() {
    std::string content;
    if (read_whole(path_, content) != error::success) {
        content.clear();
    }
    if (content == content_) {
        return;
    }
    content_ = content;
    if (content.empty()) {
        of_file_ = {};
        return;
    }
    try {
        of_file_ = parse(content, text::wide_to_ansi_safe(path_));
    } catch (const exc::exc_base_t& problem) {
        g_libraryLog.LogWarning("%1 The faults stay as they were.", problem.plain_text());
    }
}

}  // namespace platform::tape_library
