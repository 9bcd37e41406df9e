#include "foundation/win/paths.h"

#include <algorithm>
#include <vector>

#include "foundation/exc/exceptions.h"
#include "foundation/util/common_lib_ctx.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/system.h"

namespace win {

namespace {

constexpr std::u16string_view separators = u"/\\";
constexpr std::u16string_view network_prefix = u"\\\\";

std::u16string_view without_separators_behind(std::u16string_view path) {
    return path.substr(0, path.find_last_not_of(separators) + 1);
}

std::vector<std::u16string_view> parts_of(std::u16string_view path) {
    std::vector<std::u16string_view> parts;
    std::size_t at = 0;
    while ((at = path.find_first_not_of(separators, at)) != std::u16string_view::npos) {
        const std::size_t end = std::min(path.find_first_of(separators, at), path.size());
        parts.push_back(path.substr(at, end - at));
        at = end;
    }
    return parts;
}

/// The path as the system is asked for it, if this process may touch it.
std::u16string permitted(std::u16string_view path) {
    std::u16string whole(path);
    common_lib_ctx().files_access_permissions().check(whole);
    return whole;
}

platform::path_kind kind_of(std::u16string_view path, std::string_view failure) {
    const std::u16string_view bare = without_separators_behind(path);
    auto kind = platform::path_kind::absent;
    // Nothing but separators: the root.
    const std::u16string asked = permitted(bare.empty() ? path : bare);
    if (asked.empty()) {
        return kind;
    }
    if (const std::uint32_t code = platform::system().files->look_up(asked, kind)) {
        throw exc::win_sys_exc_t(failure, text::wide_to_utf8(path), code);
    }
    return kind;
}

void make_one_folder(std::u16string_view path) {
    const std::uint32_t code = platform::system().files->create_folder(permitted(path));
    // Another thread or process may have been quicker.
    if (code == platform::error::success || (code == platform::error::already_exists && folder_exists(path))) {
        return;
    }
    throw exc::win_sys_exc_t("CreateDirectory(%1) function call failed.", text::wide_to_utf8(path), code);
}

void check_moved(std::uint32_t code, std::u16string_view from, std::u16string_view to) {
    if (code != platform::error::success) {
        throw exc::win_sys_exc_t("Failed to move file [%1] to [%2].", text::wide_to_utf8(from), text::wide_to_utf8(to), code);
    }
}

[[noreturn]] void throw_invalid(std::u16string_view path) {
    throw exc::runtime_exc_t("Invalid folder path: [%1].", text::wide_to_utf8(path));
}

/// A share can't be made, so a network path needs something behind server and share.
bool lacks_share(std::u16string_view path, std::u16string_view parent) {
    return path.find_first_of(separators, network_prefix.size()) == std::u16string_view::npos || parent == network_prefix;
}

}  // namespace

text::wide_string join_path(std::u16string_view a, std::u16string_view b) {
    if (a.empty() || b.empty()) {
        return text::wide_string(a.empty() ? b : a);
    }
    text::wide_string joined(without_separators_behind(a));
    joined += platform::system().files->separator();
    const std::size_t start = b.find_first_not_of(separators);
    joined += start == std::u16string_view::npos ? std::u16string_view() : b.substr(start);
    return joined;
}

text::wide_string parent_path(std::u16string_view path) {
    const std::size_t last = path.find_last_of(separators);
    return last == std::u16string_view::npos ? text::wide_string() : text::wide_string(path.substr(0, last));
}

void split_path(std::u16string_view path, text::wide_string& folder, text::wide_string& name) {
    const std::size_t last = path.find_last_of(separators);
    const bool separated = last != std::u16string_view::npos;
    const text::wide_string whole(path);
    folder = separated ? whole.substr(0, last) : text::wide_string();
    name = separated ? whole.substr(last + 1) : whole;
}

path_relation_t path_relation(std::u16string_view path, std::u16string_view base) {
    if (path == base) {
        return path_relation_t::equal;
    }
    const std::vector<std::u16string_view> own = parts_of(path);
    const std::vector<std::u16string_view> of_base = parts_of(base);
    if (own.size() < of_base.size()) {
        return path_relation_t::different;
    }
    return std::equal(of_base.begin(), of_base.end(), own.begin()) ? path_relation_t::inside : path_relation_t::different;
}

text::wide_string temp_folder() {
    text::wide_string folder;
    if (const std::uint32_t code = platform::system().files->temp_folder(folder)) {
        throw exc::win_sys_exc_t("Cannot retrieve the path to the temporary directory. GetTempPath() failed.", code);
    }
    return folder;
}

bool file_exists(std::u16string_view path) {
    return kind_of(path, "Failed to check whether file '%1' exists.") == platform::path_kind::file;
}

bool folder_exists(std::u16string_view path) {
    return kind_of(path, "Failed to check whether folder '%1' exists.") == platform::path_kind::folder;
}

void delete_file(std::u16string_view path) {
    if (const std::uint32_t code = platform::system().files->remove_file(permitted(path))) {
        throw exc::win_sys_exc_t("Failed to delete file [%1].", text::wide_to_utf8(path), code);
    }
}

void move_file(std::u16string_view from, std::u16string_view to) {
    check_moved(platform::system().files->rename_file(permitted(from), permitted(to)), from, to);
}

void move_file_durably(std::u16string_view from, std::u16string_view to) {
    check_moved(platform::system().files->rename_file_durably(permitted(from), permitted(to)), from, to);
}

long_path_kind_t is_long_path(std::u16string_view path) {
    if (path.starts_with(u"\\\\?\\UNC")) {
        return long_path_kind_t::network;
    }
    if (path.starts_with(u"\\\\?\\")) {
        return long_path_kind_t::local;
    }
    return path.starts_with(network_prefix) ? long_path_kind_t::network : long_path_kind_t::none;
}

text::wide_string to_long_path(std::u16string_view path) {
    if (path.starts_with(network_prefix)) {
        return text::wide_string(u"\\\\?\\UNC\\").append(path.substr(network_prefix.size()));
    }
    return text::wide_string(u"\\\\?\\").append(path);
}

text::wide_string strip_long_prefix(std::u16string_view path) {
    for (const std::u16string_view prefix : {u"\\\\?\\UNC\\", u"//?/UNC/"}) {
        if (path.starts_with(prefix)) {
            return text::wide_string(network_prefix).append(path.substr(prefix.size()));
        }
    }
    for (const std::u16string_view prefix : {u"\\\\?\\", u"//?/"}) {
        if (path.starts_with(prefix)) {
            return text::wide_string(path.substr(prefix.size()));
        }
    }
    return text::wide_string(path);
}

void create_folder(std::u16string_view path) {
    if (folder_exists(path)) {
        return;
    }
    if (path.size() >= 2 && path.back() == u':') {
        make_one_folder(path);
        return;
    }
    const text::wide_string parent = parent_path(path);
    const bool below_root = parent.empty() && !path.empty() && path.front() == u'/';
    if (parent.empty() && !below_root) {
        throw_invalid(path);
    }
    if (path.starts_with(network_prefix) && lacks_share(path, parent)) {
        throw_invalid(path);
    }
    if (!below_root) {
        create_folder(parent);
    }
    make_one_folder(path);
}

void ensure_parent_folder(std::u16string_view path) {
    create_folder(parent_path(path));
}

}  // namespace win
