#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "changer/changer_interface.h"

/// What the diagnostic actions record of whole changers and of everything.
namespace diagnostics {

/// Opens by the class driver, unless the settings say otherwise, under a lock that nobody else knows.
[[nodiscard]] boost::shared_ptr<IChangerHandle> OpenChanger(const std::string& link);
/// Throws `exc::runtime_exc_t` when the list is empty.
[[nodiscard]] boost::shared_ptr<IChangerHandle> OpenFirstChanger(const std::vector<std::string>& links);

enum class dump_form : std::uint8_t {
    full = 0,
    quick = 1  ///< without import and export ports, whose doors people open
};

/// Everything about the first changer, into "./changer.xml".
void RecordFirstChanger();

/// Every changer, then every drive, into "./dumpinformation.xml". The file is written again after each piece, so that a device that
/// hangs, or takes the process with it, leaves what was gathered before. A section that fails is logged and left as it is.
void RecordDump(dump_form form);

}  // namespace diagnostics
