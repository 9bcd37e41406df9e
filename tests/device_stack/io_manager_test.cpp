#include "platform/device_stack/io_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <latch>
#include <thread>

#include "device_stack/scripted_transport.h"
#include "platform/device_stack/changer_database.h"
#include "platform/testing/fakes.h"

using platform::device_handle;
using platform::invalid_device;
namespace dos_device = platform::dos_device;
namespace ioctl = platform::ioctl;
using namespace platform::device_stack;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using bytes = std::vector<std::uint8_t>;

class IoManager : public testing::Test {
protected:
    IoManager() {
        first->add(1, "a-tape", "DRV1", {2, 0, 1, 0});
        first->add(8, "a-changer", "LIB1", {2, 0, 1, 1});
        second->add(8, "b-changer", "LIB2  ", {2, 0, 1, 0});
        second->add(1, "b-tape", "DRV2", {2, 0, 1, 1});
    }

    std::vector<std::string> names() {
        std::vector<std::string> found;
        for (const device_map_leaf& leaf : manager.device_map()) {
            found.push_back(leaf.device_name);
        }
        return found;
    }

    std::uint32_t number_of(device_handle device) {
        bytes output(12);
        std::uint32_t returned = 0;
        return manager.control(device, ioctl::storage_get_device_number, {}, output, returned) ? output[4] : 0xDEAD;
    }

    std::uint32_t last_error() { return system_.errors.last_error(); }

    platform::testing::test_system system_;
    std::shared_ptr<scripted_source> first = std::make_shared<scripted_source>();
    std::shared_ptr<scripted_source> second = std::make_shared<scripted_source>();
    io_manager manager{{first, second}, {"LIBX"}};
};

}  // namespace

TEST_F(IoManager, NamesUnitsInTheOrderOfTheirSources) {
    EXPECT_THAT(names(), ElementsAre("Tape0", "Changer0", "Changer1", "Tape1"));
}

TEST_F(IoManager, ShowsTheDeviceMap) {
    const auto leaves = manager.device_map();
    ASSERT_EQ(leaves.size(), 4U);
    EXPECT_EQ(leaves[0].type, "TapePeripheral");
    EXPECT_EQ(leaves[0].serial_number, "DRV1");
    EXPECT_EQ(leaves[2].type, "MediumChangerPeripheral");
    EXPECT_EQ(leaves[2].serial_number, "LIB2  ");
    EXPECT_EQ(leaves[1].location.lun, 1);
    // Each source's ports are its own: the second one's port 2 is another.
    EXPECT_EQ(leaves[0].location.port, 2);
    EXPECT_EQ(leaves[2].location.port, 0);
    EXPECT_EQ(leaves[3].location.port, 0);
}

TEST_F(IoManager, KeepsNamesForAsLongAsItLives) {
    ASSERT_THAT(names(), ElementsAre("Tape0", "Changer0", "Changer1", "Tape1"));
    first->pull("a-tape");
    EXPECT_THAT(names(), ElementsAre("Changer0", "Changer1", "Tape1"));
    first->add(1, "new-tape", "DRV9", {2, 0, 9, 0});
    EXPECT_THAT(names(), ElementsAre("Changer0", "Tape2", "Changer1", "Tape1"));
    first->add(1, "a-tape", "DRV1", {2, 0, 1, 0});
    EXPECT_THAT(names(), ElementsAre("Changer0", "Tape2", "Tape0", "Changer1", "Tape1"));
}

TEST_F(IoManager, LeavesOutWhatIsNeitherTapeNorChanger) {
    first->units.clear();
    second->units.clear();
    first->add(0, "disk", "D", {0, 0, 0, 0});
    EXPECT_THAT(manager.device_map(), IsEmpty());
}

TEST_F(IoManager, OpensByLinkNameInAnyCase) {
    const device_handle tape = manager.open_device("\\\\.\\tApE1");
    ASSERT_NE(tape, invalid_device);
    EXPECT_EQ(number_of(tape), 1U);
    EXPECT_THAT(second->opened, ElementsAre("b-tape"));
    EXPECT_TRUE(manager.close_device(tape));
}

TEST_F(IoManager, LooksForANameThatItDoesNotKnow) {
    const device_handle changer = manager.open_device("\\\\.\\Changer1");
    EXPECT_NE(changer, invalid_device);
    EXPECT_EQ(first->looks, 1);
    // Known names take no look.
    EXPECT_NE(manager.open_device("\\\\.\\Changer0"), invalid_device);
    EXPECT_EQ(first->looks, 1);
    second->add(1, "c-tape", "DRV3", {2, 0, 1, 2});
    EXPECT_NE(manager.open_device("\\\\.\\Tape2"), invalid_device);
    EXPECT_EQ(first->looks, 2);
}

TEST_F(IoManager, FailsToOpenWhatIsNotThere) {
    for (const char* name : {"\\\\.\\Tape7", "\\\\.\\", "Tape0", "", "\\\\.\\Tape0\\x", "/dev/sg0"}) {
        system_.errors.set_last_error(0);
        EXPECT_EQ(manager.open_device(name), invalid_device) << name;
        EXPECT_EQ(last_error(), 2U) << name;
    }
}

