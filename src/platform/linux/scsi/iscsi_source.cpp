#include "platform/linux/scsi/iscsi_source.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <future>
#include <iterator>
#include <utility>

#include "foundation/util/bytes.h"
#include "platform/device_stack/scsi_commands.h"
#include "platform/device_stack/sense_error.h"
#include "platform/errors.h"

namespace platform::linux_scsi {

namespace {

using namespace std::chrono_literals;
using device_stack::logical_unit_info;

constexpr std::int64_t look_seconds = 5;
/// For those that didn't answer lately. A machine that is back answers in a fraction of it.
constexpr std::int64_t short_look_seconds = 1;
constexpr auto short_looks_last = 30s;
/// Targets of one portal that are asked at the same time.
constexpr std::size_t most_scans_at_once = 8;
constexpr std::int64_t open_seconds = 10;

std::string make_initiator_name() {
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) != 0 || host[0] == '\0') {
        host = {"localhost"};
    }
    std::string name = "iqn.2015-06.local.tarno:tape-server.";
    for (const char* c = host.data(); *c != '\0'; ++c) {
        const char lower = *c >= 'A' && *c <= 'Z' ? static_cast<char>(*c - 'A' + 'a') : *c;
        const bool allowed = (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9') || lower == '-' || lower == '.';
        name += allowed ? lower : '-';
    }
    return name;
}

std::string target_text(const iscsi_endpoint& endpoint) {
    return endpoint.portal.text() + "/" + endpoint.target;
}

/// Logical unit numbers of a REPORT LUNS answer that fit into one byte: peripheral addressing on the first bus, and flat space.
std::vector<std::uint8_t> decode_lun_list(std::span<const std::uint8_t> answer) {
    constexpr std::size_t head = 8;
    constexpr std::size_t entry_size = 8;
    std::vector<std::uint8_t> luns;
    const std::size_t end = std::min<std::size_t>(answer.size(), head + std::size_t{util::load_be32(answer, 0)});
    for (std::size_t at = head; at + entry_size <= end; at += entry_size) {
        const std::uint8_t method_and_bus = answer[at];
        if (method_and_bus == 0x00 || method_and_bus == 0x40) {
            luns.push_back(answer[at + 1]);
        }
    }
    std::sort(luns.begin(), luns.end());
    return luns;
}

}  // namespace

struct iscsi_source::found_unit {
    iscsi_endpoint endpoint;
    logical_unit_info info;
};

iscsi_source::iscsi_source(iscsi_source_options options)
    : options_(std::move(options)), initiator_(options_.initiator.empty() ? make_initiator_name() : options_.initiator) {}

iscsi_endpoint iscsi_source::endpoint_of(const iscsi_entry& entry, const iscsi_portal& portal, const std::string& target) const {
    return {portal, target, entry.user, entry.password, initiator_};
}

std::uint32_t iscsi_source::target_number(const std::string& target) {
    const std::lock_guard lock(mutex_);
    return target_numbers_.emplace(target, static_cast<std::uint32_t>(target_numbers_.size())).first->second;
}

std::int64_t iscsi_source::patience_with(const std::string& what) {
    const std::lock_guard lock(mutex_);
    const auto known = silent_.find(what);
    if (known == silent_.end()) {
        return look_seconds;
    }
    if (io_clock::now() - known->second < short_looks_last) {
        return short_look_seconds;
    }
    known->second = io_clock::now();
    return look_seconds;
}

void iscsi_source::note(const std::string& what, const std::string& failure, bool waited_in_vain) {
    {
        const std::lock_guard lock(mutex_);
        if (failure.empty()) {
            silent_.erase(what);
        } else if (waited_in_vain) {
            silent_.try_emplace(what, io_clock::now());
        }
        bool& answering = answering_.emplace(what, true).first->second;
        if (answering == failure.empty()) {
            return;
        }
        answering = failure.empty();
    }
    if (options_.report) {
        options_.report(failure.empty() ? "iSCSI: [" + what + "] answers again."
                                        : "iSCSI: [" + what + "] can't be used: " + failure + ".");
    }
}

