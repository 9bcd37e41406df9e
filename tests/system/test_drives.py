"""The drive procedures on the real server over a virtual library, called by a foreign RPC library and by tarnoctl."""

import json
import os
import re
import signal
import sys
import time
import unittest
import xml.etree.ElementTree as ElementTree

from drive_library import (DONE, RUNNING, Caller, failure_of, link_of, outcome, start_erase, task_status, write_faults,
                           write_library)
from tape_server import PROGRAMS, ROOT, TapeServer

sys.path.insert(0, str(ROOT / "tests/rpc"))

from test_account_tool import Terminal  # noqa: E402  (the path is set above)

NO_MEDIUM = 1112
CHANGER = r"\\.\Changer0"


class Drives(unittest.TestCase):
    """A server over a library of its own for each test."""

    loaded = ("", "", None, "")
    timings = ""

    def setUp(self):
        # With a time-out of 1 a drive's first failure is also its last but one: it is looked at again after ten seconds.
        self.server = TapeServer(libraries=(), values={"TapeDeviceNotReadyTimeoutSec": 1}, start=False)
        self.addCleanup(self.server.close)
        self.library = write_library(self.server.folder / "library", len(self.loaded), self.loaded, self.timings)
        self.server.libraries = [self.library]
        self.server.write_settings({"TapeDeviceNotReadyTimeoutSec": 1}, "")
        self.server.start()
        self.client = self.server.client()
        self.addCleanup(self.client.close)

    def on(self, drive, procedure, **arguments):
        return self.client.call(procedure, SymLinkName=link_of(drive), **arguments)

    def status(self, drive):
        return int(self.on(drive, "GetDriveError")["TapeStatus"])

    def links(self, **arguments):
        return [drive.get("SymbolicLink") for drive in self.client.call("GetDrives", **arguments)["Drives"]]

    def wait_for_log(self, text):
        limit = time.monotonic() + 30
        while text not in self.server.log():
            self.assertLess(time.monotonic(), limit, f"no '{text}' in\n{self.server.log()}")
            time.sleep(0.02)


class Records(Drives):
    def test_drives_tell_what_they_are(self):
        drive = self.client.call("GetDrives")["Drives"][1]
        self.assertEqual(list(drive.items()), [("SerialNumber", "TRNDRV0001"), ("DeviceName", "Tape1"), ("Name", "TARNO VIRTUAL-LTO8"),
                                               ("SymbolicLink", link_of(1))])
        self.assertEqual([(child.tag, list(child.items())) for child in drive],
                         [("Address", [("Lun", "2"), ("TargetId", "0"), ("PathId", "0"), ("PortNumber", "0")]),
                          ("BlockSizes", [("DefaultBlockSize", "0"), ("MinimumBlockSize", "1"), ("MaximumBlockSize", "8388608")])])

    def test_locked_drives_are_left_alone(self):
        self.assertEqual(self.links(), [link_of(number) for number in range(4)])
        self.assertEqual(self.links(LockedSymLinkNames=f"{link_of(0)};{link_of(3)}"), [link_of(1), link_of(2)])
        self.assertEqual(self.links(LockedSymLinkNames=";".join(link_of(number) for number in range(4))), [])
        self.assertNotIn("Cannot gather", self.server.log())

    def test_a_drive_that_dies_half_way_leaves_the_others(self):
        write_faults(self.library, 'kind="fail-before" unit="2" opcodes="0x05" times="0" error="1167"')
        drives = self.client.call("GetDrives")["Drives"]
        self.assertEqual(len(drives), 4)
        self.assertEqual([[child.tag for child in drive] for drive in drives],
                         [["Address", "BlockSizes"], ["Address"], ["Address", "BlockSizes"], ["Address", "BlockSizes"]])
        self.assertIn(f"WARN|Cannot gather information on drive {link_of(1)}.", re.sub(r"WARN\|\s+", "WARN|", self.server.log()))
        table = self.server.console("drives").stdout.splitlines()
        self.assertTrue(table[2].endswith("?"), table)
        self.assertTrue(table[3].endswith("default variable"), table)

    def test_drive_info_and_its_name_without_the_t(self):
        info = self.on(2, "GeDriveInfo")["DriveInfo"]
        self.assertEqual(list(info.items()), [("DefaultBlockSize", "0"), ("MinimumBlockSize", "1"), ("MaximumBlockSize", "8388608")])
        self.assertIn("Unknown command: 'GetDriveInfo'", failure_of(self.client, "GetDriveInfo", SymLinkName=link_of(2)))

    def test_no_such_drive(self):
        for procedure in ("GetMediaInfo", "GeDriveInfo", "GetDriveError", "EjectTapeFromStandalone"):
            self.assertIn(rf"Problem with CreateFile in '{link_of(9)}' with error", failure_of(self.client, procedure, SymLinkName=link_of(9)))

    def test_statuses_are_read_twice_and_given_twice(self):
        for procedure in ("GetDrivesStatuses", "GetDrivesStatusesByScsi"):
            output = ElementTree.fromstring(self.client.call_xml(procedure, SymLinkName=CHANGER))
            self.assertEqual([child.tag for child in output], ["DrivesStatuses"] * 2)
            first, second = [ElementTree.fromstring(child.get("value")) for child in output]
            self.assertEqual(ElementTree.tostring(first), ElementTree.tostring(second))
            self.assertEqual([drive.get("SerialNumber") for drive in first.findall("DriveStatus")],
                             [f"TRNDRV{number:04}" for number in range(4)])
            self.assertEqual([drive.get("PrimaryVolumeID") for drive in first.findall("DriveStatus")],
                             ["TRN000L8", "TRN001L8", "", "TRN003L8"])


