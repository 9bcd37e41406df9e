#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace platform::device_stack {

/// ASCII letters in lower case: names of objects compare without regard to case.
[[nodiscard]] std::string fold_name(const std::string& name);

/// The DOS device names that were defined while the process runs. Definitions of one name are stacked: the last one holds, and
/// removing it brings the former back. Callable from any thread.
class dos_names {
public:
    /// The present target of a name.
    [[nodiscard]] std::optional<std::string> target_of(const std::string& name) const;
    void define(const std::string& name, const std::string& target);
    /// False when the name has no definition.
    bool remove(const std::string& name);

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::vector<std::string>> definitions_;  ///< by folded name
};

}  // namespace platform::device_stack
