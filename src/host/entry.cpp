#include "host/entry.h"

#include <boost/make_shared.hpp>

#include "changer/tape_variables.h"
#include "command/svc_context.h"
#include "command/version_check.h"
#include "foundation/crash/crash_handler.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/logging/log_setup.h"
#include "foundation/text/conversion.h"
#include "foundation/util/command_line.h"
#include "foundation/util/product_options.h"
#include "host/diagnostic_failures.h"
#include "host/diagnostics.h"
#include "host/rpc_server.h"
#include "host/server_lifetime.h"
#include "host/service_control.h"
#include "host/tape_settings.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "platform/system.h"

namespace {

constexpr char16_t default_log_name[] = u"Svc.TarnoTape.log";
constexpr char16_t crash_dump_name[] = u"TAPE";
constexpr std::int64_t debug_pause_ms = 2000;
constexpr std::size_t banner_width = 77;

constexpr std::size_t log_test_lines = 1024;
constexpr std::size_t log_test_line_size = 51200;

constexpr int exit_done = 0;
constexpr int exit_no_service_manager = 1;

util::command_line_t build_command_line() {
    try {
        return platform::system().process->command_line();
    } catch (std::exception& e) {
        exc::rethrow_with_trace("Failed to parse command line", e);
    }
}

void write_banner_details() {
    platform::process& process = *platform::system().process;
    const std::u16string path = process.module_path();
    g_libraryLog.LogInfo("Path to the executable module: %1", text::wide_to_utf8(path));
    g_libraryLog.LogInfo("Module version: %1", VersionText(ReadModuleVersion(path)));
    const std::u16string comments = process.comments_of(path);
    if (!comments.empty()) {
        g_libraryLog.LogInfo("Comments: %1", text::wide_to_utf8(comments));
    }
    g_libraryLog.LogInfo("OS version: %1", process.os_description());
    g_libraryLog.LogInfo("Process Id: %1", text::to_string(process.process_id()));
}

bool pause(const entry_environment& environment) {
    if (environment.pause) {
        return environment.pause(debug_pause_ms);
    }
    platform::system().clock->sleep(debug_pause_ms);
    return true;
}

/// A diagnostic that fails says so, and the program ends as after any other.
bool run_diagnostic(const util::command_line_t& command_line) {
    try {
        return RunDiagnosticAction(command_line);
    } catch (const std::exception& e) {
        constexpr char failure[] = "The diagnostic action has failed.";
        diagnostics::TellFailure(failure, e);
        g_log.LogError(failure, e);
        return true;
    }
}

void serve_from_console(const RpcServerSettings& settings, const entry_environment& environment) {
    const auto context = boost::make_shared<ctx::CSvcContext>();
    StartRpcServer(settings, context);
    while (pause(environment)) {
    }
    StopTapeServer();
}

}  // namespace

void WriteStartBanner() {
    g_libraryLog.LogInfo("");
    g_libraryLog.LogInfo(std::string(banner_width, '='));
    g_libraryLog.LogInfo("{");
    {
        const logging::log_indent_t indent(g_libraryLog);
        try {
            write_banner_details();
        } catch (const std::exception& e) {
            g_libraryLog.LogError(e);
        }
    }
    g_libraryLog.LogInfo("}");
}

void RunLogTest() {
    std::string buffer(log_test_line_size - 1, ' ');  // the last of its bytes is a terminator
    g_libraryLog.LogInfo("Total lines: '%1'.", text::to_string(static_cast<std::uint64_t>(log_test_lines)));
    for (std::size_t index = 0; index < log_test_lines; ++index) {
        const std::string start = "written " + text::to_string(static_cast<std::uint64_t>(index)) + " lines";
        buffer.replace(0, start.size(), start);
        g_libraryLog.LogInfo(buffer);
    }
}

int RunTapeServer(const entry_environment& environment) {
    product_options().load();  // in front of the log: what it would say goes nowhere
    const util::command_line_t command_line = build_command_line();
    const text::wide_string log_path = logging::initialize_log(default_log_name, command_line);
    WriteStartBanner();
    for (const std::string& warning : environment.start_warnings) {
        g_libraryLog.LogWarning(warning);
    }
    crash::crash_handler().install();
    crash::crash_handler().configure(log_path, crash_dump_name);

    const RpcServerSettings settings = LoadRpcServerSettings(tape_key_path, command_line);
    tape_settings::LoadAll(tape_key_path);

    if (util::find_switch(command_line, u"-debug")) {
        g_log.LogMessage("Launched in debug mode.");
        if (util::find_switch(command_line, u"-logtest")) {
            RunLogTest();
        }
        serve_from_console(settings, environment);
        return exit_done;
    }
    if (run_diagnostic(command_line)) {
        return exit_done;
    }
    SetTapeServerSettings(settings);
    return RunUnderServiceManager() ? exit_done : exit_no_service_manager;
}
