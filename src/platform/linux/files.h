#pragma once

#include "platform/files.h"

namespace platform::linux_os {

/// The file system by POSIX calls.
///
/// Linux knows no sharing, so openers agree on it by advisory locks that die with their process (open file description
/// locks): programs that don't take part, a pager or `tail`, read as they like. On a file system without such locks every
/// sharing is granted. New files are readable by their group, new folders too; nobody else gets in.
class linux_files final : public files {
public:
    std::uint32_t open_file(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                            std::unique_ptr<file>& opened) override;
    /// Every operation has ended when the call that begins it returns.
    std::uint32_t open_overlapped(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                                  std::unique_ptr<overlapped_file>& opened) override;
    std::uint32_t look_up(const std::u16string& path, path_kind& kind) override;
    [[nodiscard]] bool exists(const std::u16string& path) override;
    std::uint32_t create_folder(const std::u16string& path) override;
    std::uint32_t remove_file(const std::u16string& path) override;
    /// Case counts.
    std::uint32_t list_folder(const std::u16string& folder, const std::u16string& prefix, const std::u16string& suffix,
                              std::vector<folder_entry>& entries) override;
    std::uint32_t rename_file(const std::u16string& from, const std::u16string& to) override;
    std::uint32_t rename_file_durably(const std::u16string& from, const std::u16string& to) override;
    std::uint32_t replace_file(const std::u16string& from, const std::u16string& to) override;
    /// $TMPDIR, else /tmp.
    std::uint32_t temp_folder(std::u16string& folder) override;
    [[nodiscard]] char16_t separator() override { return u'/'; }
    [[nodiscard]] std::u16string system_folder() override { return u"/usr/bin"; }
    [[nodiscard]] std::u16string common_data_folder() override { return u"/var/log"; }
};

}  // namespace platform::linux_os
