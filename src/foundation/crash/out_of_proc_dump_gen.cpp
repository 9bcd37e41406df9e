#include "foundation/crash/out_of_proc_dump_gen.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "foundation/crash/dump_files.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/win/paths.h"
#include "foundation/win/win_event.h"
#include "platform/process.h"
#include "platform/system.h"

namespace crash::win32 {

namespace {

constexpr std::u16string_view recorder_name = u"TarnoDumpRecorder";

struct exit_text {
    std::uint32_t code;
    std::string_view text;
};

constexpr exit_text exit_texts[] = {
    {0, "success"},
    {1, "unspecified failure"},
    {101, "invalid count of arguments"},
    {102, "invalid arguments"},
    {103, "cannot create dump folder"},
    {104, "cannot delete old dumps"},
    {105, "invalid dump name"},
    {106, "cannot create dump file"},
    {107, "cannot write dump content"},
    {108, "NTDLL is not loaded"},
    {109, "memset is not exported from NTDLL"},
    {110, "_vsnwprintf is not exported from NTDLL"},
};

std::string text_of_exit(std::uint32_t code) {
    const auto* const found =
        std::find_if(std::begin(exit_texts), std::end(exit_texts), [code](const exit_text& each) { return each.code == code; });
    return found == std::end(exit_texts) ? text::format_hex(code) : std::string(found->text);
}

std::string_view failure_of(platform::recorder_step step) {
    switch (step) {
        case platform::recorder_step::create:
            return "Failed to create dump recorder file: %1";
        case platform::recorder_step::write:
            return "Failed to write dump recorder code to %1";
        case platform::recorder_step::reopen:
            break;
    }
    return "Failed to re-open dump recorder for deletion: %1";
}

text::wide_string new_recorder_path() {
    const text::wide_string folder = win::temp_folder();
    win::create_folder(folder);
    return win::join_path(folder, text::wide_string(recorder_name) + platform::system().crash->unique_text());
}

text::wide_string quoted(const text::wide_string& text) {
    return u"\"" + text + u"\"";
}

}  // namespace

COutOfProcDumpGen::COutOfProcDumpGen() : recorder_path_(new_recorder_path()) {
    platform::crash& crash = *platform::system().crash;
    if (const std::uint32_t code = crash.inheritable_process(process_)) {
        throw exc::win_sys_exc_t("Cannot initialize out-of-process dump generator: failed to duplicate current process handle",
                                 code);
    }
    auto failed = platform::recorder_step::create;
    if (const std::uint32_t code = crash.place_recorder(recorder_path_, failed, recorder_file_)) {
        throw exc::win_sys_exc_t(failure_of(failed), text::wide_to_utf8(recorder_path_), code);
    }
}

void COutOfProcDumpGen::generate(dump_mode mode, const text::wide_string& folder, const text::wide_string& name,
                                 const platform::crash_record* exception) {
    logging::log_scope_t scope(g_libraryLog, "Generating dump to %1", text::wide_to_utf8(folder));
    const text::wide_string line = command_line(minidump_flags(mode), folder, name, exception);
    std::unique_ptr<platform::running_recorder> recorder;
    if (const std::uint32_t code = platform::system().crash->start_recorder(recorder_path_, line, recorder)) {
        throw exc::win_sys_exc_t("Failed to start dump generator process. File: %1", text::wide_to_utf8(recorder_path_), code);
    }
    wait_for(*recorder);
    std::uint32_t exit_code = 0;
    if (const std::uint32_t code = recorder->exit_code(exit_code)) {
        throw exc::win_sys_exc_t("Failed to retrieve process exit code", code);
    }
    if (exit_code != 0) {
        throw exc::runtime_exc_t("Dump generator process failed with %1: %2", text::to_string(exit_code), text_of_exit(exit_code));
    }
    recorder.reset();
    scope.ok();
}

/// Program, process, record, thread, flags, limit of dumps, folder, name.
text::wide_string COutOfProcDumpGen::command_line(std::uint32_t flags, const text::wide_string& folder,
                                                  const text::wide_string& name, const platform::crash_record* exception) const {
    const void* const native = exception == nullptr ? nullptr : exception->native;
    text::wide_string line = quoted(recorder_path_);
    line.append(u" ").append(text::to_wstring(process_));
    line.append(u" ").append(text::to_wstring(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(native))));
    line.append(u" ").append(text::to_wstring(platform::system().process->current_thread_id()));
    line.append(u" ").append(text::to_wstring(flags));
    line.append(u" ").append(text::to_wstring(most_dumps));
    line.append(u" ").append(quoted(folder.empty() ? text::wide_string(u".") : folder));
    return line.append(u" ").append(quoted(name));
}

void COutOfProcDumpGen::wait_for(platform::running_recorder& recorder) const {
    bool finished = false;
    try {
        if (const std::uint32_t code = recorder.wait(win::longest_wait, finished)) {
            throw exc::win_sys_exc_t(code);
        }
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to check whether process '%1' finished.", text::wide_to_utf8(recorder_path_), e);
    }
    if (!finished) {
        throw exc::runtime_exc_t("Timed out waiting for dump generator process to finish");
    }
}

}  // namespace crash::win32
