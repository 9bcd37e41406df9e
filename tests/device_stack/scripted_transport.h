#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/device_stack/scsi_transport.h"

/// A logical unit that plays answers from a list and records each command.
class scripted_transport : public platform::device_stack::scsi_transport {
public:
    struct sent_command {
        std::vector<std::uint8_t> cdb;
        platform::device_stack::data_direction direction = platform::device_stack::data_direction::none;
        std::size_t room = 0;
        std::vector<std::uint8_t> outgoing;
        std::int64_t timeout_seconds = 0;
    };
    using handler = std::function<platform::device_stack::scsi_outcome(const platform::device_stack::scsi_command&)>;

    /// Status 0 with this data, cut at the room that the command has.
    void answer(std::vector<std::uint8_t> data = {}) {
        answers_.push_back([data = std::move(data)](const platform::device_stack::scsi_command& command) {
            platform::device_stack::scsi_outcome outcome;
            const std::size_t count = std::min(data.size(), command.data.size());
            std::copy_n(data.begin(), count, command.data.begin());
            const bool sends = command.direction == platform::device_stack::data_direction::to_device;
            outcome.transferred = static_cast<std::uint32_t>(sends ? command.data.size() : count);
            return outcome;
        });
    }

    /// CHECK CONDITION with current sense in fixed format.
    void check_condition(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) { status(2, fixed_sense(key, asc, ascq)); }

    void status(std::uint8_t scsi_status, std::vector<std::uint8_t> sense = {}) {
        answers_.push_back([scsi_status, sense = std::move(sense)](const auto&) {
            platform::device_stack::scsi_outcome outcome;
            outcome.scsi_status = scsi_status;
            outcome.sense = sense;
            return outcome;
        });
    }

    void transport_error(std::uint32_t code) {
        answers_.push_back([code](const auto&) {
            platform::device_stack::scsi_outcome outcome;
            outcome.transport_error = code;
            return outcome;
        });
    }

    /// Answers all commands that no entry of the list is left for.
    void otherwise(handler answer) { otherwise_ = std::move(answer); }

    platform::device_stack::scsi_outcome execute(const platform::device_stack::scsi_command& command) override {
        sent_command record;
        record.cdb.assign(command.cdb.begin(), command.cdb.begin() + command.cdb_length);
        record.direction = command.direction;
        record.room = command.data.size();
        if (command.direction == platform::device_stack::data_direction::to_device) {
            record.outgoing.assign(command.data.begin(), command.data.end());
        }
        record.timeout_seconds = command.timeout_seconds;
        sent.push_back(std::move(record));
        if (answers_.empty()) {
            if (otherwise_) {
                return otherwise_(command);
            }
            platform::device_stack::scsi_outcome outcome;
            outcome.transport_error = 0xDEAD;  // the test expected no such command
            return outcome;
        }
        const handler next = std::move(answers_.front());
        answers_.pop_front();
        return next(command);
    }

    static std::vector<std::uint8_t> fixed_sense(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq) {
        return {0x70, 0, key, 0, 0, 0, 0, 10, 0, 0, 0, 0, asc, ascq, 0, 0, 0, 0};
    }

    std::vector<sent_command> sent;

private:
    std::deque<handler> answers_;
    handler otherwise_;
};

/// A source whose units a test plugs and pulls.
class scripted_source : public platform::device_stack::scsi_source {
public:
    std::vector<platform::device_stack::logical_unit_info> enumerate() override {
        ++looks;
        return units;
    }

    std::shared_ptr<platform::device_stack::scsi_transport> open(const std::string& identity, std::uint32_t& failure) override {
        opened.push_back(identity);
        const auto found = std::find_if(units.begin(), units.end(), [&](const auto& unit) { return unit.identity == identity; });
        if (found == units.end()) {
            failure = 2;
            return nullptr;
        }
        if (open_failure != 0) {
            failure = open_failure;
            return nullptr;
        }
        return transport;
    }

    void add(std::uint8_t type, const std::string& identity, const std::string& serial,
             platform::device_stack::scsi_location location) {
        units.push_back({type, identity, serial, location});
    }

    void pull(const std::string& identity) {
        std::erase_if(units, [&](const auto& unit) { return unit.identity == identity; });
    }

    std::vector<platform::device_stack::logical_unit_info> units;
    std::shared_ptr<scripted_transport> transport = std::make_shared<scripted_transport>();
    std::vector<std::string> opened;
    std::uint32_t open_failure = 0;
    int looks = 0;
};
