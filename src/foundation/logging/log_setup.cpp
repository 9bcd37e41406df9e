#include "foundation/logging/log_setup.h"

#include <boost/make_shared.hpp>

#include "foundation/logging/log_files.h"
#include "foundation/logging/log_rotation.h"
#include "foundation/logging/log_writer.h"
#include "foundation/util/command_line.h"

bool gTerseLog = true;

namespace logging {

namespace {

text::wide_string chosen_path(std::u16string_view default_name, const std::vector<std::u16string>& command_line) {
    const auto path = util::find_switch_value(command_line, u"-log");
    return path ? *path : default_log_path(default_name);
}

}  // namespace

text::wide_string initialize_log(std::u16string_view default_name, const std::vector<std::u16string>& command_line) {
    const text::wide_string path = chosen_path(default_name, command_line);
    gTerseLog = !util::find_switch(command_line, u"-verbose").has_value();

    const auto rotation = boost::make_shared<log_rotation_t>();
    pending_lines messages{"LOG: Initializing log file ..."};
    const boost::shared_ptr<receiver::log_file_t> receiver =
        path.empty() ? open_stdout_log(messages) : open_log_file({path}, messages, rotation.get());
    if (receiver != nullptr) {
        const boost::shared_ptr<log_t> log = log_t::process_log();
        log->set_receiver(receiver);
        log->set_initialized();
        log->set_check_size(rotation);
    }
    for (const std::string& line : messages) {
        g_clientLog.LogInfo(line);
    }
    return receiver == nullptr ? path : text::utf8_to_wide(receiver->path());
}

}  // namespace logging
