#include "platform/device_stack/dos_names.h"

#include <algorithm>

namespace platform::device_stack {

std::string fold_name(const std::string& name) {
    std::string folded = name;
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return folded;
}

std::optional<std::string> dos_names::target_of(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = definitions_.find(fold_name(name));
    if (found == definitions_.end()) {
        return std::nullopt;
    }
    return found->second.back();
}

void dos_names::define(const std::string& name, const std::string& target) {
    const std::lock_guard lock(mutex_);
    std::vector<std::string>& targets = definitions_[fold_name(name)];
    // Defining the same again changes nothing, so that repeated definitions don't pile up.
    if (targets.empty() || targets.back() != target) {
        targets.push_back(target);
    }
}

bool dos_names::remove(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = definitions_.find(fold_name(name));
    if (found == definitions_.end()) {
        return false;
    }
    found->second.pop_back();
    if (found->second.empty()) {
        definitions_.erase(found);
    }
    return true;
}

}  // namespace platform::device_stack
