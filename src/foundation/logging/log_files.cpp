#include "foundation/logging/log_files.h"

#include <boost/make_shared.hpp>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/stdout_log.h"
#include "foundation/win/paths.h"
#include "foundation/win/reg_options.h"
#include "foundation/win/win_log_file.h"
#include "platform/files.h"
#include "platform/system.h"

namespace logging {

namespace {

constexpr std::u16string_view product_key = u"SOFTWARE\\Tarno\\Tarno Lodestore";
constexpr std::u16string_view log_directory_value = u"LogDirectory";
constexpr std::uint32_t most_names = 1000;

/// Empty when none is configured.
text::wide_string configured_folder() {
    const std::string folder = win::read_option(win::open_options_key(product_key), log_directory_value, std::string());
    return text::utf8_to_wide(folder);
}

text::wide_string default_folder() {
    const std::u16string common = platform::system().files->common_data_folder();
    return common.empty() ? common
                          : win::join_path(win::join_path(common, u"Tarno"), u"Backup") + platform::system().files->separator();
}

void make_folder_of(const text::wide_string& path) {
    // A bare name lies in the current folder.
    if (!win::parent_path(path).empty()) {
        win::ensure_parent_folder(path);
    }
}

/// Makes the folder of the log, or of its substitute; the path of the log to use.
text::wide_string with_folder(const text::wide_string& path) {
    try {
        make_folder_of(path);
        return path;
    } catch (const std::exception&) {
        const text::wide_string configured = configured_folder();
        if (configured.empty() || win::path_relation(path, configured) != win::path_relation_t::inside) {
            throw;
        }
    }
    text::wide_string folder;
    text::wide_string name;
    win::split_path(path, folder, name);
    text::wide_string substitute = win::join_path(default_folder(), name);
    make_folder_of(substitute);
    return substitute;
}

boost::shared_ptr<receiver::log_file_t> open_first_free(const text::wide_string& path) {
    for (std::uint32_t number = 0; number < most_names; ++number) {
        try {
            return boost::make_shared<win::win_log_file_t>(numbered_log_path(path, number));
        } catch (const exc::file_locked_exc_t&) {
            // Another process of the same program logs there.
            continue;
        }
    }
    throw exc::runtime_exc_t("All log files are locked.");
}

void add_failure(pending_lines& messages, const std::string& sentence, const std::exception& e) {
    messages.push_back("Error: " + sentence);
    messages.push_back(std::string("Error: ") + e.what());
}

}  // namespace

boost::shared_ptr<receiver::log_file_t> open_log_file(const std::vector<text::wide_string>& paths, pending_lines& messages,
                                                      size_check_t* check) {
    try {
        if (paths.empty()) {
            throw exc::runtime_exc_t("Log paths list is empty.");
        }
        boost::shared_ptr<receiver::log_file_t> receiver = open_first_free(with_folder(paths.front()));
        if (check != nullptr) {
            check->check(*receiver);
        }
        return receiver;
    } catch (const std::exception& e) {
        const std::string named = paths.empty() ? std::string("n/a") : text::wide_to_utf8(paths.front());
        add_failure(messages, text::format_message("Failed to initialize log [%1].", named), e);
        return {};
    }
}

boost::shared_ptr<receiver::log_file_t> open_stdout_log(pending_lines& messages) {
    try {
        return boost::make_shared<receiver::stdout_log_file_t>();
    } catch (const std::exception& e) {
        add_failure(messages, "Failed to initialize stdout log.", e);
        return {};
    }
}

text::wide_string log_folder() {
    text::wide_string configured = configured_folder();
    return configured.empty() ? default_folder() : configured;
}

text::wide_string default_log_path(std::u16string_view name) {
    return win::join_path(log_folder(), name);
}

text::wide_string numbered_log_path(const text::wide_string& path, std::uint32_t number) {
    if (number == 0) {
        return path;
    }
    const std::size_t dot = path.rfind(u'.');
    const bool cut = dot != std::u16string::npos && text::compare_no_case(std::u16string_view(path).substr(dot), u".log") == 0;
    const text::wide_string stem = cut ? path.substr(0, dot) : path;
    const text::wide_string tail = cut ? path.substr(dot) : text::wide_string();
    return stem + u"." + text::to_wstring(number) + tail;
}

}  // namespace logging
