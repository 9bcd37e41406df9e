"""The diagnostic switches of the real program over virtual libraries."""

import subprocess
import time
import unittest
import xml.etree.ElementTree as ElementTree

from drive_library import link_of, write_faults, write_library
from tape_server import PROGRAMS, TapeServer
from test_foreign_library import ForeignLibrary

CHANGER = r"\\.\Changer0"
LISTED = f"Find changers:\n{CHANGER}\n"
LAST_SECONDS = 120


def write_large_library(folder, slots, drives):
    cartridges = "".join(f'<cartridge barcode="TRN{number:05}" element="{0x1000 + number}"/>' for number in range(slots))
    units = "".join(f'<drive serial="TRNDRV{number:04}" vendor="TARNO" product="VIRTUAL-LTO8"/>' for number in range(drives))
    folder.mkdir()
    (folder / "library.xml").write_text(
        '<library vendor="TARNO" product="VIRTUAL-LIBRARY" revision="0100" serial="TRNLIB2000" state="state.xml">'
        f'<elements><transports first="0" count="1"/><slots first="0x1000" count="{slots}"/><ports first="0x10" count="4"/>'
        f'<drives first="0x400" count="{drives}"/></elements><drives>{units}</drives><cartridges>{cartridges}</cartridges></library>\n',
        encoding="utf-8")
    return folder


class Diagnostics(unittest.TestCase):
    """Each run is a process of its own, in a current folder of its own."""

    def setUp(self):
        self.server = TapeServer(libraries=(), start=False)
        self.addCleanup(self.server.close)
        self.out = self.server.folder / "out"
        self.out.mkdir()

    def use(self, *libraries):
        self.server.libraries = list(libraries)
        self.server.write_settings({"TapeDeviceNotReadyTimeoutSec": 1}, "")

    def command(self, *words):
        """The numbers of a switch come first: they have fixed places."""
        return [PROGRAMS / "TarnoTapeSvc", *words, "-settings", self.server.folder / "settings.reg", "-state", self.server.state, "-log",
                self.server.log_path]

    def run_action(self, *words, errors=""):
        done = subprocess.run(self.command(*words), cwd=self.out, capture_output=True, text=True, timeout=LAST_SECONDS,
                              stdin=subprocess.DEVNULL)
        self.assertEqual(done.returncode, 0, done.stderr)
        (self.assertIn if errors else self.assertEqual)(errors, done.stderr)
        return done.stdout

    def files(self):
        return sorted(path.name for path in self.out.iterdir())

    def document(self, name):
        return ElementTree.fromstring((self.out / name).read_bytes())

    def lines(self):
        """The log's lines without time and thread."""
        return [line.split("> ", 1)[1] for line in self.server.log().splitlines() if "> " in line]

    def slot_codes(self):
        self.run_action("-slots")
        return [slot.get("PrimaryVolumeID") for slot in self.document("changer0.xml")]


