#include "drive/tape_alerts_emulator.h"

#include <cstdint>
#include <exception>

#include "foundation/logging/log_writer.h"
#include "foundation/text/conversion.h"
#include "foundation/win/paths.h"
#include "foundation/winxml/xml.h"
#include "platform/process.h"
#include "platform/system.h"

namespace {

TapeAlertList read_file(const std::string& link_name) {
    const std::u16string path = win::join_path(win::parent_path(platform::system().process->module_path()), u"TapeAlerts.xml");
    const winxml::document_t document = winxml::load_xml_file(path);
    const winxml::node_t root = winxml::get_element(winxml::document_node(document), "TapeAlerts");
    const std::u16string wanted = text::utf8_to_wide(link_name);
    TapeAlertList alerts;
    for (const winxml::node_t& entry : winxml::child_elements(root)) {
        if (text::compare_no_case(text::utf8_to_wide(winxml::get_attribute(entry, "deviceSymLink")), wanted) != 0) {
            continue;
        }
        const std::string type = winxml::get_attribute(entry, "deviceType");
        const auto code = static_cast<std::uint16_t>(text::to_uint(winxml::get_attribute(entry, "alertCode")));
        if (text::compare_no_case(type, "Changer") == 0) {
            alerts.push_back(FindTapeAlert(code, true));
        } else if (text::compare_no_case(type, "Drive") == 0) {
            alerts.push_back(FindTapeAlert(code, false));
        }
    }
    return alerts;
}

}  // namespace

TapeAlertList CTapeAlertsEmulator::Read(const std::string& link_name) {
    try {
        return read_file(link_name);
    } catch (const std::exception& e) {
        g_libraryLog.LogError("Tape alert problem. Symlink: '%1', error: '%2'", link_name, e.what());
        return {};
    }
}
