#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "foundation/text/conversion.h"

namespace logging {

/// Gives the process's log its receiver; done once, early in a program's entry. The log goes to the path behind the switch `-log`,
/// else to the default folder under `default_name`, and to standard output when that makes no path. From then on the log is rotated
/// when it reaches its limit. Never fails: without a receiver the process goes on, and its entries are dropped. The result is the
/// path of the log, or, where it couldn't be opened, the one that it was to have; empty for standard output.
text::wide_string initialize_log(std::u16string_view default_name, const std::vector<std::u16string>& command_line);

}  // namespace logging

/// True unless the command line holds `-verbose`. Kept for the console, which passes the switch; no output depends on it.
extern bool gTerseLog;
