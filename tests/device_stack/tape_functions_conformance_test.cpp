#include <gtest/gtest.h>

#include "device_stack/scripted_transport.h"
#include "device_stack/tape_answers.h"
#include "foundation/util/bytes.h"
#include "platform/device_stack/tape_drives.h"
#include "platform/tape_records.h"
#include "platform/testing/fakes.h"
#include "support/implementation_names.h"

/// What the contract promises of every implementation: the drives over SCSI and the scripted ones.
namespace {

using namespace platform;
using tape_answers::bytes;
using kind = platform::testing::tape_request::kind;

class over_scsi {
public:
    static constexpr const char* name = "OverScsi";

    over_scsi() {
        source_->add(1, "drive", "DRV1", {0, 0, 1, 0});
        source_->transport->otherwise([this](const device_stack::scsi_command& command) {
            device_stack::scsi_outcome outcome;
            outcome.transport_error = failure_;
            const bytes data = answer_to(command.cdb[0]);
            const std::size_t count = std::min(data.size(), command.data.size());
            std::copy_n(data.begin(), count, command.data.begin());
            outcome.transferred = static_cast<std::uint32_t>(count);
            return outcome;
        });
        drive = manager_.open_device("\\\\.\\Tape0");
    }

    platform::tape_functions& functions() { return drives_; }
    void fail_with(std::uint32_t status) { failure_ = status; }

    device_handle drive = invalid_device;

private:
    static bytes answer_to(std::uint8_t code) {
        switch (code) {
            case 0x05:
                return {0, 0x80, 0, 0, 0, 1};
            case 0x1A:
                return tape_answers::mode(0x80, 0x5E, 4096, {0x11, 6, 1, 0, 0, 0, 0, 0});
            case 0x8C:
                return tape_answers::attributes({{0, tape_answers::be64(2)}, {1, tape_answers::be64(5)}});
            default:
                return {};
        }
    }

    std::shared_ptr<scripted_source> source_ = std::make_shared<scripted_source>();
    device_stack::io_manager manager_{{source_}, {}};
    device_stack::tape_drives drives_{manager_};
    std::uint32_t failure_ = 0;
};

class scripted {
public:
    static constexpr const char* name = "Scripted";

    scripted() {
        TAPE_GET_MEDIA_PARAMETERS media;
        media.Capacity = 5U << 20;
        media.Remaining = 2U << 20;
        media.BlockSize = 4096;
        media.PartitionCount = 1;
        media.WriteProtected = 1;
        tape_.set_media(media);
        TAPE_GET_DRIVE_PARAMETERS abilities;
        abilities.DefaultBlockSize = 4096;
        abilities.MaximumBlockSize = 0x800000;
        abilities.MinimumBlockSize = 1;
        tape_.set_drive(abilities);
    }

    platform::tape_functions& functions() { return tape_; }
    void fail_with(std::uint32_t status) {
        for (const kind what :
             {kind::media_parameters, kind::drive_parameters, kind::prepare, kind::set_position, kind::erase, kind::get_status}) {
            tape_.always(what, status);
        }
    }

    device_handle drive = 4;

private:
    platform::testing::scripted_tape tape_;
};

template <typename Implementation>
class TapeFunctionsConformance : public ::testing::Test {
protected:
    platform::tape_functions& functions() { return under_test_.functions(); }
    [[nodiscard]] device_handle drive() const { return under_test_.drive; }
    std::uint32_t last_error() { return system_.errors.last_error(); }