TEST_F(IoManager, NoticesAPulledDevice) {
    ASSERT_NE(manager.open_device("\\\\.\\Tape0"), invalid_device);
    first->pull("a-tape");
    EXPECT_EQ(manager.open_device("\\\\.\\Tape0"), invalid_device);
    EXPECT_EQ(last_error(), 2U);
}

TEST_F(IoManager, PassesOnWhyASourceCannotOpen) {
    first->open_failure = 32;
    EXPECT_EQ(manager.open_device("\\\\.\\Tape0"), invalid_device);
    EXPECT_EQ(last_error(), 32U);
    EXPECT_EQ(first->looks, 1);  // found; to look again would not help
}

TEST_F(IoManager, GivesEachOpenAHandleOfItsOwn) {
    const device_handle one = manager.open_device("\\\\.\\Tape0");
    const device_handle other = manager.open_device("\\\\.\\Tape0");
    ASSERT_NE(one, other);
    EXPECT_TRUE(manager.close_device(one));
    EXPECT_EQ(number_of(other), 0U);
    EXPECT_FALSE(manager.close_device(one));
    EXPECT_EQ(last_error(), 6U);
    std::uint32_t returned = 5;
    bytes output(12);
    EXPECT_FALSE(manager.control(one, ioctl::storage_get_device_number, {}, output, returned));
    EXPECT_EQ(last_error(), 6U);
    EXPECT_EQ(returned, 0U);
    EXPECT_FALSE(manager.pass_through_direct(invalid_device, output, {}, returned));
    EXPECT_EQ(last_error(), 6U);
}

TEST_F(IoManager, LeavesTheReasonOfAFailedControlInTheLastError) {
    const device_handle tape = manager.open_device("\\\\.\\Tape0");
    std::uint32_t returned = 5;
    bytes small(4);
    EXPECT_FALSE(manager.control(tape, ioctl::scsi_get_address, {}, small, returned));
    EXPECT_EQ(last_error(), 122U);
    EXPECT_FALSE(manager.control(tape, ioctl::changer_get_status, {}, small, returned));
    EXPECT_EQ(last_error(), 1U);
    bytes block(40);
    EXPECT_FALSE(manager.pass_through_direct(tape, block, {}, returned));
    EXPECT_EQ(last_error(), 87U);
    // The direct form has a call of its own.
    EXPECT_FALSE(manager.control(tape, ioctl::scsi_pass_through_direct, block, block, returned));
    EXPECT_EQ(last_error(), 1U);
}

TEST_F(IoManager, TellsTheTargetsOfBuiltInNames) {
    std::string target;
    ASSERT_TRUE(manager.query_dos_device("changer1", target));
    EXPECT_EQ(target, "\\Device\\Changer1");
    ASSERT_TRUE(manager.query_dos_device("Tape0", target));
    EXPECT_EQ(target, "\\Device\\Tape0");
    EXPECT_FALSE(manager.query_dos_device("Tape9", target));
    EXPECT_EQ(last_error(), 2U);
    EXPECT_EQ(target, "\\Device\\Tape0");
}

TEST_F(IoManager, OpensThroughADefinedName) {
    ASSERT_TRUE(manager.define_dos_device(dos_device::raw_target_path, "Tape001", "\\Device\\Tape1"));
    std::string target;
    ASSERT_TRUE(manager.query_dos_device("TAPE001", target));
    EXPECT_EQ(target, "\\Device\\Tape1");
    EXPECT_EQ(number_of(manager.open_device("\\\\.\\Tape001")), 1U);
    // A later definition holds, and its removal brings the former back.
    ASSERT_TRUE(manager.define_dos_device(dos_device::raw_target_path, "Tape001", "\\device\\TAPE0"));
    EXPECT_EQ(number_of(manager.open_device("\\\\.\\Tape001")), 0U);
    ASSERT_TRUE(manager.define_dos_device(3, "Tape001", ""));
    EXPECT_EQ(number_of(manager.open_device("\\\\.\\Tape001")), 1U);
    ASSERT_TRUE(manager.define_dos_device(3, "Tape001", ""));
    EXPECT_EQ(manager.open_device("\\\\.\\Tape001"), invalid_device);
    EXPECT_FALSE(manager.define_dos_device(3, "Tape001", ""));
    EXPECT_EQ(last_error(), 2U);
}

TEST_F(IoManager, FollowsNamesThatPointAtNames) {
    ASSERT_TRUE(manager.define_dos_device(0, "Mine", "Tape1"));
    std::string target;
    ASSERT_TRUE(manager.query_dos_device("Mine", target));
    EXPECT_EQ(target, "\\??\\Tape1");
    EXPECT_EQ(number_of(manager.open_device("\\\\.\\Mine")), 1U);
    ASSERT_TRUE(manager.define_dos_device(1, "Ring", "\\DosDevices\\Ring"));
    EXPECT_EQ(manager.open_device("\\\\.\\Ring"), invalid_device);
    EXPECT_EQ(last_error(), 2U);
}

