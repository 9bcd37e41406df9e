#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/device_stack/scsi_transport.h"

namespace platform::device_stack {

/// One logical unit under the names that the system gives it.
struct unit {
    std::size_t source = 0;    ///< index of the source that found it
    logical_unit_info info;    ///< as the source tells it
    scsi_location location;    ///< where it sits among all sources: port numbers are made distinct
    std::uint32_t number = 0;  ///< among the units of its class; means nothing without a class driver
    std::string device_name;   ///< "Tape0", "Changer0"...; empty when no class driver serves it
    std::string class_object;  ///< object name of the class driver's device, "\Device\Tape0"; empty like the above
    std::string port_object;   ///< object name of the storage port's device
};

using unit_list = std::vector<unit>;

/// Gives names to what the sources find, and remembers them: a unit that is found again, even after an absence, gets the name
/// it had. New units take the lowest numbers that no unit has had. Not synchronised.
class unit_table {
public:
    /// `without_driver`: serial numbers of medium changers that no class driver serves. Compared without the blanks that pad them.
    explicit unit_table(const std::vector<std::string>& without_driver);

    /// Names what a look has found; one list for each source, in the sources' order.
    [[nodiscard]] unit_list name_units(const std::vector<std::vector<logical_unit_info>>& found);

private:
    /// Numbers given to keys, for good.
    template <typename Key>
    class numbering {
    public:
        /// The key's number: the one it had, else the wanted one if that is free, else the lowest free one.
        std::uint32_t number_of(const Key& key, std::uint32_t wanted = 0) {
            const auto known = numbers_.find(key);
            if (known != numbers_.end()) {
                return known->second;
            }
            std::uint32_t number = wanted;
            if (taken_.contains(number)) {
                for (number = 0; taken_.contains(number); ++number) {
                }
            }
            taken_.insert(number);
            numbers_.emplace(key, number);
            return number;
        }

    private:
        std::map<Key, std::uint32_t> numbers_;
        std::set<std::uint32_t> taken_;
    };

    using unit_key = std::pair<std::size_t, std::string>;
    using port_key = std::pair<std::size_t, std::uint8_t>;

    [[nodiscard]] bool is_driven(const logical_unit_info& info) const;

    std::set<std::string> without_driver_;
    numbering<unit_key> tapes_;
    numbering<unit_key> changers_;
    numbering<port_key> ports_;
};

}  // namespace platform::device_stack