std::shared_ptr<iscsi_link> iscsi_source::scan_link_of(const iscsi_endpoint& endpoint) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<iscsi_link>& link = scan_links_[target_text(endpoint)];
    if (!link) {
        link = std::make_shared<iscsi_link>(endpoint);
    }
    return link;
}

std::vector<iscsi_endpoint> iscsi_source::targets_of(const iscsi_entry& entry) {
    if (!entry.target.empty()) {
        return {endpoint_of(entry, entry.portal, entry.target)};
    }
    const std::string portal = entry.portal.text();
    const io_deadline deadline = io_clock::now() + std::chrono::seconds(patience_with(portal));
    std::uint32_t failure = 0;
    std::string reason;
    std::vector<iscsi_found_target> found;
    const auto session = iscsi_session::connect(endpoint_of(entry, entry.portal, ""), deadline, failure, reason);
    if (session && !session->discover(found, deadline)) {
        reason = "the discovery of targets failed";
    }
    note(portal, reason, !reason.empty() && io_clock::now() >= deadline);
    std::vector<iscsi_endpoint> endpoints;
    for (const iscsi_found_target& target : found) {
        // The portal that discovery was asked at is known to be reachable; others need not be.
        const bool same =
            target.portals.empty() || std::find(target.portals.begin(), target.portals.end(), entry.portal) != target.portals.end();
        endpoints.push_back(endpoint_of(entry, same ? entry.portal : target.portals.front(), target.name));
    }
    std::sort(endpoints.begin(), endpoints.end(),
              [](const iscsi_endpoint& a, const iscsi_endpoint& b) { return a.target < b.target; });
    return endpoints;
}

std::vector<std::uint8_t> iscsi_source::units_of(const iscsi_endpoint& endpoint, const std::shared_ptr<iscsi_link>& link,
                                                 const iscsi_entry& entry, std::int64_t seconds) {
    constexpr std::uint16_t room = 8 + 256 * 8;
    const auto begun = io_clock::now();
    iscsi_transport first_unit(link, 0);
    std::vector<std::uint8_t> answer(room);
    const auto outcome = device_stack::receive(first_unit,
                                               {device_stack::opcode::report_luns, 0, 0, 0, 0, 0, 0, 0,
                                                static_cast<std::uint8_t>(room >> 8), static_cast<std::uint8_t>(room & 0xFF), 0, 0},
                                               answer, seconds);
    const std::string failure = link->last_failure();
    const bool failed = device_stack::system_error_of(outcome) != error::success;
    note(target_text(endpoint),
         !failed           ? ""
         : failure.empty() ? "it does not tell its logical units"
                           : failure,
         io_clock::now() - begun >= std::chrono::seconds(seconds));
    if (failed) {
        return {};
    }
    std::vector<std::uint8_t> luns = decode_lun_list(answer);
    if (entry.lun) {
        std::erase_if(luns, [&](std::uint8_t lun) { return lun != *entry.lun; });
    }
    return luns;
}

/// False for a unit that doesn't answer, isn't there or is of another kind.
bool iscsi_source::identify(iscsi_transport& transport, std::int64_t seconds, logical_unit_info& info) {
    std::vector<std::uint8_t> data;
    if (device_stack::system_error_of(device_stack::inquire(transport, data, seconds)) != error::success) {
        return false;
    }
    // Bits 5 to 7 tell whether there is a unit at all.
    info.peripheral_type = util::load_u8(data, 0);
    if (info.peripheral_type != device_stack::peripheral_type::tape &&
        info.peripheral_type != device_stack::peripheral_type::medium_changer) {
        return false;
    }
    const auto page = device_stack::inquire_page(transport, device_stack::vital_product_page::unit_serial_number, data, seconds);
    if (device_stack::system_error_of(page) == error::success) {
        info.serial = device_stack::serial_of_page(data);
    }
    return true;
}

