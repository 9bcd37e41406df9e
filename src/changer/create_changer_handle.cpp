#include <boost/make_shared.hpp>

#include "changer/changer_handle.h"
#include "changer/changer_handle_scsi.h"
#include "changer/changer_interface.h"
#include "changer/tape_variables.h"

boost::shared_ptr<IChangerHandle> CreateChangerHandle(const std::string& symbolic_link, bool byScsi,
                                                      const boost::shared_ptr<boost::mutex>& device_mutex) {
    if (byScsi || gEnableScsiChanger) {
        return boost::make_shared<CChangerHandleScsi>(symbolic_link, gUserSlotPortion, device_mutex);
    }
    return boost::make_shared<CChangerHandle>(symbolic_link, gUserSlotPortion, device_mutex);
}
