#include <gtest/gtest.h>

#include "changer/changer_interface.h"
#include "changer/library_world.h"
#include "foundation/exc/exceptions.h"
#include "foundation/util/bytes.h"
#include "platform/errors.h"

namespace {

using namespace changer_tests;
namespace tape_library = platform::tape_library;
using ::testing::ElementsAre;

/// Both backends over the class drivers and a virtual library: no part is scripted.
class ChangerOverLibrary : public ::testing::TestWithParam<bool> {
protected:
    boost::shared_ptr<IChangerHandle> open() { return world.open(GetParam()); }
    std::string barcode_of(const CHANGER_ELEMENT_STATUS_EX& record) {
        return util::without_trailing_blanks(util::text_to_nul(record.PrimaryVolumeID));
    }

    library_world world;
};

TEST_P(ChangerOverLibrary, TellsWhoItIs) {
    const auto changer = open();
    EXPECT_EQ(changer->GetDeviceName(), u"Changer0");
    EXPECT_EQ(changer->GetSerialNumber(), u"TRNLIB0001");
    CHANGER_PRODUCT_DATA data;
    ASSERT_TRUE(changer->GetProductData(data));
    EXPECT_EQ(util::text_to_nul(data.SerialNumber).substr(0, 10), "TRNLIB0001");
    EXPECT_EQ(data.DeviceType, 8);
    EXPECT_EQ(changer->GetScsiAddress().Lun, 0);
}

TEST_P(ChangerOverLibrary, CountsItsElements) {
    const GET_CHANGER_PARAMETERS parameters = open()->GetParameters();
    EXPECT_EQ(parameters.NumberTransportElements, 1);
    EXPECT_EQ(parameters.NumberStorageElements, 24);
    EXPECT_EQ(parameters.NumberIEElements, 2);
    EXPECT_EQ(parameters.NumberDataTransferElements, 2);
}

TEST_P(ChangerOverLibrary, ReadsSlotsPortsAndDrives) {
    const auto changer = open();
    const ElementStatusList slots = changer->GetElementStatus(0, ChangerSlot, true, 24);
    ASSERT_EQ(slots->size(), 24u);
    EXPECT_EQ(barcode_of((*slots)[0]), "TRN001L8");
    EXPECT_EQ(barcode_of((*slots)[19]), "TRN020L8");
    EXPECT_EQ((*slots)[23].Element.ElementAddress, 23u);
    EXPECT_EQ((*slots)[23].Flags & platform::ELEMENT_STATUS_FULL, 0u);
    EXPECT_EQ(changer->GetElementStatus(0, ChangerIEPort, true, 2)->size(), 2u);
    const ElementStatusList drives = changer->GetElementStatus(0, ChangerDrive, true, 2);
    ASSERT_EQ(drives->size(), 2u);
    EXPECT_THAT(*changer->GetSerialNames(drives, ChangerDrive), ElementsAre("TRNDRV0001", "TRNDRV0002"));
    EXPECT_THAT(world.system.clock.sleeps(), ::testing::IsEmpty());
}

TEST_P(ChangerOverLibrary, CarriesACartridgeAround) {
    const auto changer = open();
    changer->LoadMedium(4, 1);
    EXPECT_EQ(world.library->locate("TRN005L8"), library_world::drives_from + 1);
    const ElementStatusList drive = changer->GetElementStatus(1, ChangerDrive, true, 1);
    EXPECT_EQ(barcode_of(drive->front()), "TRN005L8");
    EXPECT_EQ(drive->front().SrcElementAddress.ElementType, ChangerSlot);
    EXPECT_EQ(drive->front().SrcElementAddress.ElementAddress, 4u);
    changer->UnloadMedium(1, 22);
    EXPECT_EQ(world.library->locate("TRN005L8"), library_world::slots_from + 22);
    changer->FromSlotToIEPort(22, 1);
    EXPECT_EQ(world.library->locate("TRN005L8"), library_world::ports_from + 1);
    changer->FromIEPortToSlot(1, 4);
    changer->LoadMedium(4, 0);
    changer->FromDriveToIEPort(0, 0);
    EXPECT_EQ(world.library->locate("TRN005L8"), library_world::ports_from);
    changer->MoveToSlot(0, 20);
    EXPECT_EQ(world.library->locate("TRN001L8"), library_world::slots_from + 20);
}

TEST_P(ChangerOverLibrary, LeavesTheLastErrorAloneWhenNothingFails) {
    platform::system().errors->set_last_error(0);
    const auto changer = open();
    changer->GetSerialNumber();
    changer->GetParameters();
    changer->GetElementStatus(0, ChangerSlot, true, 24);
    changer->LoadMedium(4, 1);
    EXPECT_EQ(platform::system().errors->last_error(), 0u);
}

TEST_P(ChangerOverLibrary, RefusesAMoveToAFullElementInItsOwnWordsAlone) {
    world.set_timeout(0);
    platform::system().errors->set_last_error(0);
    try {
        open()->MoveToSlot(0, 1);
        FAIL();
    } catch (const exc::win_sys_exc_t& e) {
        EXPECT_STREQ(e.what(),
                     "The operation completed successfully.\n"
                     "Unable to move tape to ChangerSlot #1: changer element in not empty\n"
                     "--tr:Error code: 0x00000000");
    }
}

TEST_P(ChangerOverLibrary, BelievesTheElementsWhenTheReplyIsLost) {
    world.library->faults().add(tape_library::faults::lost_move_reply());
    open()->LoadMedium(0, 0);
    EXPECT_EQ(world.library->locate("TRN001L8"), library_world::drives_from);
    EXPECT_THAT(world.system.clock.sleeps(), ElementsAre(5000));
    EXPECT_TRUE(world.system.log.has_line("Complete move medium from ChangerSlot #0 to ChangerDrive #0"));
}

TEST_P(ChangerOverLibrary, MovesOnceTheDoorIsClosed) {
    world.library->open_door();
    int waits = 0;
    world.system.clock.on_sleep([&](std::int64_t milliseconds) {
        if (milliseconds == 5000 && ++waits == 3) {
            world.library->close_door();
        }
    });
    open()->LoadMedium(0, 0);
    EXPECT_EQ(world.library->locate("TRN001L8"), library_world::drives_from);
    EXPECT_GE(waits, 3);
}

TEST_P(ChangerOverLibrary, TellsThatTheCartridgeHasNotMovedWhenTheDoorStaysOpen) {
    const auto changer = open();
    world.library->open_door();
    EXPECT_THROW(changer->LoadMedium(0, 0), std::exception);
    EXPECT_EQ(world.library->locate("TRN001L8"), library_world::slots_from);
}

TEST_P(ChangerOverLibrary, ReadsDrivesOfALibraryWithoutDeviceIdentifiers) {
    world.library->faults().add(tape_library::faults::no_device_identifiers());
    if (GetParam()) {
        EXPECT_EQ(open()->GetElementStatus(0, ChangerDrive, true, 2)->size(), 2u);
    } else {
        // The driver's drives have no serial numbers then, and such a walk finds none.
        world.set_timeout(0);
        EXPECT_THROW(open()->GetElementStatus(0, ChangerDrive, true, 2), std::exception);
    }
}

TEST_P(ChangerOverLibrary, TellsDrivesWithOneSerialNumberApartBySCSIOnly) {
    world.library->faults().set_drive_serial("SAME");
    world.set_timeout(0);
    if (GetParam()) {
        EXPECT_EQ(open()->GetElementStatus(0, ChangerDrive, true, 2)->size(), 2u);
    } else {
        EXPECT_THROW(open()->GetElementStatus(0, ChangerDrive, true, 2), std::exception);
    }
}

TEST_P(ChangerOverLibrary, FailsWithinItsTimeWhenTheTargetIsDead) {
    const auto changer = open();
    world.library->faults().add(tape_library::faults::target_dead());
    EXPECT_THROW(changer->GetElementStatus(0, ChangerSlot, true, 24), std::exception);
    EXPECT_EQ(world.system.clock.sleeps(), std::vector<std::int64_t>(13, 5000));
    world.library->faults().clear();
    EXPECT_EQ(changer->GetElementStatus(0, ChangerSlot, true, 24)->size(), 24u);
}

INSTANTIATE_TEST_SUITE_P(BothBackends, ChangerOverLibrary, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& tested) { return tested.param ? "Scsi" : "Driver"; });

