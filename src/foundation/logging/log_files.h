#pragma once

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

#include "foundation/logging/log.h"
#include "foundation/text/conversion.h"

namespace logging {

/// Lines that wait for the log to be there.
using pending_lines = std::vector<std::string>;

/// The receiver for a log file, made with the folders that it needs. Only the first path is used. When another process holds the
/// file, a numbered neighbour serves; when the folder can't be made and it is the configured log folder, the default one does.
/// Null on failure, which stands in the pending lines then. `check`, if any, looks at the new receiver's size.
[[nodiscard]] boost::shared_ptr<receiver::log_file_t> open_log_file(const std::vector<text::wide_string>& paths,
                                                                    pending_lines& messages, size_check_t* check = nullptr);
/// The receiver for standard output; null on failure, likewise.
[[nodiscard]] boost::shared_ptr<receiver::log_file_t> open_stdout_log(pending_lines& messages);

/// Folder for logs: the configured one, else the one below the common data folder; empty when the system can't tell that.
[[nodiscard]] text::wide_string log_folder();
[[nodiscard]] text::wide_string default_log_path(std::u16string_view name);
/// The name of a log that another process may hold: 0 is the path itself, any other number stands before ".log".
[[nodiscard]] text::wide_string numbered_log_path(const text::wide_string& path, std::uint32_t number);

}  // namespace logging