    platform::testing::test_system system_;
    Implementation under_test_;
};

using implementations = ::testing::Types<over_scsi, scripted>;
TYPED_TEST_SUITE(TapeFunctionsConformance, implementations, test_support::implementation_names);

TYPED_TEST(TapeFunctionsConformance, FillsTheRecordOfEachOperation) {
    TAPE_GET_MEDIA_PARAMETERS media;
    std::uint32_t size = sizeof(media);
    ASSERT_EQ(this->functions().get_parameters(this->drive(), GET_TAPE_MEDIA_INFORMATION, size, util::writable_bytes(media)), 0U);
    EXPECT_EQ(size, 32U);
    EXPECT_EQ(media.Capacity, 5U << 20);
    EXPECT_EQ(media.Remaining, 2U << 20);
    EXPECT_EQ(media.BlockSize, 4096U);
    EXPECT_EQ(media.PartitionCount, 1U);
    EXPECT_EQ(media.WriteProtected, 1);
    TAPE_GET_DRIVE_PARAMETERS abilities;
    ASSERT_EQ(this->functions().get_parameters(this->drive(), GET_TAPE_DRIVE_INFORMATION, size, util::writable_bytes(abilities)),
              0U);
    EXPECT_EQ(abilities.DefaultBlockSize, 4096U);
    EXPECT_EQ(abilities.MaximumBlockSize, 0x800000U);
    EXPECT_EQ(abilities.MinimumBlockSize, 1U);
}

TYPED_TEST(TapeFunctionsConformance, SetsASizeThatCameInTooSmallRight) {
    TAPE_GET_MEDIA_PARAMETERS media;
    std::uint32_t size = 4;
    const std::uint32_t first =
        this->functions().get_parameters(this->drive(), GET_TAPE_MEDIA_INFORMATION, size, util::writable_bytes(media));
    EXPECT_TRUE(first == 0 || first == error::more_data);
    EXPECT_EQ(size, 32U);
    EXPECT_EQ(this->functions().get_parameters(this->drive(), GET_TAPE_MEDIA_INFORMATION, size, util::writable_bytes(media)), 0U);
}

TYPED_TEST(TapeFunctionsConformance, WritesNothingBeyondARecordThatIsTooShort) {
    bytes record(31, 0xEE);
    std::uint32_t size = 32;
    EXPECT_EQ(this->functions().get_parameters(this->drive(), GET_TAPE_DRIVE_INFORMATION, size, record), error::more_data);
    EXPECT_EQ(this->last_error(), error::more_data);
    EXPECT_EQ(record, bytes(31, 0xEE));
}

TYPED_TEST(TapeFunctionsConformance, LeavesAFailureInTheLastErrorAsWell) {
    this->under_test_.fail_with(error::io_device);
    bytes record(32);
    std::uint32_t size = 32;
    const auto failed = [this](std::uint32_t status) {
        EXPECT_EQ(status, error::io_device);
        EXPECT_EQ(this->last_error(), error::io_device);
        this->system_.errors.set_last_error(0);
    };
    failed(this->functions().get_parameters(this->drive(), GET_TAPE_MEDIA_INFORMATION, size, record));
    failed(this->functions().get_parameters(this->drive(), GET_TAPE_DRIVE_INFORMATION, size, record));
    failed(this->functions().prepare(this->drive(), TAPE_UNLOAD, false));
    failed(this->functions().set_position(this->drive(), TAPE_REWIND, 0, 0, false));
    failed(this->functions().erase(this->drive(), TAPE_ERASE_SHORT, false));
    failed(this->functions().erase(this->drive(), TAPE_ERASE_LONG, false));
    failed(this->functions().get_status(this->drive()));
}

TYPED_TEST(TapeFunctionsConformance, SucceedsInEveryOperation) {
    for (std::uint32_t operation = TAPE_LOAD; operation <= TAPE_FORMAT; ++operation) {
        EXPECT_EQ(this->functions().prepare(this->drive(), operation, operation % 2 == 0), 0U);
    }
    EXPECT_EQ(this->functions().set_position(this->drive(), TAPE_REWIND, 0, 0, false), 0U);
    EXPECT_EQ(this->functions().erase(this->drive(), TAPE_ERASE_SHORT, false), 0U);
    EXPECT_EQ(this->functions().erase(this->drive(), TAPE_ERASE_LONG, false), 0U);
    EXPECT_EQ(this->functions().get_status(this->drive()), 0U);
}

}  // namespace
