#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// Sharing that an opener grants to others, as bits.
namespace file_share {
inline constexpr std::uint32_t none = 0;
inline constexpr std::uint32_t read = 1;
inline constexpr std::uint32_t write = 2;
}  // namespace file_share

namespace file_access {
inline constexpr std::uint32_t read = 1;
inline constexpr std::uint32_t write = 2;
/// With `write`: each write goes to what is the end of the file then, wherever the position is. It tells a difference only where
/// others can cut an open file against its sharing. 87 for overlapped files.
inline constexpr std::uint32_t append = 4;
}  // namespace file_access

enum class file_open_mode : std::uint8_t {
    open_existing,  ///< 2 when absent
    open_always,    ///< made when absent
    create_new,     ///< 80 when present
    create_always   ///< cut to nothing when present
};

/// What a path names.
enum class path_kind : std::uint8_t { absent, file, folder };

/// What lies in a folder under a name.
struct folder_entry {
    std::u16string name;        ///< without the folder
    std::uint64_t written = 0;  ///< when its content was last changed: only the order of two times has a meaning
};

/// One open file. Closed by its destructor. Operations return a system error number, 0 for success. Used by one thread at
/// a time.
class file {
public:
    virtual ~file() = default;

    /// Reads up to `data.size()` bytes at the position and moves it; `count` is 0 at the end of the file.
    virtual std::uint32_t read(std::span<std::uint8_t> data, std::size_t& count) = 0;
    /// Writes at the position and moves it. `count` tells what was written, also on failure (112: the disk is full).
    virtual std::uint32_t write(std::span<const std::uint8_t> data, std::size_t& count) = 0;
    /// Sets the position, in bytes from the start. 87 behind what the system can count, 63 bits at most.
    virtual std::uint32_t seek(std::uint64_t position) = 0;
    virtual std::uint32_t size(std::uint64_t& bytes) = 0;
    /// Cuts the file at the position.
    virtual std::uint32_t truncate_here() = 0;
    /// Forces what was written to stable storage.
    virtual std::uint32_t flush() = 0;
    /// What the system itself calls the open file; another one may bear the number when this one is closed. For records of what
    /// happened, never to work with.
    [[nodiscard]] virtual std::uint64_t number() const = 0;
    /// Whether the path still names this file: some systems let anybody move or remove a file that is open. True when that can't
    /// be told.
    [[nodiscard]] virtual bool is_named(const std::u16string& path) = 0;
};

class overlapped_file;

/// The file system. Paths are UTF-16, as this system separates them. Error numbers as in errors.h; 32 when another
/// process's sharing forbids the open. Callable from any thread; blocks as file operations do.
class files {
public:
    virtual ~files() = default;

    virtual std::uint32_t open_file(const std::u16string& path, std::uint32_t access, std::uint32_t share, file_open_mode mode,
                                    std::unique_ptr<file>& opened) = 0;
    /// The same, for operations that go on while the thread that began them does something else.
    virtual std::uint32_t open_overlapped(const std::u16string& path, std::uint32_t access, std::uint32_t share,
                                          file_open_mode mode, std::unique_ptr<overlapped_file>& opened) = 0;

    /// What the path names; whatever is no folder is a file. A path that leads through something absent names nothing. The root
    /// of a drive is a folder, with or without a separator behind it.
    virtual std::uint32_t look_up(const std::u16string& path, path_kind& kind) = 0;
    /// True for a file or a folder of that name.
    [[nodiscard]] virtual bool exists(const std::u16string& path) = 0;
    /// Makes one folder; its parent must exist. 183 when it is there already.
    virtual std::uint32_t create_folder(const std::u16string& path) = 0;
    virtual std::uint32_t remove_file(const std::u16string& path) = 0;
    /// What lies in a folder under names that begin with `prefix` and end with `suffix`, files and folders alike, in no order;
    /// whether case counts is as the system has it. 3 for an absent folder. `entries` is left alone on failure.
    virtual std::uint32_t list_folder(const std::u16string& folder, const std::u16string& prefix, const std::u16string& suffix,
                                      std::vector<folder_entry>& entries) = 0;
    /// Fails with 183 when the new name is taken.
    virtual std::uint32_t rename_file(const std::u16string& from, const std::u16string& to) = 0;
    /// The same, and makes this and every earlier change of a name in the new name's folder durable.
    virtual std::uint32_t rename_file_durably(const std::u16string& from, const std::u16string& to) = 0;
    /// Puts `from` in the place of `to` in one step that a crash can't halve, and makes the change durable.
    virtual std::uint32_t replace_file(const std::u16string& from, const std::u16string& to) = 0;

    /// Folder for temporary files, without a separator at its end.
    virtual std::uint32_t temp_folder(std::u16string& folder) = 0;
    /// Separator between path components: backslash or slash.
    [[nodiscard]] virtual char16_t separator() = 0;
    /// Folder of the system's own programs, without a separator at its end.
    [[nodiscard]] virtual std::u16string system_folder() = 0;
    /// Folder for the data that programs share between users; empty when the system can't tell.
    [[nodiscard]] virtual std::u16string common_data_folder() = 0;
};

}  // namespace platform
