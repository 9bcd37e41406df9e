#pragma once

#include <cstdint>
#include <string>

/// A version of four parts: major and minor in the high word, build and revision in the low one.
struct version_words {
    std::uint32_t high = 0;
    std::uint32_t low = 0;
};

/// Reads "a.b.c.d", decimals. The parts are not checked for range: one above 65535 spills into its neighbour. Throws
/// `exc::runtime_exc_t` when there aren't four.
[[nodiscard]] version_words SplitVersionString(const std::string& version);

/// Fixed file version of a module; throws `exc::win_sys_exc_t`.
[[nodiscard]] version_words ReadModuleVersion(const std::u16string& module_path);

/// The four parts as decimals, joined by points.
[[nodiscard]] std::string VersionText(const version_words& version);

/// Whether a console of this version can work with the module: it can unless it is older.
[[nodiscard]] bool CheckCompatibility(const std::u16string& console_version, const std::u16string& module_path);
