#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/overlapped_file.h"

namespace platform::testing {

/// A file system in memory that keeps to the sharing rules, can be full, can fail, and can lose power.
///
/// Names are taken as they are, in their case. With the backslash as separator a slash separates, too, and "C:" is there from
/// the start; with the slash "/" is. The system folder and the common data folder exist. Of files only what was flushed
/// survives `lose_power`: contents as of the last flush, names made, removed or renamed as of the last flush of the file, the last
/// replacement, or the last durable renaming in the folder. Folders survive always.
class memory_files final : public files {
public:
    enum class operation { look_up, open, read, write, seek, size, truncate, flush, create_folder, remove, list, rename, replace };
    /// Asked before each operation with the path it is about: an error number other than 0 makes it fail with that.
    using failure_hook = std::function<std::uint32_t(operation what, const std::string& path)>;

    explicit memory_files(char16_t separator = u'\\');

    std::uint32_t open_file(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                            std::unique_ptr<file>& opened) override;
    std::uint32_t open_overlapped(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                                  std::unique_ptr<overlapped_file>& opened) override;
    std::uint32_t look_up(const std::u16string& path, path_kind& kind) override;
    [[nodiscard]] bool exists(const std::u16string& path) override;
    std::uint32_t create_folder(const std::u16string& path) override;
    std::uint32_t remove_file(const std::u16string& path) override;
    /// The times are a count of the changes: no two are the same, but for those that a test sets. Folders have none.
    std::uint32_t list_folder(const std::u16string& folder, const std::u16string& prefix, const std::u16string& suffix,
                              std::vector<folder_entry>& entries) override;
    std::uint32_t rename_file(const std::u16string& from, const std::u16string& to) override;
    std::uint32_t rename_file_durably(const std::u16string& from, const std::u16string& to) override;
    std::uint32_t replace_file(const std::u16string& from, const std::u16string& to) override;
    std::uint32_t temp_folder(std::u16string& folder) override;
    [[nodiscard]] char16_t separator() override { return separator_; }
    [[nodiscard]] std::u16string system_folder() override { return system_folder_; }
    [[nodiscard]] std::u16string common_data_folder() override { return common_data_folder_; }

    /// The test's own hand, UTF-8 paths. `put` makes the folders on the way and what it puts survives.
    void put(std::string_view path, std::string_view content);
    void add_folder(std::string_view path);
    /// The time of a present file's last change, for `list_folder`.
    void set_written(std::string_view path, std::uint64_t time);
    [[nodiscard]] std::optional<std::string> content(std::string_view path) const;
    /// Each write to the file, as it came.
    [[nodiscard]] std::vector<std::string> writes(std::string_view path) const;
    /// Paths of all files, sorted.
    [[nodiscard]] std::vector<std::string> paths() const;
    [[nodiscard]] std::size_t open_count() const;

    void set_common_data_folder(std::u16string_view folder) { common_data_folder_ = folder; }
    /// Asking for the temporary folder answers this error from now on; 0 lets it work again.
    void fail_temp_folder(std::uint32_t error) { temp_folder_error_ = error; }
    /// Room for this many more bytes; a write that needs more is cut short and answers 112.
    void set_free_bytes(std::optional<std::uint64_t> bytes);
    void set_failure(failure_hook hook);
    /// From now on an operation at an offset that is begun answers that it is under way, and meets its failures and the file's
    /// content when it is waited for. One that nobody waits for never happens.
    void set_pending(bool pending);
    /// From now on a read or a write moves no more bytes than this, and says nothing of it.
    void set_most_moved(std::size_t bytes);
    /// What wasn't flushed is gone. Open files answer 6 from then on.
    void lose_power();
    /// Takes the name from a file, open or not, as some systems let anybody do; who has it open goes on with it.
    void unlink(std::string_view path);

private:
    friend class memory_file;

    struct file_data {
        std::string content;
        std::string durable_content;  ///< what a loss of power leaves of it
        std::vector<std::string> writes;
        std::string path;  ///< present name, UTF-8
        std::uint64_t changed = 0;
    };
    struct open_entry {
        std::shared_ptr<file_data> data;
        std::uint32_t access = 0;
        std::uint32_t share = 0;
        bool appends = false;
    };

    std::uint32_t enter(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                        std::uint64_t& id);
    [[nodiscard]] std::string normal(std::u16string_view path) const;
    [[nodiscard]] std::string normal_utf8(std::string_view path) const;
    [[nodiscard]] bool parent_exists(const std::string& path) const;
    [[nodiscard]] bool in_use(const std::string& path) const;
    [[nodiscard]] std::uint32_t failure(operation what, const std::string& path);
    void add_folders(const std::string& path);
    std::uint32_t missing(const std::string& path) const;
    /// The error of a change of name for want of the file or of the folder it shall go to; else 0.
    std::uint32_t lacking(const std::string& old_name, const std::string& new_name) const;
    void give_name(const std::string& old_name, const std::string& new_name);
    void make_names_durable(const std::string& folder);

    const char16_t separator_;
    std::u16string system_folder_;
    std::u16string common_data_folder_;
    std::uint32_t temp_folder_error_ = 0;
    mutable std::mutex mutex_;
    std::map<std::string, std::shared_ptr<file_data>> present_;
    std::map<std::string, std::shared_ptr<file_data>> durable_;  ///< the names that a loss of power leaves
    std::set<std::string> folders_;
    std::map<std::uint64_t, open_entry> open_;
    std::uint64_t next_open_ = 0;
    std::uint64_t changes_ = 0;
    std::optional<std::uint64_t> free_bytes_;
    failure_hook failure_;
    bool pending_ = false;
    std::size_t most_moved_ = static_cast<std::size_t>(-1);
};

}  // namespace platform::testing
