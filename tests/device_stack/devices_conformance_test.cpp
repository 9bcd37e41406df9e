#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "device_stack/scripted_transport.h"
#include "foundation/util/bytes.h"
#include "platform/device_stack/io_manager.h"
#include "platform/scsi_records.h"
#include "platform/testing/fakes.h"
#include "support/implementation_names.h"

/// What the contract promises of every implementation: the devices over SCSI and the scripted ones.
namespace {

using namespace platform;
using bytes = std::vector<std::uint8_t>;

/// A changer by the name Changer0 whose object is `object`, with INQUIRY data of eight bytes.
const bytes inquiry_data{0x08, 0x80, 0x06, 0x02, 0x5B, 0, 0, 0};

class over_scsi {
public:
    static constexpr const char* name = "OverScsi";

    over_scsi() {
        source_->add(8, "changer", "LIB1", {0, 0, 1, 0});
        source_->transport->otherwise([](const device_stack::scsi_command& command) {
            device_stack::scsi_outcome outcome;
            if (command.cdb[0] != 0x12) {
                outcome.scsi_status = 2;
                outcome.sense = scripted_transport::fixed_sense(2, 0x04, 0x01);
                return outcome;
            }
            const std::size_t count = std::min(command.data.size(), inquiry_data.size());
            std::copy_n(inquiry_data.begin(), count, command.data.begin());
            outcome.transferred = static_cast<std::uint32_t>(count);
            return outcome;
        });
        object_ = manager_.look()->front().class_object;
    }

    platform::devices& devices() { return manager_; }
    [[nodiscard]] const std::string& object() const { return object_; }

private:
    std::shared_ptr<scripted_source> source_ = std::make_shared<scripted_source>();
    device_stack::io_manager manager_{{source_}, {}};
    std::string object_;
};

class scripted {
public:
    static constexpr const char* name = "Scripted";

    scripted() {
        devices_.add_device("\\\\.\\Changer0");
        devices_.add_object(object_);
        devices_.set_dos_device("Changer0", object_);
        const auto answer = [](const platform::testing::device_request& request) {
            const bool inquires = platform::testing::cdb_of(request).at(0) == 0x12;
            return inquires ? platform::testing::answer_scsi(request, 0, {}, inquiry_data)
                            : platform::testing::answer_scsi(request, 2, scripted_transport::fixed_sense(2, 0x04, 0x01));
        };
        devices_.on_direct(answer);
        devices_.on_control([answer](const platform::testing::device_request& request) {
            platform::testing::device_answer unknown;
            unknown.error = error::invalid_function;
            return request.code == ioctl::scsi_pass_through ? answer(request) : unknown;
        });
    }

    platform::devices& devices() { return devices_; }
    [[nodiscard]] const std::string& object() const { return object_; }

private:
    platform::testing::scripted_devices devices_;
    std::string object_ = "\\Device\\Changer0";
};

template <typename Implementation>
class DevicesConformance : public ::testing::Test {
protected:
    platform::devices& devices() { return under_test_.devices(); }
    std::uint32_t last_error() { return system_.errors.last_error(); }

    device_handle opened() {
        const device_handle device = devices().open_device("\\\\.\\Changer0");
        EXPECT_NE(device, invalid_device);
        return device;
    }

    static constexpr std::size_t data_at = 80;
    /// A pass-through block with room for 32 bytes of sense at 44, and in the buffered form for `room` bytes of data at 80.
    static bytes block(std::uint8_t opcode, std::uint32_t room, bool buffered) {
        SCSI_PASS_THROUGH header;
        header.Length = sizeof(header);
        header.CdbLength = 6;
        header.SenseInfoLength = 32;
        header.SenseInfoOffset = sizeof(header);
        header.DataIn = room != 0 ? SCSI_DATA_IN : SCSI_DATA_NONE;
        header.DataTransferLength = room;
        header.DataBufferOffset = buffered ? data_at : 0;
        header.TimeOutValue = 10;
        header.Cdb[0] = opcode;
        header.Cdb[4] = static_cast<std::uint8_t>(room);
        bytes made(data_at + (buffered ? room : 0));
        const auto head = util::record_bytes(header);
        std::copy(head.begin(), head.end(), made.begin());
        return made;
    }

