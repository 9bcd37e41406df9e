#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "changer/unit_identity.h"
#include "drive/drive_handle.h"
#include "platform/testing/fakes.h"

namespace {

using platform::testing::device_answer;
using platform::testing::device_request;

const std::string drive_link = "\\\\.\\Tape0";

/// A drive that answers every INQUIRY and the query for its identifiers with these bytes.
void answer_with(platform::testing::test_system& system, std::span<const std::uint8_t> bytes) {
    system.devices.on_control([bytes](const device_request& request) {
        if (request.code == platform::ioctl::scsi_pass_through) {
            return platform::testing::answer_scsi(request, 0, {}, bytes);
        }
        device_answer answer;
        answer.output.assign(bytes.begin(),
                             bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), request.output_size)));
        return answer;
    });
}

}  // namespace

/// Who a unit says it is, with any bytes as its pages and identifiers: names are never longer than the fields that they are from.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static platform::testing::test_system system;
    static const bool added = (system.devices.add_device(drive_link), true);
    static_cast<void>(added);
    const std::vector<std::uint8_t> bytes(data, data + size);
    answer_with(system, bytes);
    {
        const CDriveHandle drive(drive_link);
        if (ReadUnitSerialPage(drive.device(), drive_link).size() > 123 ||
            ReadStoragePropertySerial(drive.device(), drive_link).size() > size || drive.GetProductName().size() > 25) {
            std::abort();
        }
        static_cast<void>(drive.GetSerialNumber());
    }
    const std::string text(bytes.begin(), bytes.end());
    if (!text.ends_with(LastWordWithBlanks(text))) {
        std::abort();
    }
    system.devices.forget_requests();
    system.log.clear();
    return 0;
}
