#include "host/diagnostic_files.h"

#include "foundation/exc/exceptions.h"
#include "foundation/text/conversion.h"
#include "foundation/win/win_file.h"
#include "platform/errors.h"
#include "platform/system.h"

namespace diagnostics {

namespace {

constexpr std::u16string_view unfinished = u".new";

void write_whole(const std::u16string& path, std::string_view text) {
    win::win_file_t file = win::win_file_t::open(path, platform::file_open_mode::create_always);
    file.write(text);
    file.flush();
}

}  // namespace

void SaveText(const std::u16string& path, std::string_view text) {
    const std::u16string next = path + std::u16string(unfinished);
    platform::files& files = *platform::system().files;
    try {
        write_whole(next, text);
        if (const std::uint32_t code = files.replace_file(next, path)) {
            throw exc::win_sys_exc_t("Failed to create or open file [%1].", text::wide_to_utf8(path), code);
        }
    } catch (const std::exception&) {
        files.remove_file(next);
        throw;
    }
}

void SaveDocument(const std::u16string& path, const winxml::document_t& document) {
    SaveText(path, winxml::serialize_xml(document));
}

}  // namespace diagnostics