    platform::testing::test_system system_;
    Implementation under_test_;
};

using implementations = ::testing::Types<over_scsi, scripted>;
TYPED_TEST_SUITE(DevicesConformance, implementations, test_support::implementation_names);

TYPED_TEST(DevicesConformance, OpensByLinkNameInAnyCaseAsOftenAsAsked) {
    const device_handle first = this->opened();
    const device_handle second = this->devices().open_device("\\\\.\\cHANGER0");
    EXPECT_NE(second, invalid_device);
    EXPECT_NE(first, second);
    EXPECT_TRUE(this->devices().close_device(first));
    EXPECT_TRUE(this->devices().close_device(second));
}

TYPED_TEST(DevicesConformance, KnowsNoOtherNames) {
    for (const char* const name : {"\\\\.\\Changer1", "Changer0", "\\\\.\\", ""}) {
        this->system_.errors.set_last_error(0);
        EXPECT_EQ(this->devices().open_device(name), invalid_device) << name;
        EXPECT_EQ(this->last_error(), error::file_not_found) << name;
    }
}

TYPED_TEST(DevicesConformance, RefusesClosedHandles) {
    const device_handle device = this->opened();
    ASSERT_TRUE(this->devices().close_device(device));
    bytes request = this->block(0x00, 0, true);
    for (const device_handle dead : {device, invalid_device, device_handle{0}}) {
        std::uint32_t returned = 99;
        this->system_.errors.set_last_error(0);
        EXPECT_FALSE(this->devices().close_device(dead));
        EXPECT_EQ(this->last_error(), error::invalid_handle);
        this->system_.errors.set_last_error(0);
        EXPECT_FALSE(this->devices().control(dead, ioctl::scsi_pass_through, request, request, returned));
        EXPECT_EQ(this->last_error(), error::invalid_handle);
        EXPECT_EQ(returned, 0U);
        returned = 99;
        this->system_.errors.set_last_error(0);
        EXPECT_FALSE(this->devices().pass_through_direct(dead, request, {}, returned));
        EXPECT_EQ(this->last_error(), error::invalid_handle);
        EXPECT_EQ(returned, 0U);
    }
}

TYPED_TEST(DevicesConformance, FailsControlsThatItDoesNotKnow) {
    const device_handle device = this->opened();
    std::uint32_t returned = 99;
    EXPECT_FALSE(this->devices().control(device, 0x7C0DE, {}, {}, returned));
    EXPECT_EQ(this->last_error(), error::invalid_function);
    EXPECT_EQ(returned, 0U);
}

TYPED_TEST(DevicesConformance, HasADoorOfItsOwnForTheDirectForm) {
    const device_handle device = this->opened();
    bytes request = this->block(0x12, 8, false);
    std::uint32_t returned = 99;
    EXPECT_FALSE(this->devices().control(device, ioctl::scsi_pass_through_direct, request, request, returned));
    EXPECT_NE(this->last_error(), 0U);
    EXPECT_EQ(returned, 0U);
}

TYPED_TEST(DevicesConformance, AnswersAPassThroughInPlace) {
    const device_handle device = this->opened();
    bytes request = this->block(0x12, 16, true);
    std::uint32_t returned = 0;
    ASSERT_TRUE(this->devices().control(device, ioctl::scsi_pass_through, request, request, returned));
    const auto header = util::load_record<SCSI_PASS_THROUGH>(request);
    EXPECT_EQ(header.ScsiStatus, 0);
    EXPECT_EQ(header.SenseInfoLength, 0);
    EXPECT_EQ(header.DataTransferLength, inquiry_data.size());
    EXPECT_EQ(returned, this->data_at + inquiry_data.size());
    EXPECT_EQ(bytes(request.begin() + this->data_at, request.begin() + this->data_at + 8), inquiry_data);
}

TYPED_TEST(DevicesConformance, CountsAScsiStatusAsSuccessOfThePassThrough) {
    const device_handle device = this->opened();
    bytes request = this->block(0x00, 0, true);
    std::uint32_t returned = 0;
    ASSERT_TRUE(this->devices().control(device, ioctl::scsi_pass_through, request, request, returned));
    const auto header = util::load_record<SCSI_PASS_THROUGH>(request);
    EXPECT_EQ(header.ScsiStatus, 2);
    EXPECT_EQ(header.SenseInfoLength, 18);
    EXPECT_EQ(header.DataTransferLength, 0U);
    EXPECT_EQ(request[sizeof(header) + 2], 2);
    EXPECT_EQ(request[sizeof(header) + 12], 4);
    EXPECT_EQ(returned, sizeof(header) + 18);
}

TYPED_TEST(DevicesConformance, ServesTheDirectForm) {
    const device_handle device = this->opened();
    bytes request = this->block(0x12, 16, false);
    bytes data(16, 0xEE);
    std::uint32_t returned = 0;
    ASSERT_TRUE(this->devices().pass_through_direct(device, request, data, returned));
    auto header = util::load_record<SCSI_PASS_THROUGH>(request);
    EXPECT_EQ(header.ScsiStatus, 0);
    EXPECT_EQ(header.DataTransferLength, inquiry_data.size());
    EXPECT_EQ(bytes(data.begin(), data.begin() + 8), inquiry_data);
    EXPECT_EQ(data[8], 0xEE);

    request = this->block(0x00, 0, false);
    ASSERT_TRUE(this->devices().pass_through_direct(device, request, {}, returned));
    header = util::load_record<SCSI_PASS_THROUGH>(request);
    EXPECT_EQ(header.ScsiStatus, 2);
    EXPECT_EQ(header.SenseInfoLength, 18);
    EXPECT_EQ(request[sizeof(header) + 2], 2);
}

TYPED_TEST(DevicesConformance, TellsWhatADosNamePointsAt) {
    std::string target = "untouched";
    EXPECT_FALSE(this->devices().query_dos_device("Changer9", target));
    EXPECT_EQ(this->last_error(), error::file_not_found);
    EXPECT_EQ(target, "untouched");
    ASSERT_TRUE(this->devices().query_dos_device("changer0", target));
    EXPECT_EQ(target, this->under_test_.object());
}

TYPED_TEST(DevicesConformance, StacksTheDefinitionsOfADosName) {
    platform::devices& devices = this->devices();
    const auto target_of = [&devices](const std::string& name) {
        std::string target;
        return devices.query_dos_device(name, target) ? target : "(none)";
    };
    ASSERT_TRUE(devices.define_dos_device(dos_device::raw_target_path, "Mine", "\\Device\\Nothing"));
    ASSERT_TRUE(devices.define_dos_device(dos_device::raw_target_path, "mine", this->under_test_.object()));
    EXPECT_EQ(target_of("MINE"), this->under_test_.object());
    const device_handle device = devices.open_device("\\\\.\\Mine");
    EXPECT_NE(device, invalid_device);
    ASSERT_TRUE(devices.define_dos_device(dos_device::raw_target_path | dos_device::remove_definition, "Mine", ""));
    EXPECT_EQ(target_of("Mine"), "\\Device\\Nothing");
    EXPECT_EQ(devices.open_device("\\\\.\\Mine"), invalid_device);
    EXPECT_EQ(this->last_error(), error::file_not_found);
    // What is open stays open, whatever becomes of its name.
    EXPECT_TRUE(devices.close_device(device));
    ASSERT_TRUE(devices.define_dos_device(dos_device::remove_definition, "Mine", ""));
    EXPECT_EQ(target_of("Mine"), "(none)");
    EXPECT_FALSE(devices.define_dos_device(dos_device::remove_definition, "Mine", ""));
    EXPECT_EQ(this->last_error(), error::file_not_found);
}

TYPED_TEST(DevicesConformance, TakesATargetThatIsNotRawAsANameOfItsOwnKind) {
    platform::devices& devices = this->devices();
    ASSERT_TRUE(devices.define_dos_device(0, "Alias", "Changer0"));
    std::string target;
    ASSERT_TRUE(devices.query_dos_device("Alias", target));
    EXPECT_EQ(target, "\\??\\Changer0");
    EXPECT_NE(devices.open_device("\\\\.\\Alias"), invalid_device);
}

TYPED_TEST(DevicesConformance, RefusesDefinitionsThatMeanNothing) {
    platform::devices& devices = this->devices();
    EXPECT_FALSE(devices.define_dos_device(dos_device::raw_target_path, "", "\\Device\\X"));
    EXPECT_EQ(this->last_error(), error::invalid_parameter);
    EXPECT_FALSE(devices.define_dos_device(dos_device::raw_target_path, "Name", ""));
    EXPECT_EQ(this->last_error(), error::invalid_parameter);
}

}  // namespace
