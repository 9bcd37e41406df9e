#pragma once

#include <string>

#include "platform/linux/descriptor.h"

namespace platform::linux_os {

/// Keeps other processes from changing a folder's files in the same way, for as long as it lives. Dies with its process.
class folder_lock {
public:
    explicit folder_lock(const std::string& folder);
    /// A value of `errno`: why there is no lock. 0: it is held.
    [[nodiscard]] int failure() const { return failure_; }

private:
    descriptor folder_;
    int failure_ = 0;
};

/// Puts a new content in the place of a file, as a whole: whenever the process or the machine dies, the file is the old one or the
/// new one. On return 0 the new one is on stable storage; otherwise the result is a value of `errno` and the old one stands. To be
/// called under the folder's lock: the content is prepared in a file beside it, PATH.new.
[[nodiscard]] int replace_content(const std::string& path, const std::string& content);

}  // namespace platform::linux_os