class Actions(Diagnostics):
    def setUp(self):
        super().setUp()
        self.use(write_library(self.server.folder / "first", 4, ("", None, None, "")),
                 write_library(self.server.folder / "second", 2, (), serial="TRNLIB0002"))

    def test_lists_of_every_changer(self):
        self.assertEqual(self.run_action("-drivestat"), "")
        self.assertEqual(self.run_action("-SLOTS"), "")
        self.assertEqual(self.files(), ["changer0.xml", "changer1.xml", "drivestatuses0.xml", "drivestatuses1.xml"])
        for number, count in ((0, 4), (1, 2)):
            for name, root, child in ((f"drivestatuses{number}.xml", "DrivesStatuses", "DriveStatus"),
                                      (f"changer{number}.xml", "SlotsStatuses", "SlotStatus")):
                list_of_elements = self.document(name)
                self.assertEqual(list_of_elements.tag, root)
                self.assertEqual([element.tag for element in list_of_elements], [child] * count)
                self.assertEqual(list_of_elements.get("SymbolicLink"), rf"\\.\Changer{number}")
        self.assertIn("tap| Record DrivesStatuses", self.lines())
        self.assertIn("tap| Record SlotsStatuses", self.lines())

    def test_files_of_the_first_changer(self):
        self.assertEqual(self.run_action("-ieport"), "")
        self.assertEqual(self.run_action("-changers"), "")
        self.assertEqual(self.files(), ["changer.xml", "ieportsstatuses.xml"])
        self.assertEqual(self.document("ieportsstatuses.xml").tag, "IEPortsStatuses")
        changer = self.document("changer.xml")
        self.assertEqual(changer.get("SymbolicLink"), CHANGER)
        self.assertEqual([child.tag for child in changer], ["Address", "Data", "Parameters", "Slots", "IEPortsStatuses", "Drives"])
        self.assertFalse((self.out / "changer.xml").read_bytes().startswith(b"<?xml"))

    def test_drives_and_medium(self):
        self.assertEqual(self.run_action("-driveparameters"), "")
        self.assertEqual(self.run_action("-mediumparameters"), "")
        self.assertEqual(self.files(), ["driveStatus.xml", "drivesInformation.xml"])
        information = self.document("drivesInformation.xml")
        self.assertEqual([list(drive.items()) for drive in information],
                         [[("driveName", "TARNO VIRTUAL-LTO8"), ("DefaultBlockSize", "0"), ("MinimumBlockSize", "1"),
                           ("MaximumBlockSize", "8388608")]] * 6)
        medium = self.document("driveStatus.xml")
        self.assertEqual(medium.tag, "MediaInfo")
        self.assertEqual([child.tag for child in medium], ["UsageStatistic"])
        self.assertIn("tap| Getting media info", self.lines())

    def test_moves(self):
        listed = LISTED + r"\\.\Changer1" + "\n"
        self.assertEqual(self.slot_codes(), [""] * 4)
        self.assertEqual(self.run_action("-unload", "3", "1"), listed)
        self.assertEqual(self.slot_codes(), ["", "TRN003L8", "", ""])
        self.assertEqual(self.run_action("-load", "1", "2"), listed)
        self.assertEqual(self.slot_codes(), [""] * 4)
        self.assertEqual(self.run_action("-move", "2", "3"), listed)
        self.assertEqual(self.run_action("-unload", "0", "0"), listed)
        self.assertEqual(self.slot_codes(), ["TRN000L8", "", "", "TRN003L8"])
        self.assertIn("tap| Move tape. Load slot 1 to drive 2", self.lines())
        self.assertEqual(self.lines().count("tap| Move tape"), 3)

    def test_a_failure_is_told_and_ends_with_zero(self):
        self.assertTrue(self.run_action("-load", "1", "1", errors="Unable to move tape from ChangerSlot #1").startswith("Find changers:\n"))
        self.assertIn("Unable to move tape from ChangerSlot #1", self.server.log())
        self.run_action("-import", "0", "0", errors="TarnoTapeSvc: Failed to import tape\n")
        self.assertIn("tap| ERR |Failed to import tape", self.lines())

    def test_dump_and_quick_dump(self):
        for switch in ("-dump", "-quickdump"):
            self.assertEqual(self.run_action(switch), "")
            self.assertEqual(self.files(), ["dumpinformation.xml"])
            root = self.document("dumpinformation.xml")
            self.assertEqual([child.tag for child in root], ["Changer"] * 2 + ["Drive"] * 6)
            self.assertEqual([child.tag for child in root[6]], ["Address", "BlockSizes"])

    def test_dump_without_devices(self):
        self.use()
        self.assertEqual(self.run_action("-dump"), "We have no drives.\n")
        self.assertEqual((self.out / "dumpinformation.xml").read_bytes(), b"<Devices />")
        self.assertIn("tap| ERR |We have no drives.", self.lines())


