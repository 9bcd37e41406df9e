#include "foundation/crash/dump_files.h"

#include <map>
#include <set>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/util/common_lib_ctx.h"
#include "foundation/win/paths.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/system.h"

namespace crash {

namespace {

constexpr std::uint32_t dump_identifiers = 10000;
constexpr std::u16string_view infix = u"_crash_";

/// Names by the time of their last change. Several can have the same: the clocks of file systems are coarse.
using dumps_by_age = std::multimap<std::uint64_t, text::wide_string>;

dumps_by_age list_dumps(const text::wide_string& folder, const text::wide_string& name, const text::wide_string& extension) {
    try {
        std::vector<platform::folder_entry> entries;
        if (const std::uint32_t code =
                platform::system().files->list_folder(folder, name + text::wide_string(infix), u"." + extension, entries)) {
            throw exc::win_sys_exc_t(code);
        }
        dumps_by_age dumps;
        for (const platform::folder_entry& entry : entries) {
            dumps.emplace(entry.written, entry.name);
        }
        return dumps;
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Unable to enumerate dumps stored in a folder. Folder: [%1]. Dump extension: [%2].",
                                text::wide_to_utf8(folder), text::wide_to_utf8(extension), e);
    }
}

/// A dump that can't be deleted stays, and the next older one goes in its place.
void remove_old_dumps(const text::wide_string& folder, dumps_by_age& dumps) {
    for (auto oldest = dumps.begin(); dumps.size() >= most_dumps && oldest != dumps.end();) {
        const text::wide_string path = win::join_path(folder, oldest->second);
        const std::string shown = text::wide_to_utf8(path);
        common_lib_ctx().files_access_permissions().check(path);
        if (const std::uint32_t code = platform::system().files->remove_file(path)) {
            g_libraryLog.LogError("Old dump cannot be removed. Dump path: [%1].", shown, exc::win_sys_exc_t(code));
            ++oldest;
        } else {
            oldest = dumps.erase(oldest);
            g_libraryLog.LogInfo("Dump [%1] deleted.", shown);
        }
    }
    if (dumps.size() >= most_dumps) {
        throw exc::runtime_exc_t(
            "Cannot cleanup out of date dumps. There are [%1] dumps stored. Maximum allowed dumps number: [%2].",
            text::to_string(static_cast<std::uint64_t>(dumps.size())), text::to_string(most_dumps));
    }
}

}  // namespace

text::wide_string free_dump_name(const std::vector<text::wide_string>& taken, const text::wide_string& name,
                                 const text::wide_string& extension) {
    // The folder's list holds other cases of a name only where they are the same name.
    const auto below = [](const text::wide_string& left, const text::wide_string& right) {
        return text::compare_no_case(left, right) < 0;
    };
    const std::set<text::wide_string, decltype(below)> reserved(taken.begin(), taken.end(), below);
    for (std::uint32_t number = 0; number < dump_identifiers; ++number) {
        text::wide_string candidate = name;
        candidate.append(infix).append(text::to_wstring(number)).append(u".").append(extension);
        if (!reserved.contains(candidate)) {
            return candidate;
        }
    }
    throw exc::runtime_exc_t("All dump identifiers are reserved.");
}

text::wide_string next_dump_path(const text::wide_string& folder, const text::wide_string& name,
                                 const text::wide_string& extension) {
    try {
        win::create_folder(folder);
        dumps_by_age dumps = list_dumps(folder, name, extension);
        remove_old_dumps(folder, dumps);
        std::vector<text::wide_string> taken;
        for (const auto& [time, dump] : dumps) {
            taken.push_back(dump);
        }
        return win::join_path(folder, free_dump_name(taken, name, extension));
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Cannot define the name of the next crash dump. Dumps folder: [%1].", text::wide_to_utf8(folder),
                                e);
    }
}

}  // namespace crash
