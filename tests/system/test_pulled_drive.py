"""Drives that are pulled while the server works with them: every procedure ends with an error in time, and works when they are back."""

import re
import time
import unittest

from drive_library import Caller, failure_of, link_of, outcome, start_erase, task_status, write_faults, write_library
from tape_server import TapeServer
from test_foreign_library import ForeignLibrary

NO_MEDIUM = 1112
# What the time-out of a second, the pause of ten before the next try and a command's own end come to, and as much again.
LIMIT = 30

# Each on a drive of its own, all at once: procedure, arguments, and what a drive answers that is there and empty.
CALLS = [
    ("GetMediaInfo", {}, r"No media in drive in '"),
    ("GeDriveInfo", {}, None),
    ("GetDriveError", {}, None),
    ("EjectTapeFromStandalone", {}, None),
    ("PrepareTape", {"OperationNum": 0}, None),
    ("PrepareTape", {"OperationNum": 2}, None),
    ("PrepareTape", {"OperationNum": 5}, r"with status='50'"),
    ("StorageMediaRemoval", {"Prevent": "true"}, None),
    ("GetDriveAlerts", {}, None),
]
SHORT, LONG = len(CALLS), len(CALLS) + 1  # two more drives, for the two kinds of erase
# Not failures of the call: a drive's status and its alerts.
TOLD_IN_THE_ANSWER = ("GetDriveError", "GetDriveAlerts")


class PulledDrives(unittest.TestCase):
    def setUp(self):
        self.foreign = ForeignLibrary("--drives", str(len(CALLS) + 2))
        self.addCleanup(lambda: self.foreign.close())
        self.server = TapeServer(libraries=(), iscsi=self.foreign.url, values={"TapeDeviceNotReadyTimeoutSec": 1})
        self.addCleanup(self.server.close)
        self.client = self.server.client(timeout=300)
        self.addCleanup(self.client.close)
        self.drives_are_there()

    def drives_are_there(self):
        self.assertEqual([drive.get("SymbolicLink") for drive in self.client.call("GetDrives")["Drives"]],
                         [link_of(number) for number in range(len(CALLS) + 2)])

    def start_calls(self):
        return [Caller(self, self.server, procedure, SymLinkName=link_of(drive), **arguments)
                for drive, (procedure, arguments, _) in enumerate(CALLS)]

    def put_back(self):
        port = self.foreign.port
        self.foreign.close()
        self.foreign = ForeignLibrary("--drives", str(len(CALLS) + 2), "--port", port)

    def everything_works(self):
        self.drives_are_there()
        callers = self.start_calls()
        tasks = [start_erase(self.client, drive, drive == LONG) for drive in (SHORT, LONG)]
        for (procedure, arguments, refusal), caller in zip(CALLS, callers, strict=True):
            with self.subTest(procedure, **arguments):
                answer = caller.wait(self, LIMIT)
                if refusal:
                    self.assertRegex(str(caller.error), refusal)
                else:
                    self.assertIsNone(caller.error)
                if procedure == "GetDriveError":
                    self.assertEqual(int(answer["TapeStatus"]), NO_MEDIUM)
        self.assertEqual([outcome(self.client, task, LIMIT) for task in tasks], [NO_MEDIUM] * 2)

    def test_pulled_during_each_procedure(self):
        self.foreign.stop_daemon()  # so that the commands are under way
        callers = self.start_calls()
        tasks = [start_erase(self.client, drive, drive == LONG) for drive in (SHORT, LONG)]
        time.sleep(1)
        self.assertTrue(all(caller.is_alive() for caller in callers))
        pulled = time.monotonic()
        self.foreign.kill_daemon()
        for (procedure, arguments, _), caller in zip(CALLS, callers, strict=True):
            with self.subTest(procedure, **arguments):
                answer = caller.wait(self, LIMIT)
                if procedure not in TOLD_IN_THE_ANSWER:
                    self.assertIsNotNone(caller.error, answer)
                elif procedure == "GetDriveError":
                    # Whether the drive was open by then decides who tells.
                    self.assertTrue("Problem with CreateFile" in str(caller.error) if caller.error else answer["TapeStatus"] in ("1117", "1167"),
                                    (caller.error, answer))
                else:
                    self.assertEqual(list(answer["Alerts"]), [])
        for task in tasks:
            status = outcome(self.client, task, LIMIT)
            self.assertNotEqual(status, 0)
            self.assertEqual(task_status(self.client, task), status)
        self.assertLess(time.monotonic() - pulled, LIMIT)
        # Gone is gone, at once and for every procedure, and the list says so by its length.
        self.assertEqual(list(self.client.call("GetDrives")["Drives"]), [])
        self.assertRegex(failure_of(self.client, "GeDriveInfo", SymLinkName=link_of(0)), re.escape(f"Problem with CreateFile in '{link_of(0)}'"))
        self.put_back()
        self.everything_works()

    def test_pulled_during_the_list_of_drives(self):
        self.foreign.stop_daemon()
        lister = Caller(self, self.server, "GetDrives")
        time.sleep(0.5)
        self.foreign.kill_daemon()
        lister.wait(self, LIMIT)
        self.assertIsNone(lister.error)
        self.put_back()
        self.drives_are_there()


