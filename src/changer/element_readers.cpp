#include "changer/element_readers.h"

#include <algorithm>
#include <utility>

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/util/bytes.h"

std::vector<CHANGER_ELEMENT_STATUS_EX> ReadByPortions(const element_block_reader& read, std::uint16_t first, std::uint16_t count,
                                                      std::uint16_t portion) {
    std::vector<CHANGER_ELEMENT_STATUS_EX> records;
    records.reserve(count);
    std::uint16_t address = first;
    std::uint16_t remaining = count;
    if (portion == 0 && remaining != 0) {
        // Reading nothing again and again would hold the changer for ever.
        throw exc::runtime_exc_t("No elements can be read in portions of 0.");
    }
    while (remaining != 0) {
        const std::vector<CHANGER_ELEMENT_STATUS_EX> block = read(address, std::min(portion, remaining));
        records.insert(records.end(), block.begin(), block.end());
        if (remaining < portion) {
            break;
        }
        remaining = static_cast<std::uint16_t>(remaining - portion);
        address = static_cast<std::uint16_t>(address + portion);
    }
    return records;
}

std::string RecordSerial(const CHANGER_ELEMENT_STATUS_EX& record) {
    return util::text_to_nul(record.SerialNumber);
}

SerialNameList SerialNamesOf(const ElementStatusList& records, ELEMENT_TYPE type, const drive_serial_query& query) {
    SerialNameList names = boost::make_shared<std::vector<std::string>>();
    names->reserve(records->size());
    std::vector<std::string> queried;
    for (const CHANGER_ELEMENT_STATUS_EX& record : *records) {
        std::string name = RecordSerial(record);
        if (type == ChangerDrive && name.empty()) {
            const std::size_t index = names->size();
            g_log.LogInfo("Use Scsi query for '%1' element '%2'", text::to_string(std::uint64_t{index}), name);
            if (queried.empty()) {
                queried = query();
            }
            if (queried.size() > index) {
                name = queried[index];
            }
        }
        names->push_back(std::move(name));
    }
    return names;
}