class Preparing(Drives):
    def test_unload_and_load(self):
        self.assertEqual(self.status(0), 0)
        self.on(0, "PrepareTape", OperationNum=1)
        self.assertEqual(self.status(0), NO_MEDIUM)
        self.on(0, "PrepareTape", OperationNum=0, ReturnImmediately="true")
        self.assertIn(self.status(0), (0, 1110))  # a drive may say once that its medium is new
        self.assertEqual(self.status(0), 0)
        self.assertIn("Try to 1\n", self.server.log())

    def test_tension_and_format(self):
        for operation in (2, 5):
            self.assertEqual(self.on(0, "PrepareTape", OperationNum=operation), {})
        self.assertEqual(self.status(0), 0)

    def test_an_empty_drive_counts_as_done(self):
        for operation in range(6):
            self.assertEqual(self.on(2, "PrepareTape", OperationNum=operation), {})
        self.assertEqual(self.on(2, "EjectTapeFromStandalone"), {})
        self.assertEqual(self.status(2), NO_MEDIUM)

    def test_a_locked_drive_keeps_its_tape(self):
        # A hard error isn't tried again: all of this takes no time.
        began = time.monotonic()
        for lock, unlock in ((("PrepareTape", {"OperationNum": 3}), ("PrepareTape", {"OperationNum": 4})),
                             (("StorageMediaRemoval", {"Prevent": "true"}), ("StorageMediaRemoval", {"Prevent": "false"}))):
            self.on(0, lock[0], **lock[1])
            error = failure_of(self.client, "PrepareTape", SymLinkName=link_of(0), OperationNum=1)
            self.assertIn(f"Timed out waiting for device ready status on Prepare operation, symLink = '{link_of(0)}', operation='1', "
                          "immediately='FALSE' with status='", error)
            self.assertEqual(self.status(0), 0)
            self.on(0, unlock[0], **unlock[1])
        self.assertLess(time.monotonic() - began, 8)
        self.assertEqual(self.on(0, "EjectTapeFromStandalone"), {})
        self.assertEqual(self.status(0), NO_MEDIUM)

    def test_an_operation_that_there_is_not(self):
        self.assertIn("operation='9', immediately='TRUE' with status='87'",
                      failure_of(self.client, "PrepareTape", SymLinkName=link_of(0), OperationNum=9, ReturnImmediately="true"))


