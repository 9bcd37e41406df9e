#pragma once

#include <cstdint>
#include <vector>

#include "foundation/text/conversion.h"

namespace crash {

/// As many dumps of a kind are kept in a folder, the new one included.
inline constexpr std::uint32_t most_dumps = 20;

/// The path for a new dump, NAME_crash_N.EXTENSION with the lowest free N. Makes the folder, and room: of `most_dumps` or more, the
/// oldest are deleted. Throws.
[[nodiscard]] text::wide_string next_dump_path(const text::wide_string& folder, const text::wide_string& name,
                                               const text::wide_string& extension);

/// The first of the names NAME_crash_0.EXTENSION to NAME_crash_9999.EXTENSION that isn't among the taken ones. Throws
/// `exc::runtime_exc_t` when there is none.
[[nodiscard]] text::wide_string free_dump_name(const std::vector<text::wide_string>& taken, const text::wide_string& name,
                                               const text::wide_string& extension);

}  // namespace crash
