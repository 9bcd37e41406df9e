#include "platform/linux/process.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "foundation/text/unicode.h"
#include "platform/linux/crash_signals.h"
#include "platform/linux/errors.h"

namespace platform::linux_os {

namespace {

constexpr std::uint32_t no_resource_section = 1812;

/// Fixed by the build.
constexpr std::uint32_t version_high = (std::uint32_t{TARNO_VERSION_MAJOR} << 16) | std::uint32_t{TARNO_VERSION_MINOR};
constexpr std::uint32_t version_low = (std::uint32_t{TARNO_VERSION_PATCH} << 16) | std::uint32_t{TARNO_VERSION_TWEAK};

std::string executable_path() {
    std::array<char, 4096> buffer{};
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length <= 0) {
        return {};
    }
    std::string path(buffer.data(), static_cast<std::size_t>(length));
    // An executable that a package update has replaced under the running process.
    constexpr std::string_view gone = " (deleted)";
    if (path.ends_with(gone) && access(path.c_str(), F_OK) != 0) {
        path.resize(path.size() - gone.size());
    }
    return path;
}

/// The value of a key in an os-release file: shell assignments, quoted when they hold blanks (os-release(5)).
std::string release_value(const std::string& path, std::string_view key) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (!line.starts_with(key) || line.size() <= key.size() || line[key.size()] != '=') {
            continue;
        }
        std::string_view text = std::string_view(line).substr(key.size() + 1);
        const bool quoted = text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
        if (quoted) {
            text = text.substr(1, text.size() - 2);
        }
        std::string value;
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] == '\\' && at + 1 < text.size()) {
                ++at;
            }
            value.push_back(text[at]);
        }
        return value;
    }
    return {};
}

/// Every thread that does anything of note comes by, whoever has started it: the place to make it ready for its own crash.
std::uint32_t first_meeting() {
    ready_current_thread_for_crash();
    return static_cast<std::uint32_t>(gettid());
}

std::string kernel_description() {
    utsname names{};
    if (uname(&names) != 0) {
        return "Linux";
    }
    return std::string(names.sysname) + " " + names.release + " " + names.machine;
}

}  // namespace

linux_process::linux_process(std::string etc, std::string usr_lib) : etc_(std::move(etc)), usr_lib_(std::move(usr_lib)) {}

std::u16string linux_process::module_path() {
    return text::unicode::decode_utf8_lenient(executable_path());
}

module_version linux_process::version_of(const std::u16string& module) {
    const std::string path = text::unicode::encode_utf8(module);
    if (path == executable_path()) {
        return {version_failure::none, version_high, version_low};
    }
    linux_errors{}.set_last_error(access(path.c_str(), F_OK) == 0 ? no_resource_section : error::file_not_found);
    return {version_failure::size_unknown, 0, 0};
}

std::u16string linux_process::comments_of(const std::u16string&) {
    return {};
}

std::vector<std::u16string> linux_process::command_line() {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::vector<std::u16string> arguments;
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = std::min(all.find('\0', at), all.size());
        arguments.push_back(text::unicode::decode_utf8_lenient(std::string_view(all).substr(at, end - at)));
        at = end + 1;
    }
    return arguments;
}

std::uint32_t linux_process::process_id() {
    return static_cast<std::uint32_t>(getpid());
}

std::string linux_process::os_description() {
    for (const std::string& folder : {etc_, usr_lib_}) {
        const std::string name = release_value(folder + "/os-release", "PRETTY_NAME");
        if (!name.empty()) {
            return name + ", " + kernel_description();
        }
    }
    return kernel_description();
}

std::uint32_t linux_process::current_thread_id() {
    // Every line of the log names its thread; the kernel is asked once. No process of this system forks and goes on as itself.
    thread_local const std::uint32_t id = first_meeting();
    return id;
}

std::uint32_t linux_process::processor_count() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    // More processors than the set has room for refuse to be read that way.
    const long count = sched_getaffinity(0, sizeof(allowed), &allowed) == 0 ? CPU_COUNT(&allowed) : sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? static_cast<std::uint32_t>(count) : 1;
}

}  // namespace platform::linux_os