class Media(Drives):
    loaded = ("", 'write-protected="true"', None, 'worm="true"')

    def media(self, drive, **arguments):
        return self.on(drive, "GetMediaInfo", **arguments)["MediaInfo"]

    def test_what_a_medium_is(self):
        media = self.media(0)
        self.assertEqual([name for name, _ in media.items()],
                         ["Capacity", "Remaining", "BlockSize", "PartitionCount", "WriteProtected", "IsWorm"])
        self.assertGreater(int(media.get("Capacity")), 2**32)
        self.assertEqual((media.get("WriteProtected"), media.get("IsWorm")), ("false", "false"))
        self.assertEqual([(child.tag, child.text) for child in media.find("UsageStatistic")],
                         [("IsValid", "True"), ("LifetimeMegabytesWritten", "0"), ("LifetimeMegabytesRead", "0")])
        self.assertEqual((self.media(1).get("WriteProtected"), self.media(3).get("IsWorm")), ("true", "true"))

    def test_no_medium_is_a_failure_after_the_time_out(self):
        began = time.monotonic()
        error = failure_of(self.client, "GetMediaInfo", SymLinkName=link_of(2))
        self.assertGreaterEqual(time.monotonic() - began, 10)
        self.assertIn(f"Timed out waiting for device ready status on FindMediaInfo operation, symLink = {link_of(2)}", error)
        self.assertIn(f"No media in drive in '{link_of(2)}'", error)

    def test_the_changer_that_is_named_stands_still_meanwhile(self):
        """Three callers at once, of which one names the moving changer in other words and one names something else."""
        write_faults(self.library, 'kind="slow-robot" times="0" milliseconds="3000"')
        mover = Caller(self, self.server, "UnloadMedium", SymLinkName=CHANGER, DriveNum=3, SlotNum=3)
        self.wait_for_log("Run changer move medium")
        self.assertTrue(mover.is_alive())
        waiting = [Caller(self, self.server, "GetMediaInfo", SymLinkName=link_of(0), ChangerToLockName=name)
                   for name in (CHANGER, "\\\\.\\\\\\.\\Changer0")]
        for name in (None, "\\\\.\\\\\\?\\Changer0"):
            free = Caller(self, self.server, "GetMediaInfo", SymLinkName=link_of(1), **({"ChangerToLockName": name} if name else {}))
            self.assertIn("MediaInfo", free.wait(self))
        self.assertTrue(mover.is_alive(), "the free ones were made to wait")
        for caller in waiting:
            self.assertIn("MediaInfo", caller.wait(self))
            self.assertGreater(caller.seconds, 1)
        self.assertEqual((mover.wait(self), mover.error), ({}, None))
        log = self.server.log()
        self.assertEqual(log.count("Lock changer \\\\.\\Changer0 for operation with drive"), 2)
        self.assertEqual(log.count("Lock changer \\\\?\\Changer0 for operation with drive"), 1)
        self.assertEqual(log.count("Lock changer  for operation with drive"), 1)

    def test_a_changer_waits_for_the_whole_of_a_look_at_a_medium(self):
        reader = Caller(self, self.server, "GetMediaInfo", SymLinkName=link_of(2), ChangerToLockName=CHANGER)
        self.wait_for_log("Lock changer \\\\.\\Changer0 for operation with drive")
        slots = Caller(self, self.server, "GetSlotsStatuses", SymLinkName=CHANGER)
        self.assertIn("SlotsStatuses", slots.wait(self))
        reader.wait(self)
        self.assertIsNotNone(reader.error)
        self.assertGreater(slots.seconds, 8)


class Alerts(Drives):
    def alerts(self, procedure, link):
        return [(int(alert.get("id")), int(alert.get("severity")), alert.get("message"),
                 [(int(action.get("index")), action.text) for action in alert.findall("action")])
                for alert in self.client.call(procedure, SymLinkName=link)["Alerts"].findall("alert")]

    def test_none(self):
        self.assertEqual(self.alerts("GetDriveAlerts", link_of(0)), [])
        self.assertEqual(self.alerts("GetChangerAlerts", CHANGER), [])

    def test_flags_that_a_device_raises(self):
        write_faults(self.library, 'kind="alert" unit="1" flag="4"', 'kind="alert" unit="1" flag="11"', 'kind="alert" unit="1" flag="64"',
                     'kind="alert" unit="0" flag="16"')
        four, eleven, beyond = self.alerts("GetDriveAlerts", link_of(0))
        self.assertEqual(four, (4, 2, "Your data is at risk:", [(1, "Copy any data you require from this tape."),
                                                               (2, "Do not use this tape again."),
                                                               (3, "Restart the operation with a different tape.")]))
        self.assertEqual(eleven, (11, 0, "The tape in the drive is a cleaning cartridge.", []))
        self.assertEqual(beyond, (64, 0, "Unknown tape alert.", []))
        self.assertEqual(self.alerts("GetDriveAlerts", link_of(1)), [])
        ((number, severity, message, _),) = self.alerts("GetChangerAlerts", CHANGER)
        self.assertEqual((number, severity), (16, 2))
        self.assertTrue(message.startswith("The library has failed because the door is open"), message)

    def test_the_console_shows_them(self):
        write_faults(self.library, 'kind="alert" unit="1" flag="4"', 'kind="alert" unit="0" flag="16"')
        shown = self.server.console("alerts", "Tape0")
        self.assertEqual(shown.returncode, 0, shown.stderr)
        self.assertEqual(shown.stdout.splitlines()[1:3],
                         ["4      critical  Your data is at risk:", "                   1. Copy any data you require from this tape."])
        self.assertIn("\n16     critical  The library has failed because the door is open", self.server.console("alerts", "Changer0").stdout)
        for flag, words in ((17, ("--changer", "Changer0")), (18, ("TRNLIB0001",)), (19, (CHANGER,))):
            write_faults(self.library, f'kind="alert" unit="0" flag="{flag}"')
            shown = json.loads(self.server.console("--json", "alerts", *words).stdout)
            self.assertEqual((shown["device"], [alert["alert"] for alert in shown["alerts"]]), (CHANGER, [flag]))

    def test_a_device_that_cannot_be_asked_has_no_alerts(self):
        write_faults(self.library, 'kind="sense" opcodes="0x4D" times="0" key="5" asc="0x20" ascq="0"')
        self.assertEqual(self.alerts("GetDriveAlerts", link_of(0)), [])
        self.assertEqual(self.alerts("GetDriveAlerts", link_of(9)), [])
        self.assertIn(f"Tape alert problem. Symlink: '{link_of(9)}', error: '", self.server.log())


