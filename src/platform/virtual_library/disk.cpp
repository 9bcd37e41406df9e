#include "platform/virtual_library/disk.h"

#include <memory>
#include <span>

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/system.h"

namespace platform::tape_library {

namespace {

bool is_separator(char16_t character) {
    return character == u'/' || character == u'\\';
}

std::uint32_t write_all(file& target, std::string_view content) {
    std::span<const std::uint8_t> rest(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    while (!rest.empty()) {
        std::size_t count = 0;
        if (const std::uint32_t code = target.write(rest, count); code != error::success) {
            return code;
        }
        if (count == 0) {
            return error::disk_full;
        }
        rest = rest.subspan(count);
    }
    return target.flush();
}

}  // namespace

std::u16string join_path(const std::u16string& folder, const std::u16string& name) {
    if (folder.empty() || is_separator(folder.back())) {
        return folder + name;
    }
    return folder + system().files->separator() + name;
}

std::u16string resolve_path(const std::u16string& folder, const std::u16string& path) {
    const bool rooted = !path.empty() && is_separator(path.front());
    const bool with_drive = path.size() > 1 && path[1] == u':';
    return rooted || with_drive ? path : join_path(folder, path);
}

std::uint32_t read_whole(const std::u16string& path, std::string& content) {
    content.clear();
    std::unique_ptr<file> source;
    if (const std::uint32_t code = system().files->open_file(path, file_access::read, file_share::read | file_share::write,
                                                             file_open_mode::open_existing, source);
        code != error::success) {
        return code;
    }
    std::uint64_t size = 0;
    if (const std::uint32_t code = source->size(size); code != error::success) {
        return code;
    }
    content.resize(static_cast<std::size_t>(size));
    std::size_t filled = 0;
    while (filled < content.size()) {
        std::size_t count = 0;
        const std::span<std::uint8_t> room(reinterpret_cast<std::uint8_t*>(content.data()) + filled, content.size() - filled);
        if (const std::uint32_t code = source->read(room, count); code != error::success) {
            return code;
        }
        if (count == 0) {
            break;
        }
        filled += count;
    }
    content.resize(filled);
    return error::success;
}

std::uint32_t write_durably(const std::u16string& path, std::string_view content) {
    const std::u16string fresh = path + u".new";
    {
        std::unique_ptr<file> target;
        if (const std::uint32_t code =
                system().files->open_file(fresh, file_access::write, file_share::none, file_open_mode::create_always, target);
            code != error::success) {
            return code;
        }
        if (const std::uint32_t code = write_all(*target, content); code != error::success) {
            return code;
        }
    }
    return system().files->replace_file(fresh, path);
}

}  // namespace platform::tape_library
