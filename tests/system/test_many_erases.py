"""200 erases at once on 200 virtual drives, and a server that answers meanwhile."""

import time
import unittest

from drive_library import DONE, RUNNING, link_of, outcome, start_erase, task_status, write_library
from tape_server import TapeServer

DRIVES = 200


class ManyErases(unittest.TestCase):
    # Long enough that all of them run before the first has ended, on a machine that is busy with other things, too.
    erase_milliseconds = 12_000

    def setUp(self):
        self.server = TapeServer(libraries=(), start=False)
        self.addCleanup(self.server.close)
        self.library = write_library(self.server.folder / "library", DRIVES, ("",) * DRIVES, f'erase-long="{self.erase_milliseconds}"')
        self.server.libraries = [self.library, write_library(self.server.folder / "other", 2, ("", None), serial="TRNLIB0002")]
        self.server.write_settings({}, "")
        self.server.start()
        self.client = self.server.client()
        self.addCleanup(self.client.close)

    def start_all(self):
        tasks = [start_erase(self.client, drive, long=True) for drive in range(DRIVES)]
        self.assertEqual(len(set(tasks)), DRIVES)
        return tasks

    def test_all_of_them_end_well(self):
        began = time.monotonic()
        tasks = self.start_all()
        self.assertEqual({task_status(self.client, task) for task in tasks}, {RUNNING})
        self.assertLess(time.monotonic() - began, self.erase_milliseconds / 1000, "this machine is too slow for this test")
        # The drives that erase are left alone; everything else is answered, and not after the erases.
        locked = ";".join(link_of(drive) for drive in range(DRIVES))
        drives = self.client.call("GetDrives", LockedSymLinkNames=locked)["Drives"]
        self.assertEqual([drive.get("SymbolicLink") for drive in drives], [link_of(DRIVES), link_of(DRIVES + 1)])
        self.assertEqual(len(self.client.call("GetSlotsStatuses", SymLinkName=r"\\.\Changer0")["SlotsStatuses"].findall("SlotStatus")), DRIVES)
        self.assertEqual(outcome(self.client, start_erase(self.client, DRIVES)), DONE)
        self.assertEqual({outcome(self.client, task) for task in tasks}, {DONE})
        # They ran side by side: one after the other, they would have taken forty minutes.
        self.assertLess(time.monotonic() - began, 4 * self.erase_milliseconds / 1000)
        self.assertEqual(self.server.log().count("Beginning tape erasing. ok."), DRIVES + 1)

    def test_the_server_ends_while_they_run(self):
        self.start_all()
        began = time.monotonic()
        self.assertEqual(self.server.stop(), 0)
        self.assertLess(time.monotonic() - began, self.erase_milliseconds / 1000)


if __name__ == "__main__":
    unittest.main()