class Erasing(Drives):
    loaded = ("", 'write-protected="true"', None, "", "")
    timings = 'erase-long="1500"'

    def test_success_is_told_once(self):
        task = start_erase(self.client, 0)
        self.assertEqual(outcome(self.client, task), DONE)
        self.assertIn(f"There is no task with id = {task}", failure_of(self.client, "TaskStatus", TaskID=task))
        self.assertIn(f"There is no task with id = {task}", failure_of(self.client, "WaitForResult", TaskID=task))
        self.assertRegex(self.server.log(), r"Erasing tape\. ok\.")

    def test_the_server_answers_meanwhile(self):
        began = time.monotonic()
        task = start_erase(self.client, 0, long=True)
        self.assertEqual([task_status(self.client, task) for _ in range(3)], [RUNNING] * 3)
        self.assertEqual(self.client.call("WaitForResult", TaskID=task), {})  # doesn't wait for a running one
        self.assertEqual(self.links(LockedSymLinkNames=link_of(0)), [link_of(number) for number in range(1, 5)])
        self.assertEqual(self.client.call("GetOwnerName")["OwnerName"], "CONSOLE")
        self.assertLess(time.monotonic() - began, 1.5)
        self.assertEqual(outcome(self.client, task), DONE)
        self.assertGreaterEqual(time.monotonic() - began, 1.5)

    def test_failures_are_told_again_and_again(self):
        """All kinds at once, since each takes its ten seconds."""
        write_faults(self.library, 'kind="fail-before" unit="4" opcodes="0x19" times="0" error="1167"',
                     'kind="sense" unit="5" opcodes="0x19" times="0" key="3" asc="0x51" ascq="0"')
        expected = {link_of(1): {19}, link_of(2): {NO_MEDIUM}, link_of(3): {1167}, link_of(4): {1117}, link_of(9): {2}}
        tasks = {link: start_erase(self.client, link) for link in expected}
        for link, task in tasks.items():
            with self.subTest(link):
                status = outcome(self.client, task)
                self.assertIn(status, expected[link])
                self.assertEqual([task_status(self.client, task) for _ in range(2)], [status] * 2)
                self.assertEqual(self.client.call("WaitForResult", TaskID=task), {})
                self.assertEqual(task_status(self.client, task), status)
        self.assertIn("Failed to erase tape due 19. The media is write protected ", self.server.log())

    def test_no_such_task(self):
        for procedure in ("TaskStatus", "WaitForResult"):
            self.assertIn("There is no task with id = 4294967295", failure_of(self.client, procedure, TaskID=2**32 - 1))

    def test_the_end_of_the_server_does_not_wait_for_an_erase(self):
        write_faults(self.library, 'kind="drive-not-ready" unit="1" milliseconds="60000"')
        start_erase(self.client, 0, long=True)
        start_erase(self.client, 3, long=True)
        self.wait_for_log("Beginning tape erasing.")
        self.assertEqual(self.server.stop(), 0)