class LargeDump(Diagnostics):
    """2,000 slots and 20 drives, of which one is in trouble."""

    def setUp(self):
        super().setUp()
        self.library = write_large_library(self.server.folder / "library", 2000, 20)
        self.use(self.library)

    def check_changer(self, changer, form):
        self.assertEqual([child.tag for child in changer],
                         ["Address", "Data", "Parameters", "Slots", *(["IEPortsStatuses"] if form == "-dump" else []), "Drives"])
        slots = changer.find("Slots")
        self.assertEqual([slot.get("PrimaryVolumeID") for slot in slots], [f"TRN{number:05}" for number in range(2000)])
        self.assertEqual(len(changer.find("Drives")), 20)

    def test_one_drive_is_dead(self):
        """It isn't there for the system; the changer still knows its element."""
        write_faults(self.library, 'kind="dead" unit="8" error="1167"')
        for form in ("-dump", "-quickdump"):
            self.run_action(form)
            self.assertEqual(self.files(), ["dumpinformation.xml"])
            root = self.document("dumpinformation.xml")
            self.check_changer(root[0], form)
            self.assertEqual([drive.get("SerialNumber") for drive in root[1:]],
                             [f"TRNDRV{number:04}" for number in range(20) if number != 7])

    def test_one_drive_dies_when_it_is_asked(self):
        write_faults(self.library, 'kind="fail-before" unit="8" times="0" error="1167"')
        for form in ("-dump", "-quickdump"):
            self.run_action(form, errors=f"TarnoTapeSvc: {link_of(7)}: Problem with Open Drive\n")
            root = self.document("dumpinformation.xml")
            self.check_changer(root[0], form)
            self.assertEqual(len(root), 21)
            for number, drive in enumerate(root[1:]):
                self.assertEqual(drive.get("SymbolicLink"), link_of(number))
                self.assertEqual([child.tag for child in drive], ["Address"] if number == 7 else ["Address", "BlockSizes"])
                self.assertEqual(drive.get("Error") is not None, number == 7)
            self.assertIn("DriveHandle failed to get tape drive parameters.", root[8].get("Error"))
        self.assertEqual(self.lines().count("tap| ERR |Problem with Open Drive"), 2)

    def test_a_drive_that_hangs_leaves_what_was_gathered(self):
        write_faults(self.library, 'kind="dead" unit="8" opcodes="0x05" milliseconds="100000"')
        process = subprocess.Popen(self.command("-dump"), cwd=self.out, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        limit = time.monotonic() + LAST_SECONDS
        while True:
            path = self.out / "dumpinformation.xml"
            # Whenever somebody looks, the file is whole.
            count = len(self.document(path.name)) if path.exists() else 0
            if count == 8:
                break
            self.assertLess(time.monotonic(), limit)
            self.assertIsNone(process.poll())
            time.sleep(0.02)
        process.kill()
        process.wait()
        root = self.document("dumpinformation.xml")
        self.check_changer(root[0], "-dump")
        self.assertEqual([drive.get("SymbolicLink") for drive in root[1:]], [link_of(number) for number in range(7)])

    def test_killed_at_any_moment_it_leaves_a_whole_file(self):
        path = self.out / "dumpinformation.xml"
        began = time.monotonic()
        self.run_action("-dump")
        usual = time.monotonic() - began
        for moment in range(24):
            path.write_text("<Former />", encoding="utf-8")
            process = subprocess.Popen(self.command("-dump"), cwd=self.out, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
            time.sleep(usual * moment / 20)
            process.kill()
            process.wait()
            root = self.document(path.name)
            if root.tag == "Former":
                continue
            self.assertEqual(root.tag, "Devices")
            sections = [child.tag for child in root[0]]
            self.assertEqual(sections, ["Address", "Data", "Parameters", "Slots", "IEPortsStatuses", "Drives"][:len(sections)])
            if len(root) > 1:
                self.check_changer(root[0], "-dump")
                self.assertEqual([drive.get("SymbolicLink") for drive in root[1:]], [link_of(number) for number in range(len(root) - 1)])
        # What a process leaves that was killed in the middle of writing goes with the next one.
        self.run_action("-dump")
        self.assertEqual(self.files(), ["dumpinformation.xml"])

    def mount(self, options):
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", self.out], capture_output=True, text=True)
        if mounted.returncode != 0:
            self.skipTest(f"a file system can't be mounted here: {mounted.stderr.strip()}")
        self.addCleanup(subprocess.run, ["umount", self.out], check=True)

    def test_a_folder_that_cannot_be_written_to(self):
        self.mount("ro")
        for switch, name in (("-ieport", "ieportsstatuses"), ("-drivestat", "drivestatuses0"), ("-driveparameters", "drivesInformation"),
                             ("-changers", "changer"), ("-dump", "dumpinformation"), ("-quickdump", "dumpinformation"),
                             ("-slots", "changer0")):
            self.run_action(switch, errors=f"Failed to create or open file [./{name}.xml.new].")
        self.assertEqual(self.files(), [])

    def test_a_full_disk_leaves_the_former_file(self):
        self.mount("size=64k")
        self.run_action("-dump", errors="There is not enough space on the disk.")
        self.assertEqual(self.files(), ["dumpinformation.xml"])
        root = self.document("dumpinformation.xml")
        self.assertEqual([child.tag for child in root[0]], ["Address", "Data"])


class ForeignLibraryActions(Diagnostics):
    """On a library that isn't ours, whose drives know no READ ATTRIBUTE."""

    def setUp(self):
        super().setUp()
        self.foreign = ForeignLibrary()
        self.addCleanup(self.foreign.close)
        self.server.libraries = []
        self.server.write_settings({"TapeDeviceNotReadyTimeoutSec": 1}, self.foreign.url)

    def test_every_switch(self):
        for switch in ("-drivestat", "-ieport", "-slots", "-driveparameters", "-changers", "-dump", "-quickdump"):
            self.assertEqual(self.run_action(switch), "")
        self.assertEqual(self.files(), ["changer.xml", "changer0.xml", "drivesInformation.xml", "drivestatuses0.xml", "dumpinformation.xml",
                                        "ieportsstatuses.xml"])
        self.assertEqual([child.tag for child in self.document("dumpinformation.xml")], ["Changer", "Drive", "Drive"])
        self.assertEqual([drive.get("driveName") for drive in self.document("drivesInformation.xml")], ["TARNO TESTDRIVE"] * 2)
        before = self.slot_codes()
        self.assertTrue(before[0])
        self.assertEqual(self.run_action("-load", "0", "0"), LISTED)
        self.run_action("-mediumparameters", errors="Invalid command operation code")
        self.assertEqual(self.slot_codes(), ["", *before[1:]])
        self.assertEqual(self.run_action("-unload", "0", "0"), LISTED)
        self.assertEqual(self.slot_codes(), before)
        self.assertNotIn("driveStatus.xml", self.files())


if __name__ == "__main__":
    unittest.main()
