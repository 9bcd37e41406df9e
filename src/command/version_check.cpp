#include "command/version_check.h"

#include <tuple>
#include <vector>

#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "platform/process.h"
#include "platform/system.h"

namespace {

std::vector<std::string> split_at_points(const std::string& text) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t point = text.find('.'); point != std::string::npos; point = text.find('.', start)) {
        parts.push_back(text.substr(start, point - start));
        start = point + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

std::uint32_t join_words(const std::string& upper, const std::string& lower) {
    return (static_cast<std::uint32_t>(text::to_int(upper)) << 16) | static_cast<std::uint32_t>(text::to_int(lower));
}

const char* version_failure_text(platform::version_failure failure) {
    switch (failure) {
        case platform::version_failure::size_unknown:
            return "Size of the version resource is unknown.";
        case platform::version_failure::read_failed:
            return "GetFileVersionInfo() function call has failed.";
        default:
            return "Module version cannot be extracted from the version resource.";
    }
}

}  // namespace

version_words SplitVersionString(const std::string& version) {
    const std::vector<std::string> parts = split_at_points(version);
    if (parts.size() != 4) {
        throw exc::runtime_exc_t("Failed to parse version string '%1'.", version);
    }
    return {join_words(parts[0], parts[1]), join_words(parts[2], parts[3])};
}

version_words ReadModuleVersion(const std::u16string& module_path) {
    try {
        const platform::module_version version = platform::system().process->version_of(module_path);
        if (version.failure != platform::version_failure::none) {
            throw exc::win_sys_exc_t(version_failure_text(version.failure), exc::last_error());
        }
        return {version.high, version.low};
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Cannot retrieve the version of the specified module. Module path: [%1].",
                                text::wide_to_utf8(module_path), e);
    }
}

std::string VersionText(const version_words& version) {
    return text::to_string(version.high >> 16) + "." + text::to_string(version.high & 0xFFFF) + "." +
           text::to_string(version.low >> 16) + "." + text::to_string(version.low & 0xFFFF);
}

bool CheckCompatibility(const std::u16string& console_version, const std::u16string& module_path) {
    const std::string console_text = text::wide_to_ansi(console_version);
    g_libraryLog.LogInfo("Checking compatibility with console version:'%1'. Module path: '%2'.", console_text,
                         text::wide_to_ansi(module_path));
    const version_words console = SplitVersionString(console_text);
    const version_words module = ReadModuleVersion(module_path);
    const bool compatible = std::tie(console.high, console.low) >= std::tie(module.high, module.low);
    g_libraryLog.LogInfo("Backup console is '%1' with module version: '%2'.", compatible ? "compatible" : "incompatible",
                         VersionText(module));
    return compatible;
}
