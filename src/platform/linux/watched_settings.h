#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/settings_tree.h"

namespace platform::linux_os {

/// A settings file in memory, read again only when the file system shows that it was changed. Not for several threads at once.
class watched_settings {
public:
    using warn = std::function<void(const std::string& text)>;

    /// An absent file counts as an empty one, unless it is `required`.
    watched_settings(std::string path, bool required);

    /// Reads the file for the first time. Throws `settings_error`.
    void load();
    /// Looks at the file's stamp and reads it again when it changed. A file that can't be used any more, or is gone, leaves the
    /// last good content in force, which is told once.
    void refresh(const warn& warning);
    /// Takes a content that the caller has just put into the file itself.
    void adopt(settings_key content);

    [[nodiscard]] const settings_key& content() const { return content_; }
    [[nodiscard]] const std::string& path() const { return path_; }
    /// Whether users other than the owner and the group may read the file.
    [[nodiscard]] bool readable_by_all() const { return stamp_.present && (stamp_.mode & S_IROTH) != 0; }
    /// How often the file was read so far.
    [[nodiscard]] std::uint64_t loads() const { return loads_; }

private:
    struct stamp {
        bool present = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        mode_t mode = 0;
        std::int64_t modified = 0;  ///< nanoseconds
        std::int64_t changed = 0;   ///< nanoseconds; moves on with rights and names, too
        [[nodiscard]] bool operator==(const stamp&) const = default;
    };

    [[nodiscard]] static stamp to_stamp(const struct stat& status);
    [[nodiscard]] stamp look() const;
    void take_stamp(const stamp& seen);
    void read();

    const std::string path_;
    const bool required_;
    stamp stamp_;
    /// False while the file is so young that another change might bear the same stamp.
    bool settled_ = false;
    settings_key content_;
    std::uint64_t loads_ = 0;
};

}  // namespace platform::linux_os
