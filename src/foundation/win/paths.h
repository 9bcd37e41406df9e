#pragma once

#include <cstdint>

#include "foundation/text/conversion.h"

namespace win {

/// Paths are UTF-16. What touches a path asks the process's file access permissions first. Both the slash and the backslash
/// separate their parts, on every system; what is joined here is joined with the system's own separator.

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

/// Folder for temporary files. Throws `exc::win_sys_exc_t`.
[[nodiscard]] text::wide_string temp_folder();

/// Whether there is a file, or a folder, of that name; a separator at the end is not looked at. Throw `exc::win_sys_exc_t` when
/// the system can't tell.
[[nodiscard]] bool file_exists(std::u16string_view path);
[[nodiscard]] bool folder_exists(std::u16string_view path);
/// All throw `exc::win_sys_exc_t`. A move replaces nothing. The durable one outlives a loss of power, and so do the moves before it
/// in the same folder.
void delete_file(std::u16string_view path);
void move_file(std::u16string_view from, std::u16string_view to);
void move_file_durably(std::u16string_view from, std::u16string_view to);

/// Windows takes paths beyond 260 units only behind a prefix, which comes in one form for the machine's own paths and in another
/// for network shares. These work on texts alone, so they are the same on every system.
enum class long_path_kind_t : std::uint8_t { local = 0, network = 1, none = 2 };
/// `network` for a share without the prefix, too; `none` for any other path without it.
[[nodiscard]] long_path_kind_t is_long_path(std::u16string_view path);
[[nodiscard]] text::wide_string to_long_path(std::u16string_view path);
/// Leaves a path without the prefix as it is.
[[nodiscard]] text::wide_string strip_long_prefix(std::u16string_view path);

/// Makes a folder and those above it that are missing. Throws `exc::win_sys_exc_t` when the system refuses one, and
/// `exc::runtime_exc_t` for a path that can't name a folder.
void create_folder(std::u16string_view path);
/// The same for the folder that a file lies in.
void ensure_parent_folder(std::u16string_view path);

}  // namespace win
