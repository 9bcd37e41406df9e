#include "foundation/crash/crash_handler.h"

#include <boost/make_shared.hpp>

#include <memory>

#include "foundation/crash/legacy_dump_gen.h"
#include "foundation/crash/minidump_gen.h"
#include "foundation/crash/out_of_proc_dump_gen.h"
#include "foundation/exc/exceptions.h"
#include "foundation/logging/log_scope.h"
#include "foundation/logging/quietly.h"
#include "foundation/util/product_options.h"
#include "foundation/win/paths.h"
#include "platform/process.h"
#include "platform/system.h"

namespace crash {

namespace {

constexpr std::int32_t execute_handler = 1;
constexpr std::uint32_t windows_xp = 510;
constexpr char16_t name_until_configured[] = u"tt";

std::int32_t filter(const platform::crash_record& record) {
    return crash_handler().process(record);
}

/// Null when it can't be made, with the reason in the log.
template <typename Generator>
std::unique_ptr<win32::dump_gen_base_t> try_to_make(std::string_view failure) {
    try {
        return std::make_unique<Generator>();
    } catch (const std::exception& e) {
        g_libraryLog.LogError(failure, e);
        return nullptr;
    }
}

std::unique_ptr<win32::dump_gen_base_t> choose_generator() {
    std::unique_ptr<win32::dump_gen_base_t> chosen;
    if (product_options().out_of_proc_dump_gen) {
        chosen = try_to_make<win32::COutOfProcDumpGen>("Failed to create out-of-process dump generator");
    }
    if (chosen == nullptr && platform::system().crash->windows_version() >= windows_xp) {
        chosen = try_to_make<win32::minidump_gen_t>("Minidump writer cannot be initialized.");
    }
    if (chosen == nullptr) {
        chosen = std::make_unique<win32::legacy_dump_gen_t>();
    }
    return chosen;
}

}  // namespace

crash_handler_t::crash_handler_t() : deinit_(boost::make_shared<deinit_seq_t>()), name_(name_until_configured) {}

void crash_handler_t::install() {
    try {
        if (const std::uint32_t code = platform::system().crash->set_filter(filter, previous_filter_)) {
            throw exc::win_sys_exc_t(code);
        }
        try {
            folder_ = win::parent_path(platform::system().process->module_path());
        } catch (const std::exception& e) {
            g_libraryLog.LogError("Cannot initialize crash folder path", e);
        }
    } catch (const std::exception& e) {
        logging::quietly([&e] { g_libraryLog.LogError("Cannot supersede crash handler.", e); });
    }
}

void crash_handler_t::configure(const text::wide_string& path, const text::wide_string& name) {
    const text::wide_string folder = win::parent_path(path);
    if (!folder.empty()) {
        folder_ = folder;
    }
    name_ = name;
}

std::int32_t crash_handler_t::process(const platform::crash_record& record) noexcept {
    if (disabled) {
        return execute_handler;
    }
    try {
        make_dump(record);
        run_steps();
        return previous_filter_ != nullptr ? previous_filter_(record) : execute_handler;
    } catch (const std::exception& e) {
        logging::quietly([&e] { g_libraryLog.LogError("Cannot process an unhandled exception.", e); });
        return execute_handler;
    }
}

void crash_handler_t::make_dump(const platform::crash_record& record) const {
    g_libraryLog.LogInfo("Trying to generate crash dump");
    const std::unique_ptr<win32::dump_gen_base_t> generator = choose_generator();
    try {
        generator->generate(dump_mode::by_settings, folder_, name_, &record);
    } catch (const std::exception& e) {
        g_libraryLog.LogError("Cannot generate crash dump.", e);
    }
}

void crash_handler_t::run_steps() {
    try {
        logging::log_scope_t scope(g_libraryLog, "Executing crash handlers.");
        deinit_->run();
        scope.ok("Crash handlers were successfully executed.");
    } catch (const std::exception& e) {
        g_libraryLog.LogError("Crash handlers cannot be executed.", e);
    }
}

crash_handler_t& crash_handler() {
    static auto& handler = *new crash_handler_t;
    return handler;
}

}  // namespace crash