std::vector<iscsi_source::found_unit> iscsi_source::scan_target(const iscsi_entry& entry, const iscsi_endpoint& endpoint) {
    const std::string name = target_text(endpoint);
    const std::uint32_t number = target_number(name);
    const std::shared_ptr<iscsi_link> link = scan_link_of(endpoint);
    const std::int64_t seconds = patience_with(name);
    std::vector<found_unit> units;
    for (const std::uint8_t lun : units_of(endpoint, link, entry, seconds)) {
        iscsi_transport transport(link, lun);
        found_unit found;
        if (identify(transport, seconds, found.info)) {
            found.endpoint = endpoint;
            found.info.identity = "iscsi://" + name + "/" + std::to_string(lun);
            found.info.location = {0, static_cast<std::uint8_t>((number >> 8) & 0xFF), static_cast<std::uint8_t>(number & 0xFF),
                                   lun};
            units.push_back(std::move(found));
        } else if (!link->last_failure().empty()) {
            break;  // the target has died on the way; each further unit would cost a wait of its own
        }
    }
    return units;
}

std::vector<iscsi_source::found_unit> iscsi_source::scan_entry(const iscsi_entry& entry) {
    const std::vector<iscsi_endpoint> endpoints = targets_of(entry);
    // The numbers of targets are given in their order, not in that of their threads.
    for (const iscsi_endpoint& endpoint : endpoints) {
        static_cast<void>(target_number(target_text(endpoint)));
    }
    const auto policy = endpoints.size() == 1 ? std::launch::deferred : std::launch::async;
    std::vector<found_unit> units;
    for (std::size_t next = 0; next < endpoints.size();) {
        std::vector<std::future<std::vector<found_unit>>> scans;
        for (; next < endpoints.size() && scans.size() < most_scans_at_once; ++next) {
            scans.push_back(
                std::async(policy, [this, &entry, &endpoint = endpoints[next]] { return scan_target(entry, endpoint); }));
        }
        for (auto& scan : scans) {
            std::vector<found_unit> found = scan.get();
            std::move(found.begin(), found.end(), std::back_inserter(units));
        }
    }
    return units;
}

std::vector<logical_unit_info> iscsi_source::enumerate() {
    std::vector<std::future<std::vector<found_unit>>> scans;
    for (const iscsi_entry& entry : options_.entries) {
        // A single entry needs no thread of its own.
        const auto policy = options_.entries.size() == 1 ? std::launch::deferred : std::launch::async;
        scans.push_back(std::async(policy, [this, &entry] { return scan_entry(entry); }));
    }
    std::vector<logical_unit_info> infos;
    std::map<std::string, known_unit> units;
    for (auto& scan : scans) {
        for (found_unit& found : scan.get()) {
            known_unit known{std::move(found.endpoint), found.info.location.lun, found.info.peripheral_type, nullptr};
            if (units.emplace(found.info.identity, std::move(known)).second) {
                infos.push_back(std::move(found.info));
            }
        }
    }
    std::map<std::string, known_unit> gone;  // outlives the lock: ending sessions may take their time
    const std::lock_guard lock(mutex_);
    for (auto& [identity, known] : units) {
        if (const auto former = units_.find(identity); former != units_.end()) {
            known.link = former->second.link;
        }
    }
    gone = std::exchange(units_, std::move(units));
    return infos;
}

std::shared_ptr<device_stack::scsi_transport> iscsi_source::open(const std::string& identity, std::uint32_t& failure) {
    std::shared_ptr<iscsi_transport> transport;
    std::uint8_t expected_type = 0;
    {
        const std::lock_guard lock(mutex_);
        const auto known = units_.find(identity);
        if (known == units_.end()) {
            failure = error::file_not_found;
            return nullptr;
        }
        if (!known->second.link) {
            known->second.link = std::make_shared<iscsi_link>(known->second.endpoint);
        }
        transport = std::make_shared<iscsi_transport>(known->second.link, known->second.lun);
        expected_type = known->second.peripheral_type;
    }
    std::vector<std::uint8_t> data;
    failure = device_stack::system_error_of(device_stack::inquire(*transport, data, open_seconds));
    if (failure == error::success && util::load_u8(data, 0) != expected_type) {
        failure = error::file_not_found;
    }
    return failure == error::success ? transport : nullptr;
}

}  // namespace platform::linux_scsi
