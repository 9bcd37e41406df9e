#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/changer_records.h"
#include "platform/virtual_library/personality.h"
#include "platform/virtual_library/sense.h"
#include "platform/virtual_library/xml_values.h"

namespace platform::tape_library {

struct cartridge {
    std::string barcode;
    bool write_protected = false;
    bool worm = false;
    bool cleaning = false;
    std::optional<std::uint16_t> source;  ///< address of the element it came from, as the personality tracks it
    bool by_operator = false;             ///< put into a port by hand, not by the robot
    std::uint32_t capacity = 0;           ///< MiB
    std::uint32_t used = 0;               ///< MiB
    std::uint64_t written = 0;            ///< MB in the cartridge's life
    std::uint64_t read = 0;               ///< MB in the cartridge's life
    std::uint32_t loads = 0;              ///< how often it was put into a drive
};

struct element {
    std::optional<cartridge> medium;
    bool loaded = false;          ///< of a drive: the tape is threaded, not just pushed in
    sense_code exception;         ///< other than `sense::none`: the element is in an abnormal state
    std::uint32_t loads = 0;      ///< of a drive: cartridges that were put into it
    std::uint32_t cleanings = 0;  ///< of a drive: those of them that cleaned it
};

/// The elements of one type.
struct element_group {
    ELEMENT_TYPE type = AllElements;
    std::uint16_t first = 0;
    std::vector<element> elements;

    [[nodiscard]] std::uint32_t end() const { return std::uint32_t{first} + static_cast<std::uint32_t>(elements.size()); }
    [[nodiscard]] bool has(std::uint16_t address) const { return address >= first && address < end(); }
};

/// What is where. Not guarded: the library's mutex is.
class inventory {
public:
    /// With the cartridges where the personality puts them at the first start.
    explicit inventory(const personality& made_of);

    /// The four groups in ascending order of their addresses.
    [[nodiscard]] const std::array<element_group, 4>& groups() const { return groups_; }
    [[nodiscard]] const element_group& group(ELEMENT_TYPE type) const;

    /// Null when there is no such element.
    [[nodiscard]] element* find(std::uint16_t address);
    [[nodiscard]] const element* find(std::uint16_t address) const;
    /// `AllElements` when there is no such element.
    [[nodiscard]] ELEMENT_TYPE type_of(std::uint16_t address) const;

    /// One as an operator brings it.
    [[nodiscard]] cartridge blank_cartridge(const std::string& barcode) const;

    [[nodiscard]] std::optional<std::uint16_t> locate(std::string_view barcode) const;

    /// Moves a cartridge and notes where it came from. The source is full, the destination empty.
    void move(std::uint16_t source, std::uint16_t destination);
    /// Puts the source's cartridge into the first destination and that one's former cartridge into the second, which is empty or
    /// the source itself.
    void exchange(std::uint16_t source, std::uint16_t first_destination, std::uint16_t second_destination);

    /// The inventory as the state file keeps it.
    [[nodiscard]] std::string to_text() const;
    /// Takes over what a state file says. Throws `library_error` and leaves things undefined when it doesn't fit this library.
    void from_text(std::string_view text, const std::string& path);

private:
    [[nodiscard]] const element_group* group_of(std::uint16_t address) const;
    /// Takes a cartridge out and notes where it came from.
    [[nodiscard]] cartridge take(std::uint16_t address);
    void put(cartridge medium, std::uint16_t address);
    void read_cartridge(const xml_values& values, const winxml::node_t& node, const std::map<std::string, cartridge>& known);
    void read_drive(const xml_values& values, const winxml::node_t& node);

    bool track_storage_only_;
    std::uint32_t capacity_;
    std::array<element_group, 4> groups_;
};

}  // namespace platform::tape_library
