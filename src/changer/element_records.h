#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "changer/changer_commands.h"
#include "changer/changer_interface.h"
#include "changer/element_status_data.h"

/// Parsed form of one element descriptor of READ ELEMENT STATUS data, and the status record made of it. Bytes that the
/// descriptor lacks read as zero. A page of a type that the address map lacks fails with `std::out_of_range`.
struct CScsiElementRecord {
    CScsiElementRecord(std::span<const std::uint8_t> descriptor, const element_status_page_t& page, const element_map_t& map);

    std::uint16_t address = 0;  ///< zero-based within its type
    bool full = false;
    bool except = false;
    bool access = false;
    std::uint8_t logical_unit = 0;
    std::uint8_t bus_address = 0;
    bool source_valid = false;
    std::uint32_t exception_code = 0;  ///< additional sense code in the higher byte, its qualifier in the lower
    bool invert = false;
    std::uint16_t source_address = 0;  ///< absolute while `source_type` is 0
    std::uint8_t source_type = 0;
    std::uint32_t flags = 0;
    std::string volume_tag;
    CHANGER_ELEMENT_STATUS_EX status;

private:
    void LocateSource(const element_map_t& map);
    void FillStatus(std::uint8_t element_type);
};

/// A data transfer element, with what its device identifier says.
struct CScsiDriveElementRecord : CScsiElementRecord {
    /// `descriptor_length` is the length that the identifier's place is derived from: the page's own, as a rule.
    CScsiDriveElementRecord(std::span<const std::uint8_t> descriptor, const element_status_page_t& page, const element_map_t& map,
                            std::uint16_t descriptor_length);

    std::uint8_t code_set = 0;
    std::uint8_t identifier_type = 0;
    std::uint8_t identifier_length = 0;
    std::string vendor;
    std::string product;
    std::string serial;

private:
    void ReadIdentifier(std::span<const std::uint8_t> descriptor, std::size_t tag, int descriptor_length);
};

/// Takes a drive's descriptor that is full and carries both tag and product data.
using notable_descriptor = std::function<void(std::span<const std::uint8_t>)>;

/// The status records of READ ELEMENT STATUS data. What was asked for decides how descriptors are parsed, the pages decide
/// what elements they are.
[[nodiscard]] std::vector<CHANGER_ELEMENT_STATUS_EX> ParseElementStatusData(std::span<const std::uint8_t> data,
                                                                            ELEMENT_TYPE requested, const element_map_t& map,
                                                                            const notable_descriptor& notable);

/// Serial numbers of the drives in READ ELEMENT STATUS data that give a T10 vendor identifier.
[[nodiscard]] std::vector<std::string> ParseIdentifiedSerials(std::span<const std::uint8_t> data, const element_map_t& map);
