#include "foundation/crash/legacy_dump_gen.h"

#include "foundation/crash/dump_files.h"
#include "foundation/crash/text_dump.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_writer.h"
#include "foundation/win/paths.h"
#include "foundation/win/win_file.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/system.h"

namespace crash::win32 {

namespace {

constexpr std::size_t most_frames = 100;

void write_header(win::win_file_t& file, const platform::crash_record& exception) {
    platform::process& process = *platform::system().process;
    const std::u16string path = process.module_path();
    text::wide_string folder;
    text::wide_string name;
    win::split_path(path, folder, name);
    file.write(text_dump::header({.code = exception.code,
                                  .address = exception.address,
                                  .time = platform::system().clock->now_local(),
                                  .module_name = text::wide_to_utf8(name),
                                  .module_path = text::wide_to_utf8(path),
                                  .process_id = process.process_id(),
                                  .thread_id = process.current_thread_id()}));
}

void write_modules(win::win_file_t& file) {
    file.write(text_dump::modules_title());
    const platform::loaded_modules loaded = platform::system().crash->modules();
    for (const platform::loaded_module& each : loaded.modules) {
        const platform::module_version version = platform::system().process->version_of(each.path);
        file.write(text_dump::module_line(each, version, loaded.tells_errors));
    }
}

/// The outermost frame, which has nobody to return to, is the last one.
void write_stack(win::win_file_t& file, const platform::crash_record& exception) {
    file.write(text_dump::stack_title());
    for (const platform::stack_frame& frame : platform::system().crash->walk_stack(exception, most_frames)) {
        file.write(text_dump::frame(frame, platform::system().crash->describe(frame.address)));
        if (frame.return_address == 0) {
            break;
        }
    }
}

/// Each piece reaches the file before the next one is looked for: what is damaged may hold up any of them.
void write_dump(const text::wide_string& path, const platform::crash_record& exception) {
    const std::unique_ptr<platform::dump_guard> guard = platform::system().crash->guard_dump(path);
    win::win_file_t file = win::win_file_t::open(path, platform::file_open_mode::open_always);
    file.seek_to_end();
    write_header(file, exception);
    write_modules(file);
    if (exception.registers) {
        file.write(text_dump::registers(*exception.registers));
    }
    write_stack(file, exception);
}

}  // namespace

void legacy_dump_gen_t::generate(dump_mode /*mode*/, const text::wide_string& folder, const text::wide_string& name,
                                 const platform::crash_record* exception) {
    if (exception == nullptr) {
        return;
    }
    try {
        const text::wide_string path = next_dump_path(folder, name, u"log");
        g_libraryLog.LogInfo("Writing legacy dump. Dump path: %1.", text::wide_to_utf8(path));
        write_dump(path, *exception);
    } catch (std::exception& e) {
        exc::rethrow_with_message("Crash details cannot be stored in legacy format.", e);
    }
}

}  // namespace crash::win32
