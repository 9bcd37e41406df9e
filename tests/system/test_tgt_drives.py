"""The drive procedures on drives that are not ours, over iSCSI on loopback. They know no ERASE, no FORMAT MEDIUM and no READ ATTRIBUTE:
the console sees what the description of a failure says, and nothing hangs."""

import time
import unittest
import xml.etree.ElementTree as ElementTree

from drive_library import Caller, failure_of, link_of, outcome, start_erase, task_status
from tape_server import TapeServer
from test_foreign_library import ForeignLibrary

FULL, EMPTY = 0, 1
CHANGER = r"\\.\Changer0"
NOT_SUPPORTED, NO_MEDIUM = 50, 1112


class ForeignDrives(unittest.TestCase):
    """The first drive holds a cartridge, the second none."""

    @classmethod
    def setUpClass(cls):
        cls.foreign = ForeignLibrary()
        cls.addClassCleanup(cls.foreign.close)
        cls.server = TapeServer(libraries=(), iscsi=cls.foreign.url, values={"TapeDeviceNotReadyTimeoutSec": 1})
        cls.addClassCleanup(cls.server.close)
        cls.client = cls.server.client(timeout=300)
        cls.addClassCleanup(cls.client.close)
        cls.client.call("LoadMedium", SymLinkName=CHANGER, SlotNum=0, DriveNum=FULL)

    def on(self, drive, procedure, **arguments):
        return self.client.call(procedure, SymLinkName=link_of(drive), **arguments)

    def test_drives_tell_what_they_are(self):
        drives = self.client.call("GetDrives")["Drives"]
        self.assertEqual([(drive.get("SymbolicLink"), drive.get("DeviceName"), drive.get("Name"), drive.get("SerialNumber").strip())
                          for drive in drives],
                         [(link_of(number), f"Tape{number}", "TARNO TESTDRIVE", f"TDRV000{number + 1}") for number in (FULL, EMPTY)])
        for number, drive in enumerate(drives):
            self.assertEqual((drive.find("Address").get("Lun"), drive.find("BlockSizes").get("MaximumBlockSize")), (str(number + 1), "1048576"))
        self.assertEqual([drive.get("SymbolicLink") for drive in self.client.call("GetDrives", LockedSymLinkNames=link_of(FULL))["Drives"]],
                         [link_of(EMPTY)])

    def test_status_and_block_sizes(self):
        for drive, status in ((FULL, 0), (EMPTY, NO_MEDIUM)):
            self.assertEqual(int(self.on(drive, "GetDriveError")["TapeStatus"]), status)
            self.assertEqual(list(self.on(drive, "GeDriveInfo")["DriveInfo"].items()),
                             [("DefaultBlockSize", "0"), ("MinimumBlockSize", "4"), ("MaximumBlockSize", "1048576")])

    def test_what_is_known_of_a_medium_needs_its_memory(self):
        # The drive refuses READ ATTRIBUTE, which fails the call and not only a part of its answer.
        began = time.monotonic()
        self.assertIn("Sense key: Illegal Request. Additional sense: Invalid command operation code",
                      failure_of(self.client, "GetMediaInfo", SymLinkName=link_of(FULL), ChangerToLockName=CHANGER))
        self.assertLess(time.monotonic() - began, 8)
        self.assertIn(f"No media in drive in '{link_of(EMPTY)}'", failure_of(self.client, "GetMediaInfo", SymLinkName=link_of(EMPTY)))

    def test_preparing(self):
        for operation in (2, 3, 4, 1, 0):
            for immediate in ("false", "true"):
                self.assertEqual(self.on(FULL, "PrepareTape", OperationNum=operation, ReturnImmediately=immediate), {})
        began = time.monotonic()
        self.assertIn("operation='5', immediately='FALSE' with status='50'",
                      failure_of(self.client, "PrepareTape", SymLinkName=link_of(FULL), OperationNum=5))
        self.assertLess(time.monotonic() - began, 8)

    def test_ejecting_and_locking(self):
        self.assertEqual(self.on(FULL, "StorageMediaRemoval", Prevent="true"), {})
        self.assertEqual(self.on(FULL, "StorageMediaRemoval", Prevent="false"), {})
        self.assertEqual(self.on(EMPTY, "EjectTapeFromStandalone"), {})
        self.assertEqual(self.on(FULL, "EjectTapeFromStandalone"), {})
        self.assertEqual(self.on(FULL, "PrepareTape", OperationNum=0), {})

    def test_erasing_is_refused_and_said_so(self):
        tasks = {(drive, long): start_erase(self.client, drive, long) for drive in (FULL, EMPTY) for long in (False, True)}
        statuses = {key: outcome(self.client, task) for key, task in tasks.items()}
        # An empty drive fails at the rewind already.
        self.assertEqual(statuses, {(FULL, False): NOT_SUPPORTED, (FULL, True): NOT_SUPPORTED, (EMPTY, False): NO_MEDIUM, (EMPTY, True): NO_MEDIUM})
        self.assertEqual(task_status(self.client, tasks[FULL, True]), NOT_SUPPORTED)
        self.assertIn("Failed to erase tape due 50. The tape driver does not support a requested function ", self.server.log())

    def test_alerts_of_devices_without_any(self):
        self.assertEqual(list(self.on(FULL, "GetDriveAlerts")["Alerts"]), [])
        self.assertEqual(list(self.client.call("GetChangerAlerts", SymLinkName=CHANGER)["Alerts"]), [])

    def test_statuses_of_the_library_s_drives(self):
        for procedure in ("GetDrivesStatuses", "GetDrivesStatusesByScsi"):
            output = ElementTree.fromstring(self.client.call_xml(procedure, SymLinkName=CHANGER))
            self.assertEqual([child.tag for child in output], ["DrivesStatuses"] * 2)
            for child in output:
                drives = ElementTree.fromstring(child.get("value")).findall("DriveStatus")
                self.assertEqual([drive.get("PrimaryVolumeID") for drive in drives], ["BAR001L8", ""])

    def test_two_look_at_one_drive(self):
        callers = [Caller(self, self.server, "GeDriveInfo", SymLinkName=link_of(EMPTY)) for _ in range(8)]
        self.assertEqual([list(caller.wait(self)) for caller in callers], [["DriveInfo"]] * 8)


if __name__ == "__main__":
    unittest.main()
