#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "changer/changer_world.h"
#include "changer/element_status_bytes.h"

namespace changer_tests {

/// How a backend is spoken to.
enum class backend { driver, scsi };

/// A library in a few lines: which elements are full, and what becomes of the next move commands. Serves both the class
/// driver's controls and SCSI commands by pass-through.
class robot {
public:
    using element = std::pair<std::uint32_t, std::uint32_t>;  ///< type, zero-based address

    /// What becomes of one move command.
    struct outcome {
        bool carried_out = true;
        std::uint32_t error = 0;  ///< the control fails with this, or `silent_failure`
        std::uint8_t status = 0;  ///< SCSI only: the device answers with this status
        bytes sense = {};
    };

    explicit robot(world& of) : world_(of) {
        world_.system.devices.on_control([this](const device_request& request) { return control(request); });
        world_.system.devices.on_direct([this](const device_request& request) { return command(request); });
    }

    void fill(ELEMENT_TYPE type, std::uint32_t address) { full_[{type, address}] = true; }
    void empty(ELEMENT_TYPE type, std::uint32_t address) { full_[{type, address}] = false; }
    [[nodiscard]] bool is_full(ELEMENT_TYPE type, std::uint32_t address) { return full_[{type, address}]; }
    /// Outcomes of the next moves, in order; then this one for ever.
    void next_moves(std::deque<outcome> outcomes) { outcomes_ = std::move(outcomes); }
    void all_moves(outcome always) { always_ = std::move(always); }
    /// Status reads fail with this; 0: no longer.
    void fail_status(std::uint32_t error) { status_error_ = error; }
    void on_status(std::function<void(element)> hook) { status_hook_ = std::move(hook); }

    std::size_t moves = 0;
    std::size_t status_reads = 0;

private:
    static constexpr std::uint16_t first_of[] = {0, 0x0001, 0x1000, 0x0010, 0x0100};

    outcome move(element from, element to) {
        ++moves;
        outcome result = always_;
        if (!outcomes_.empty()) {
            result = outcomes_.front();
            outcomes_.pop_front();
        }
        if (result.carried_out) {
            full_[from] = false;
            full_[to] = true;
        }
        return result;
    }

    device_answer control(const device_request& request) {
        if (request.code == platform::ioctl::changer_move_medium) {
            const auto asked = util::load_record<platform::CHANGER_MOVE_MEDIUM>(request.input);
            const outcome result = move({asked.Source.ElementType, asked.Source.ElementAddress},
                                        {asked.Destination.ElementType, asked.Destination.ElementAddress});
            return {result.error, {}, {}, {}};
        }
        if (request.code != platform::ioctl::changer_get_element_status) {
            return {1, {}, {}, {}};
        }
        const auto asked = util::load_record<platform::CHANGER_READ_ELEMENT_STATUS>(request.input);
        const element one{asked.Element.ElementType, asked.Element.ElementAddress};
        look(one);
        CHANGER_ELEMENT_STATUS_EX record;
        record.Element = asked.Element;
        record.Flags = (full_[one] ? 1u : 0u) | platform::ELEMENT_STATUS_PRODUCT_DATA;
        record.SerialNumber[0] = 'S';
        const auto raw = util::record_bytes(record);
        return {status_error_, {raw.begin(), raw.end()}, {}, {}};
    }

    device_answer command(const device_request& request) {
        using platform::testing::answer_scsi;
        const bytes cdb = platform::testing::cdb_of(request);
        if (cdb.at(0) == 0x1A) {
            bytes page = {23, 0, 0, 0, 0x1D, 18};
            for (int type = 1; type <= 4; ++type) {
                page = joined({page, big_endian(first_of[type], 2), big_endian(8, 2)});
            }
            return answer_scsi(request, 0, {}, padded(page, 24));
        }
        if (cdb.at(0) == 0xA5) {
            const outcome result = move(located(util::load_be16(cdb, 4)), located(util::load_be16(cdb, 6)));
            return result.error != 0 ? device_answer{result.error, {}, {}, {}} : answer_scsi(request, result.status, result.sense);
        }
        const element one = located(util::load_be16(cdb, 2));
        look(one);
        if (status_error_ != 0) {
            return {status_error_, {}, {}, {}};
        }
        const bytes descriptor = padded(joined({{cdb[2], cdb[3]}, {static_cast<std::uint8_t>(full_[one] ? 9 : 8)}}), 16);
        return answer_scsi(request, 0, {}, element_status({{static_cast<std::uint8_t>(one.first), false, {descriptor}}}));
    }

    void look(element one) {
        ++status_reads;
        if (status_hook_) {
            status_hook_(one);
        }
    }

    static element located(std::uint16_t address) {
        for (const std::uint32_t type : {2u, 4u, 3u, 1u}) {
            if (address >= first_of[type]) {
                return {type, address - first_of[type]};
            }
        }
        return {0, address};
    }

    world& world_;
    std::map<element, bool> full_;
    std::deque<outcome> outcomes_;
    outcome always_;
    std::uint32_t status_error_ = 0;
    std::function<void(element)> status_hook_;
};

}  // namespace changer_tests