TEST(ScsiChangerOverLibrary, WaitsOutAnAccessedPortAtItsConstruction) {
    library_world world;
    world.library->faults().add(tape_library::faults::port_accessed(2));
    EXPECT_EQ(world.open(true)->GetParameters().NumberStorageElements, 24);
    EXPECT_THAT(world.system.clock.sleeps(), ElementsAre(20000, 40000));
}

TEST(ScsiChangerOverLibrary, NeedsNoClassDriver) {
    library_world world({"TRNLIB0001"});
    ASSERT_TRUE(world.manager.define_dos_device(1, "unknownChanger00", world.manager.look()->front().port_object));
    const auto changer = world.open(true, "\\\\.\\unknownChanger00");
    EXPECT_EQ(changer->GetDeviceName(), u"Changer100");
    EXPECT_EQ(changer->GetElementStatus(0, ChangerSlot, true, 24)->size(), 24u);
    changer->LoadMedium(0, 0);
    EXPECT_EQ(world.library->locate("TRN001L8"), library_world::drives_from);
    EXPECT_EQ(changer->GetSerialNumber(), u"TRNLIB0001");
}

TEST(ScsiChangerOverLibrary, WorksInTheIndirectForm) {
    library_world world;
    world.system.registry.set_dword("SOFTWARE\\Tarno\\Tarno Backup Tape", "EnableIndirectScsi", 1);
    const auto changer = world.open(true);
    EXPECT_EQ(changer->GetElementStatus(0, ChangerSlot, true, 24)->size(), 24u);
    changer->LoadMedium(0, 0);
    EXPECT_EQ(world.library->locate("TRN001L8"), library_world::drives_from);
}

}  // namespace
