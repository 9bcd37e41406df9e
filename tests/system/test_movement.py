"""All changer procedures and their twins, over both backends, on the virtual library and on a foreign library over iSCSI."""

import unittest
import xml.etree.ElementTree as ElementTree

from tape_server import TapeServer
from impacket_client import CallFailed

LINK = r"\\.\Changer0"
FULL = 0x1


def by_scsi(name):
    return "GetAllChangers" if name == "GetChangers" else name + "ByScsi"


def number_of(element):
    return int(element.find("Element").get("ElementAddress"))


class Library:
    """What a changer holds, read by one backend."""

    def __init__(self, client, twin):
        self.client = client
        self.name = by_scsi if twin else (lambda name: name)

    def call(self, procedure, **arguments):
        return self.client.call(self.name(procedure), SymLinkName=LINK, **arguments)

    def slots(self):
        return self.call("GetSlotsStatuses")["SlotsStatuses"].findall("SlotStatus")

    def ports(self):
        return self.call("GetIEPortsStatuses")["IEPortsStatuses"].findall("IEPortStatus")

    def elements(self, kind, first=0, count=100):
        return self.call("GetElementsStatuses", ElementAddress=first, ElementsCount=count,
                         ElementType=kind)["ElementsStatuses"].findall("ElementStatus")

    def contents(self):
        """Bar code of each full element."""
        held = {}
        for kind, elements in (("slot", self.slots()), ("port", self.ports()), ("drive", self.elements(4))):
            for element in elements:
                if int(element.get("Flags")) & FULL:
                    held[kind, number_of(element)] = element.get("PrimaryVolumeID")
        return held


class Movement:
    """The tests; a class below says on which library."""

    twin = False

    def setUp(self):
        self.library = Library(self.client, self.twin)
        self.before = self.library.contents()

    def moved(self, source, destination):
        after = dict(self.before)
        after[destination] = after.pop(source)
        self.assertEqual(self.library.contents(), after)
        self.before = after

    def first(self, kind, full):
        if kind == "slot":
            numbers = range(len(self.library.slots()))
        elif kind == "port":
            numbers = range(len(self.library.ports()))
        else:
            numbers = range(len(self.library.elements(4)))
        return next(number for number in numbers if ((kind, number) in self.before) == full)

    def test_changer_lists_itself(self):
        changers = self.client.call(self.library.name("GetChangers"))["Changers"].findall("Changer")
        self.assertEqual([changer.get("SymbolicLink") for changer in changers], [LINK])
        changer = self.library.call("GetChanger")["Changer"]
        self.assertEqual(ElementTree.tostring(changer), ElementTree.tostring(changers[0]))
        self.assertEqual([child.tag for child in changer], ["Address", "Data", "Parameters"])
        self.assertEqual(changer.get("NoDriver"), "false")

    def test_load_and_unload(self):
        slot, drive = self.first("slot", True), self.first("drive", False)
        self.library.call("LoadMedium", SlotNum=slot, DriveNum=drive)
        self.moved(("slot", slot), ("drive", drive))
        self.library.call("UnloadMedium", DriveNum=drive, SlotNum=slot)
        self.moved(("drive", drive), ("slot", slot))

    def test_slot_to_slot_and_back(self):
        full, empty = self.first("slot", True), self.first("slot", False)
        self.library.call("MoveToSlot", SourceSlotNum=full, destinationSlotNum=empty)
        self.moved(("slot", full), ("slot", empty))
        self.library.call("MoveToSlot", SourceSlotNum=empty, destinationSlotNum=full)
        self.moved(("slot", empty), ("slot", full))

    def test_ports(self):
        slot, port, drive = self.first("slot", True), self.first("port", False), self.first("drive", False)
        self.library.call("FromSlotToIEPort", SlotNum=slot, IEPortNum=port)
        self.moved(("slot", slot), ("port", port))
        with self.assertRaises(CallFailed) as refused:
            self.library.call("FromSlotToIEPort", SlotNum=self.first("slot", True), IEPortNum=port)
        self.assertIn(f"IEPort '{port}' is not empty", str(refused.exception))
        self.library.call("FromIEPortToSlot", SlotNum=slot, IEPortNum=port)
        self.moved(("port", port), ("slot", slot))
        with self.assertRaises(CallFailed) as refused:
            self.library.call("FromIEPortToSlot", SlotNum=slot, IEPortNum=port)
        self.assertIn(f"IEPort '{port}' is empty", str(refused.exception))
        self.library.call("LoadMedium", SlotNum=slot, DriveNum=drive)
        self.moved(("slot", slot), ("drive", drive))
        self.library.call("FromDriveToIEPort", DriveNum=drive, IEPortNum=port)
        self.moved(("drive", drive), ("port", port))
        self.library.call("FromIEPortToSlot", SlotNum=slot, IEPortNum=port)
        self.moved(("port", port), ("slot", slot))

    def test_refused_moves_leave_everything_where_it_is(self):
        full, empty, drive = self.first("slot", True), self.first("slot", False), self.first("drive", False)
        with self.assertRaises(CallFailed) as refused:
            self.library.call("LoadMedium", SlotNum=empty, DriveNum=drive)
        self.assertIn(f"Unable to move tape from ChangerSlot #{empty}: changer element is empty", str(refused.exception))
        with self.assertRaises(CallFailed) as refused:
            self.library.call("MoveToSlot", SourceSlotNum=full, destinationSlotNum=full)
        self.assertIn(f"Unable to move tape to ChangerSlot #{full}: changer element in not empty", str(refused.exception))
        self.assertEqual(self.library.contents(), self.before)

    def test_both_backends_give_the_same_elements(self):
        mine, other = Library(self.client, self.twin), Library(self.client, not self.twin)
        for one, two in zip(mine.slots() + mine.ports() + mine.elements(4), other.slots() + other.ports() + other.elements(4), strict=True):
            self.assertEqual(one.get("PrimaryVolumeID"), two.get("PrimaryVolumeID"))
            self.assertEqual(one.get("SerialNumber"), two.get("SerialNumber"))
            self.assertEqual(ElementTree.tostring(one.find("Element")), ElementTree.tostring(two.find("Element")))
            self.assertEqual(int(one.get("Flags")) & FULL, int(two.get("Flags")) & FULL)


class VirtualLibrary(Movement, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # A time-out of 1 keeps the refused moves, which wait for the elements, short.
        cls.server = TapeServer(values={"TapeDeviceNotReadyTimeoutSec": 1})
        cls.client = cls.server.client()

    @classmethod
    def tearDownClass(cls):
        cls.client.close()
        cls.server.close()


class VirtualLibraryByScsi(VirtualLibrary):
    twin = True


class VirtualLibraryWithEnableScsiChanger(VirtualLibrary):
    @classmethod
    def setUpClass(cls):
        cls.server = TapeServer(values={"TapeDeviceNotReadyTimeoutSec": 1, "EnableScsiChanger": 1})
        cls.client = cls.server.client()

    def test_the_server_says_how_it_works(self):
        self.assertIn("Work without driver. Use scsi.", self.server.log())


if __name__ == "__main__":
    unittest.main()
