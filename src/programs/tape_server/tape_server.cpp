#include "programs/tape_server/tape_server.h"

#include <boost/thread/thread.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/linux/rpc/event_throttle.h"
#include "platform/linux/scsi/iscsi_source.h"
#include "platform/linux/scsi/sg_source.h"
#include "platform/linux/settings_file.h"
#include "programs/tape_server/remote_security.h"

namespace tape_server {

using platform::device_stack::scsi_source;

namespace {

/// More than these are not kept busy by the network of one machine.
constexpr unsigned most_network_threads = 8;

/// A sink of sentences for threads that have work of their own to finish: the log's trouble, such as a full disk at its rotation,
/// is not theirs.
template <typename Write>
auto undisturbed(Write write) {
    return [write](const std::string& sentence) {
        try {
            write(sentence);
        } catch (const std::exception&) {
            // The log itself is what failed: there is nowhere to tell it.
        }
    };
}

/// `file` is for messages: a setting that can't be understood throws `settings_error` about it.
std::vector<platform::linux_scsi::iscsi_entry> parse_iscsi(const std::vector<std::string>& urls, const std::string& file) {
    std::vector<platform::linux_scsi::iscsi_entry> entries;
    try {
        for (const std::string& url : urls) {
            for (platform::linux_scsi::iscsi_entry& entry : platform::linux_scsi::parse_iscsi_setting(url)) {
                entries.push_back(std::move(entry));
            }
        }
    } catch (const platform::linux_scsi::iscsi_setting_error& e) {
        throw platform::linux_os::settings_error(file, 0, e.what());
    }
    return entries;
}

std::shared_ptr<scsi_source> make_iscsi_source(std::vector<platform::linux_scsi::iscsi_entry> entries) {
    platform::linux_scsi::iscsi_source_options options;
    options.entries = std::move(entries);
    options.report = undisturbed([](const std::string& message) { g_libraryLog.LogWarning(message); });
    return std::make_shared<platform::linux_scsi::iscsi_source>(std::move(options));
}

}  // namespace

assembled_system::assembled_system(const platform::linux_os::system_paths& paths) : base_(paths) {
    platform::install(base_.set());
    watch_settings();
    note_missing_settings();
    add_devices();
    add_rpc();
    platform::install(base_.set());
    starting_ = false;
}

void assembled_system::serve_under(platform::service_manager& manager) {
    base_.set().service_manager = &manager;
    platform::install(base_.set());
}

void assembled_system::reload() {
    const auto tell = undisturbed([](const std::string& sentence) { g_libraryLog.LogInfo(sentence); });
    const auto warn = undisturbed([](const std::string& sentence) { g_libraryLog.LogWarning(sentence); });
    tell("The settings are read again. Values that are read at the start alone wait for the next one.");
    try {
        const std::string& file = base_.paths().settings_file;
        const platform::linux_os::linux_settings now = platform::linux_os::read_linux_settings(base_.registry(), file);
        static_cast<void>(parse_iscsi(now.iscsi, file));
    } catch (const std::exception& e) {
        warn(std::string(e.what()) + " The next start would fail over it.");
    }
}

void assembled_system::watch_settings() {
    // Warnings of the start come before there is a log; they are kept for it.
    base_.registry().set_warning_handler(undisturbed([this](const std::string& text) {
        if (starting_) {
            warnings_.push_back(text);
        } else {
            g_libraryLog.LogWarning(text);
        }
    }));
}

void assembled_system::note_missing_settings() {
    const std::string& file = base_.paths().settings_file;
    if (!base_.set().files->exists(text::utf8_to_wide(file))) {
        warnings_.push_back("There is no settings file " + file + ". Every setting has its default.");
    }
}

void assembled_system::add_devices() {
    const platform::linux_os::linux_settings& settings = base_.settings();
    std::vector<std::shared_ptr<scsi_source>> sources;
    if (settings.scsi_generic) {
        sources.push_back(std::make_shared<platform::linux_scsi::sg_source>());
    }
    if (!settings.iscsi.empty()) {
        sources.push_back(make_iscsi_source(parse_iscsi(settings.iscsi, base_.paths().settings_file)));
    }
    if (!settings.virtual_libraries.empty()) {
        std::vector<std::u16string> folders;
        for (const std::string& folder : settings.virtual_libraries) {
            folders.push_back(text::utf8_to_wide(folder));
        }
        const auto libraries = std::make_shared<platform::tape_library::virtual_library_source>(std::move(folders));
        for (const std::string& problem : libraries->problems()) {
            warnings_.push_back("A virtual library can't be used. " + problem);
        }
        sources.push_back(libraries);
    }
    devices_ = std::make_unique<platform::device_stack::io_manager>(std::move(sources), settings.without_driver);
    tapes_ = std::make_unique<platform::device_stack::tape_drives>(*devices_);
    changers_ = std::make_unique<platform::device_stack::changer_database>(*devices_);
    base_.registry().set_device_map([this] { return devices_->device_map(); });
    base_.set().devices = devices_.get();
    base_.set().tape_functions = tapes_.get();
    base_.set().plug_and_play = changers_.get();
}

void assembled_system::add_rpc() {
    const platform::linux_os::linux_settings& settings = base_.settings();
    platform::linux_rpc::rpc_server_options options;
    options.listen_address = settings.listen_address;
    options.local_socket = settings.local_socket;
    options.endpoint_mapper_port = settings.endpoint_mapper_port;
    options.network_threads = std::clamp(boost::thread::hardware_concurrency(), 1U, most_network_threads);
    options.limits = settings.limits;
    options.on_event =
        platform::linux_rpc::throttled(undisturbed([](const std::string& sentence) { g_rpcLog.LogWarning(sentence); }));
    rpc_ = std::make_unique<platform::linux_rpc::rpc_server>(std::move(options));

    std::u16string computer;
    if (rpc_->computer_name(computer) != platform::rpc_status::ok) {
        throw std::runtime_error("The name of this computer can't be found out.");
    }
    for (std::string& lack : add_remote_security(*rpc_, settings, text::wide_to_utf8(computer))) {
        warnings_.push_back(std::move(lack));
    }

    platform::linux_rpc::administrator_rules rules;
    rules.groups = settings.administrator_groups;
    rules.principals = settings.administrator_principals;
    accounts_ = std::make_unique<platform::linux_rpc::linux_accounts>(std::move(rules));
    base_.set().accounts = accounts_.get();
    base_.set().rpc_runtime = rpc_.get();
}

}  // namespace tape_server
