#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "changer/changer_interface.h"

/// What the element reads of both backends share.

/// Ports in one status request.
inline constexpr std::uint16_t port_portion = 10;

/// Reads `count` elements of one type from an address on, in one request.
using element_block_reader = std::function<std::vector<CHANGER_ELEMENT_STATUS_EX>(std::uint16_t first, std::uint16_t count)>;

/// Reads elements in requests of at most `portion`. A failure of one abandons all.
[[nodiscard]] std::vector<CHANGER_ELEMENT_STATUS_EX> ReadByPortions(const element_block_reader& read, std::uint16_t first,
                                                                    std::uint16_t count, std::uint16_t portion);

/// Text of a record's serial number field: up to its first NUL, all of it when it has none.
[[nodiscard]] std::string RecordSerial(const CHANGER_ELEMENT_STATUS_EX& record);

/// Asks the device for the serial numbers of its drives, in element order.
using drive_serial_query = std::function<std::vector<std::string>()>;

/// A name for each record, in order: its own serial number; for a drive without one, what the query has at that place. The
/// query runs when first needed, and again only while it comes back empty.
[[nodiscard]] SerialNameList SerialNamesOf(const ElementStatusList& records, ELEMENT_TYPE type, const drive_serial_query& query);

/// The sentence that is added to the failure of a status read that ran out of time.
inline constexpr char status_read_timed_out[] =
    "Timed out waiting for device ready status on ChangerGetElementStatus operation, element '%1' ";