TEST_F(IoManager, RefusesBadDefinitions) {
    EXPECT_FALSE(manager.define_dos_device(1, "", "\\Device\\Tape0"));
    EXPECT_EQ(last_error(), 87U);
    EXPECT_FALSE(manager.define_dos_device(1, "X", ""));
    EXPECT_EQ(last_error(), 87U);
    EXPECT_FALSE(manager.define_dos_device(0x40, "X", "\\Device\\Tape0"));
    EXPECT_EQ(last_error(), 87U);
    ASSERT_FALSE(names().empty());
    EXPECT_FALSE(manager.define_dos_device(3, "Tape0", ""));
    EXPECT_EQ(last_error(), 5U);
}

TEST_F(IoManager, LeavesAChangerWithoutADriverToItsPort) {
    second->units[0].serial = "LIBX  ";
    const auto leaves = manager.device_map();
    EXPECT_EQ(leaves[2].device_name, "");
    EXPECT_EQ(leaves[2].type, "MediumChangerPeripheral");
    changer_database database(manager);
    const auto nodes = database.medium_changers();
    ASSERT_EQ(nodes.size(), 2U);
    EXPECT_GT(nodes[0].service_size, 0U);
    EXPECT_EQ(nodes[1].service_size, 0U);
    EXPECT_TRUE(nodes[1].detail_known);
    EXPECT_EQ(nodes[1].problem, 0U);
    EXPECT_EQ(nodes[1].object_name, u"\\Device\\Scsi\\tarno1Port0Path0Target1Lun0");

    const std::string object(nodes[1].object_name.begin(), nodes[1].object_name.end());
    ASSERT_TRUE(manager.define_dos_device(1, "unknownChanger00", object));
    const device_handle changer = manager.open_device("\\\\.\\unknownChanger00");
    ASSERT_NE(changer, invalid_device);
    bytes output(60);
    std::uint32_t returned = 0;
    for (const std::uint32_t code : {ioctl::storage_get_device_number, ioctl::changer_get_parameters,
                                     ioctl::changer_get_product_data, ioctl::changer_get_element_status}) {
        EXPECT_FALSE(manager.control(changer, code, output, output, returned));
        EXPECT_EQ(last_error(), 1U);
    }
    EXPECT_TRUE(manager.control(changer, ioctl::scsi_get_address, {}, output, returned));
    EXPECT_EQ(manager.open_device("\\\\.\\Changer1"), invalid_device);
}

TEST_F(IoManager, RetargetsANameWhoseDeviceWasReplaced) {
    ASSERT_FALSE(names().empty());
    ASSERT_TRUE(manager.define_dos_device(1, "Port", "\\Device\\Scsi\\tarno1Port2Path0Target1Lun0"));
    ASSERT_NE(manager.open_device("\\\\.\\Port"), invalid_device);
    first->pull("a-tape");
    first->add(1, "other-tape", "DRV8", {2, 0, 1, 0});
    EXPECT_NE(manager.open_device("\\\\.\\Port"), invalid_device);
    EXPECT_EQ(first->opened.back(), "other-tape");
}

TEST_F(IoManager, ShowsWhatWasPluggedBeforeALookBegan) {
    class slow_source : public scripted_source {
    public:
        std::vector<logical_unit_info> enumerate() override {
            const auto found = scripted_source::enumerate();
            if (looks == 1) {
                entered.count_down();
                leave.wait();
            }
            return found;
        }
        std::latch entered{1};
        std::latch leave{1};
    };
    auto slow = std::make_shared<slow_source>();
    io_manager one({slow}, {});
    std::thread early([&] { EXPECT_TRUE(one.device_map().empty()); });
    slow->entered.wait();
    slow->add(1, "t", "S", {});
    std::thread late([&] { EXPECT_EQ(one.device_map().size(), 1U); });
    slow->leave.count_down();
    early.join();
    late.join();
    EXPECT_EQ(slow->looks, 2);
}

TEST_F(IoManager, ShowsAWholeLookWhileOthersTakeItsPlace) {
    changer_database database(manager);
    std::vector<std::thread> lookers;
    for (int i = 0; i < 4; ++i) {
        lookers.emplace_back([&] {
            for (int look = 0; look < 200; ++look) {
                EXPECT_EQ(manager.device_map().size(), 4U);
                EXPECT_EQ(database.medium_changers().size(), 2U);
            }
        });
    }
    for (std::thread& looker : lookers) {
        looker.join();
    }
}

TEST_F(IoManager, RecoversFromALookThatThrew) {
    class throwing_source : public scripted_source {
    public:
        std::vector<logical_unit_info> enumerate() override {
            if (++looks == 1) {
                throw std::bad_alloc();
            }
            return units;
        }
    };
    auto source = std::make_shared<throwing_source>();
    source->add(1, "t", "S", {});
    io_manager one({source}, {});
    EXPECT_THROW(static_cast<void>(one.look()), std::bad_alloc);
    EXPECT_EQ(one.look()->size(), 1U);
}