class DrivesThatDieAtTheirCommand(unittest.TestCase):
    """A target that is killed takes the way to the drive; these are open, and go away at the very command of the procedure."""

    # Procedure, arguments, operation code of the command, and the status or text that tells.
    CALLS = [
        ("GetMediaInfo", {}, "0x1A", "Timed out waiting for device ready status on FindMediaInfo operation"),
        ("GetMediaInfo", {}, "0x8C", "The device is not connected."),
        ("GeDriveInfo", {}, "0x05", "DriveHandle failed to get tape drive parameters."),
        ("EjectTapeFromStandalone", {}, "0x1B", "operation='1', immediately='TRUE' with status='1167'"),
        ("PrepareTape", {"OperationNum": 0}, "0x1B", "operation='0', immediately='FALSE' with status='1167'"),
        ("PrepareTape", {"OperationNum": 2}, "0x1B", "operation='2', immediately='FALSE' with status='1167'"),
        ("PrepareTape", {"OperationNum": 3}, "0x1E", "operation='3', immediately='FALSE' with status='1167'"),
        ("PrepareTape", {"OperationNum": 5}, "0x04", "operation='5', immediately='FALSE' with status='1167'"),
        ("StorageMediaRemoval", {"Prevent": "true"}, "0x1E", "Timed out waiting for StorageMediaRemoval"),
        ("GetDriveError", {}, "0x00", None),
        ("GetDriveAlerts", {}, "0x4D", None),
    ]
    ERASES = ["0x01", "0x19"]  # at the rewind, at the erase itself

    def setUp(self):
        self.server = TapeServer(libraries=(), start=False)
        self.addCleanup(self.server.close)
        drives = len(self.CALLS) + len(self.ERASES)
        self.library = write_library(self.server.folder / "library", drives, ("",) * drives)
        self.server.libraries = [self.library]
        self.server.write_settings({"TapeDeviceNotReadyTimeoutSec": 1}, "")
        self.server.start()
        self.client = self.server.client(timeout=300)
        self.addCleanup(self.client.close)

    def start(self):
        callers = [Caller(self, self.server, procedure, SymLinkName=link_of(drive), **arguments)
                   for drive, (procedure, arguments, _, _) in enumerate(self.CALLS)]
        return callers, [start_erase(self.client, len(self.CALLS) + number) for number in range(len(self.ERASES))]

    def test_each_ends_in_time_and_works_when_the_drive_is_back(self):
        codes = [code for _, _, code, _ in self.CALLS] + self.ERASES
        write_faults(self.library, *(f'kind="fail-before" unit="{drive + 1}" opcodes="{code}" times="0" error="1167"'
                                     for drive, code in enumerate(codes)))
        began = time.monotonic()
        callers, tasks = self.start()
        for (procedure, arguments, code, text), caller in zip(self.CALLS, callers, strict=True):
            with self.subTest(procedure, **arguments, code=code):
                answer = caller.wait(self, LIMIT)
                if text:
                    self.assertIn(text, str(caller.error))
                else:
                    self.assertIsNone(caller.error)
                if procedure == "GetDriveError":
                    self.assertEqual(answer["TapeStatus"], "1167")
        self.assertEqual([outcome(self.client, task, LIMIT) for task in tasks], [1167] * len(tasks))
        self.assertLess(time.monotonic() - began, LIMIT)
        write_faults(self.library)
        callers, tasks = self.start()
        for caller in callers:
            caller.wait(self, LIMIT)
        self.assertEqual([str(caller.error) for caller in callers], ["None"] * len(callers))
        self.assertEqual([outcome(self.client, task) for task in tasks], [0] * len(tasks))


if __name__ == "__main__":
    unittest.main()
