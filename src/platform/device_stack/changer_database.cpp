#include "platform/device_stack/changer_database.h"

#include "platform/device_stack/scsi_commands.h"

namespace platform::device_stack {

namespace {

/// Name of the service that drives changers here.
constexpr char16_t service_name[] = u"tarnochanger";

}  // namespace

changer_database::changer_database(io_manager& manager) : manager_(manager) {}

std::vector<changer_node> changer_database::medium_changers() {
    std::vector<changer_node> nodes;
    const std::shared_ptr<const unit_list> units = manager_.look();
    for (const unit& found : *units) {
        if (found.info.peripheral_type != peripheral_type::medium_changer) {
            continue;
        }
        changer_node node;
        node.detail_known = true;
        node.problem = 0;
        node.service_size = found.device_name.empty() ? 0 : sizeof(service_name);
        node.object_name.assign(found.port_object.begin(), found.port_object.end());
        nodes.push_back(std::move(node));
    }
    return nodes;
}

}  // namespace platform::device_stack
