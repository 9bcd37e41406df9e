#include "platform/linux/linux_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "foundation/text/unicode.h"

namespace platform::linux_os {

namespace {

bool is_switch(std::u16string_view argument, std::u16string_view name) {
    return std::equal(argument.begin(), argument.end(), name.begin(), name.end(),
                      [](char16_t a, char16_t b) { return text::unicode::to_lower(a) == b; });
}

std::optional<std::string> switch_value(const std::vector<std::u16string>& command_line, std::u16string_view name) {
    const auto found = std::find_if(command_line.begin(), command_line.end(),
                                    [name](const std::u16string& argument) { return is_switch(argument, name); });
    if (found == command_line.end()) {
        return std::nullopt;
    }
    if (found + 1 == command_line.end() || (found + 1)->empty()) {
        throw std::runtime_error("The switch " + text::unicode::encode_utf8(name) + " needs a path behind it.");
    }
    return std::filesystem::absolute(text::unicode::encode_utf8(*(found + 1))).lexically_normal().string();
}

[[noreturn]] void refuse_folder(const std::string& folder, const char* what, int number) {
    std::string reason = linux_errors{}.system_text(from_errno(number)).value_or("");
    reason.erase(reason.find_last_not_of("\r\n") + 1);
    throw std::runtime_error("The state folder " + folder + " " + what + ": " + reason);
}

linux_registry::options registry_options(const system_paths& paths) {
    prepare_state_folder(paths.state_folder);
    return {paths.settings_file, paths.settings_named, paths.state_folder};
}

}  // namespace

system_paths read_paths(const std::vector<std::u16string>& command_line, const char* state_directory) {
    system_paths paths;
    if (const std::optional<std::string> named = switch_value(command_line, u"-settings")) {
        paths.settings_file = *named;
        paths.settings_named = true;
    }
    // Several folders come separated by colons (systemd.exec(5)).
    const std::string_view given = state_directory != nullptr ? state_directory : "";
    const std::string_view first = given.substr(0, given.find(':'));
    if (const std::optional<std::string> named = switch_value(command_line, u"-state")) {
        paths.state_folder = *named;
    } else if (!first.empty()) {
        paths.state_folder = first;
    }
    return paths;
}

void prepare_state_folder(const std::string& folder) {
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        refuse_folder(folder, "can't be made", errno == ENOENT ? ENOTDIR : errno);
    }
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        refuse_folder(folder, "can't be used", errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        throw std::runtime_error("The state folder " + folder + " is no folder.");
    }
    if (faccessat(AT_FDCWD, folder.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0) {
        refuse_folder(folder, "can't be written to", errno);
    }
}

linux_system::linux_system(const system_paths& paths)
    : paths_(paths), registry_(registry_options(paths)), settings_(read_linux_settings(registry_, paths.settings_file)) {
    set_.clock = &clock_;
    set_.com_runtime = &com_runtime_;
    set_.crash = &crash_;
    set_.debug_output = &debug_output_;
    set_.errors = &errors_;
    set_.events = &events_;
    set_.files = &files_;
    set_.process = &process_;
    set_.registry = &registry_;
    set_.text_encoding = &text_encoding_;
    set_.threads = &threads_;
}

}  // namespace platform::linux_os
