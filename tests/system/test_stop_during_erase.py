"""A server that is told to stop while a tape is being erased ends at once and in order: it neither waits for the drive nor crashes."""

import time
import unittest

from tape_server import TapeServer

LINK = "\\\\.\\Changer0"
DRIVE = "\\\\.\\Tape0"
ERASE_MILLISECONDS = 600_000
SOON = 15


class StopDuringErase(unittest.TestCase):
    def setUp(self):
        self.server = TapeServer(start=False)
        self.addCleanup(self.server.close)
        personality = self.server.libraries[0] / "library.xml"
        text = personality.read_text(encoding="utf-8")
        timings = f'<timings erase-short="{ERASE_MILLISECONDS}" erase-long="{ERASE_MILLISECONDS}"/>'
        self.assertNotIn("<timings", text)
        personality.write_text(text.replace("</library>", timings + "</library>"), encoding="utf-8")
        self.server.start()
        self.client = self.server.client()
        self.addCleanup(lambda: self.client.close())
        self.client.call("LoadMedium", SymLinkName=LINK, SlotNum=0, DriveNum=0)
        self.client.call("PrepareTape", SymLinkName=DRIVE, OperationNum=0)

    def start_erase(self, long_erasure):
        task = self.client.call("EraseTape", SymLinkName=DRIVE, LongErasure=long_erasure)["TaskID"]
        deadline = time.monotonic() + SOON
        while "Beginning tape erasing." not in self.server.log():
            self.assertLess(time.monotonic(), deadline, "the erase does not begin")
            time.sleep(0.02)
        self.assertEqual(self.client.call("TaskStatus", TaskID=task)["TaskStatus"], "997")
        return task

    def test_stop(self):
        for long_erasure in ("true", "false"):
            with self.subTest(long_erasure=long_erasure):
                self.start_erase(long_erasure)
                began = time.monotonic()
                self.assertEqual(self.server.stop(), 0)
                self.assertLess(time.monotonic() - began, SOON)
                self.assertIn("Tape service is stopped.", self.server.log())
                self.assertEqual(self.server.errors(), "")
                self.client.close()
                # The cartridge is where it was, and the new server knows nothing of the old one's task.
                self.server.log_path.unlink()
                self.server.start()
                self.client = self.server.client()
                statuses = self.client.call("GetDrivesStatuses", SymLinkName=LINK)["DrivesStatuses"]
                self.assertEqual([drive.get("PrimaryVolumeID") for drive in statuses], ["TRN001L8", ""])

    def test_the_server_answers_meanwhile(self):
        task = self.start_erase("true")
        self.assertEqual(self.client.call("WaitForResult", TaskID=task), {})
        self.assertEqual(self.client.call("GetOwnerName")["OwnerName"], "CONSOLE")
        drives = self.client.call("GetDrives", LockedSymLinkNames=DRIVE)["Drives"]
        self.assertEqual([drive.get("DeviceName") for drive in drives], ["Tape1"])
        self.assertEqual(self.client.call("TaskStatus", TaskID=task)["TaskStatus"], "997")


if __name__ == "__main__":
    unittest.main()