class Console(Drives):
    timings = 'erase-long="2500"'

    def console(self, code, *words):
        done = self.server.console(*words)
        self.assertEqual(done.returncode, code, done)
        return done.stderr if code else done.stdout

    def test_looking_at_drives(self):
        self.assertEqual([drive["link"] for drive in json.loads(self.console(0, "--json", "drives", "--leave", "tape1", "--leave", "Tape2"))],
                         [link_of(0), link_of(3)])
        self.assertEqual(json.loads(self.console(0, "--json", "drive-info", "Tape2"))["status"], NO_MEDIUM)
        self.assertIn("No media in drive.", self.console(0, "drive-info", "TRNDRV0002"))
        self.assertEqual(json.loads(self.console(0, "--json", "media", "Tape0", "--changer", "Changer0"))["lifetime_megabytes_written"], 0)
        self.assertIn("has no drive 'nobody'", self.console(2, "media", "nobody"))
        self.assertIn("Problem with CreateFile", self.console(1, "media", "Tape9"))

    def test_preparing_and_ejecting(self):
        self.assertEqual(self.console(0, "prepare", "Tape0", "lock"), f"{link_of(0)}: lock done.\n")
        self.assertIn("with status='", self.console(1, "eject", "Tape0"))
        self.console(0, "prepare", "Tape0", "unlock")
        self.assertEqual(self.console(0, "eject", "Tape0"), f"{link_of(0)}: eject begun.\n")
        self.assertEqual(self.status(0), NO_MEDIUM)
        self.assertIn("'rewind' is no operation", self.console(2, "prepare", "Tape1", "rewind"))
        self.assertIn("no terminal to ask on", self.console(2, "prepare", "Tape1", "format"))
        self.console(0, "prepare", "Tape1", "format", "--yes")

    def test_erasing_and_asking_after_it(self):
        self.assertIn("no terminal to ask on", self.console(2, "erase", "Tape0"))
        self.assertRegex(self.console(0, "erase", "Tape0", "--yes"), r"^The tape in \S+Tape0 is erased; it took 00:00:0\d\.\n$")
        task = str(json.loads(self.console(0, "--json", "erase", "Tape0", "--long", "--yes", "--no-wait"))["task"])
        self.assertEqual(self.server.console("task", task).returncode, 6)
        self.assertEqual(self.console(0, "task", task, "--wait"), f"Task {task} is done.\n")
        self.assertIn("There is no task with id", self.console(1, "task", task))
        self.assertRegex(self.console(1, "erase", "Tape9", "--yes"), r"Task \d+ failed with status 2: The system cannot find")


class ConsoleOnATerminal(Drives):
    timings = 'erase-long="2500"'

    def erase(self):
        return Terminal(PROGRAMS / "tarnoctl", "--socket", self.server.socket_path, "--owner", "CONSOLE", "erase", "Tape0", "--long")

    def test_no_is_no(self):
        terminal = self.erase()
        terminal.expect(b"Erase it? [y/N] ")
        terminal.type(b"\n")
        self.assertEqual(2, os.waitstatus_to_exitcode(terminal.finish()))
        self.assertIn(b"Nothing was done.", terminal.text)
        self.assertNotIn("EraseTape", self.server.log())

    def test_the_time_is_shown_until_the_end(self):
        terminal = self.erase()
        terminal.expect(b"Erase it? [y/N] ")
        terminal.type(b"y\n")
        self.assertEqual(0, os.waitstatus_to_exitcode(terminal.finish()), terminal.text)
        for seconds in (0, 1, 2):
            self.assertRegex(terminal.text, rb"\rErasing the tape in \\\\.\\Tape0, task \d+: 00:00:0%d" % seconds)
        self.assertRegex(terminal.text, rb"\nThe tape in \\\\.\\Tape0 is erased; it took 00:00:0\d\.")

    def test_an_interrupt_leaves_the_erase_and_says_so(self):
        terminal = self.erase()
        terminal.expect(b"Erase it? [y/N] ")
        terminal.type(b"y\n")
        terminal.expect(b"00:00:00")
        terminal.type(b"\x03")
        self.assertEqual(-signal.SIGINT, os.waitstatus_to_exitcode(terminal.finish()))
        told = re.search(rb"tarnoctl: The erase goes on in the server as task (\d+)\. 'tarnoctl task \d+' asks after it\.", terminal.text)
        self.assertIsNotNone(told, terminal.text)
        self.assertEqual(outcome(self.client, told[1].decode()), DONE)


if __name__ == "__main__":
    unittest.main()
