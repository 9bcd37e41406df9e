#include "foundation/win/paths.h"

#include <algorithm>
#include <vector>

#include "foundation/exc/exceptions.h"
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

bool exists(std::u16string_view path) {
    const std::u16string_view bare = without_separators_behind(path);
    // Nothing but separators: the root.
    return platform::system().files->exists(std::u16string(bare.empty() ? path : bare));
}

void make_one_folder(std::u16string_view path) {
    const std::uint32_t code = platform::system().files->create_folder(std::u16string(path));
    // Another thread or process may have been quicker.
    if (code != platform::error::success && code != platform::error::already_exists) {
        throw exc::win_sys_exc_t("CreateDirectory(%1) function call failed.", text::wide_to_utf8(path), code);
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

bool file_exists(std::u16string_view path) {
    return exists(path);
}

bool folder_exists(std::u16string_view path) {
    return exists(path);
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
