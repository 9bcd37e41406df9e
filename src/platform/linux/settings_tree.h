#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::linux_os {

/// Order of key and value names: case doesn't count, and numbers within names go by their value, so that unit 2 stands in front of
/// unit 10.
struct name_order {
    using is_transparent = void;
    [[nodiscard]] bool operator()(std::u16string_view left, std::u16string_view right) const;
};

struct settings_value {
    std::uint32_t type = 0;  ///< as in registry.h
    std::vector<std::uint8_t> data;

    [[nodiscard]] bool operator==(const settings_value&) const = default;
};

/// A key with its values and everything below it. Names keep the case they came with first.
struct settings_key {
    std::map<std::u16string, settings_value, name_order> values;  ///< the default value's name is empty
    std::map<std::u16string, settings_key, name_order> keys;
    std::size_t line = 0;  ///< where the file first names the key or one below it; 0 when it doesn't

    [[nodiscard]] bool operator==(const settings_key& other) const { return values == other.values && keys == other.keys; }
};

/// Components of a path that backslashes separate; empty ones don't count.
[[nodiscard]] std::vector<std::u16string> path_components(std::u16string_view path);
/// Null when there is none.
[[nodiscard]] const settings_key* find_key(const settings_key& root, const std::vector<std::u16string>& path);
/// Makes what is missing on the way.
settings_key& make_key(settings_key& root, const std::vector<std::u16string>& path);
/// With everything below it; nothing happens when it isn't there.
void remove_key(settings_key& root, const std::vector<std::u16string>& path);

/// A text value as the registry stores it: UTF-16LE with a terminator.
[[nodiscard]] settings_value text_value(std::uint32_t type, std::u16string_view text);
/// Its text, up to the first terminator.
[[nodiscard]] std::u16string value_text(const settings_value& value);

}  // namespace platform::linux_os
