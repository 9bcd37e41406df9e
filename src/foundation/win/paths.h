#pragma once

#include <cstdint>

#include "foundation/text/conversion.h"

namespace win {

/// Paths are UTF-16. Both the slash and the backslash separate their parts, on every system; what is joined here is joined with
/// the system's own separator.

/// An empty part gives the other one; else exactly one separator stands between them.
[[nodiscard]] text::wide_string join_path(std::u16string_view a, std::u16string_view b);
/// Everything before the last separator; empty without one.
[[nodiscard]] text::wide_string parent_path(std::u16string_view path);
/// Around the last separator; without one `folder` is empty and `name` the whole path.
void split_path(std::u16string_view path, text::wide_string& folder, text::wide_string& name);

enum class path_relation_t : std::uint8_t {
    inside = 1,    ///< every part of the base begins the path
    equal = 2,     ///< the same text
    different = 3  ///< a part differs
};
[[nodiscard]] path_relation_t path_relation(std::u16string_view path, std::u16string_view base);

/// A separator at the end is not looked at.
[[nodiscard]] bool file_exists(std::u16string_view path);
[[nodiscard]] bool folder_exists(std::u16string_view path);

/// Makes a folder and those above it that are missing. Throws `exc::win_sys_exc_t` when the system refuses one, and
/// `exc::runtime_exc_t` for a path that can't name a folder.
void create_folder(std::u16string_view path);
/// The same for the folder that a file lies in.
void ensure_parent_folder(std::u16string_view path);

}  // namespace win
