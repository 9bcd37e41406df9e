"""Calls at the same time: for one changer they take turns, for two changers they run side by side. Slow robots, on the real server."""

import threading
import time
import unittest

from tape_server import TapeServer

LINKS = (r"\\.\Changer0", r"\\.\Changer1")
UNDER_WAY = "Run changer move medium"
ARRIVED = "Execute moving medium implementation from ChangerSlot #0 to ChangerSlot #23 ok."


class Caller(threading.Thread):
    """One call on a connection and a thread of its own."""

    def __init__(self, test, procedure, **arguments):
        super().__init__()
        self.client = test.server.client()
        test.addCleanup(self.client.close)
        self.procedure = procedure
        self.arguments = arguments
        self.answer = None
        self.error = None
        self.start()

    def run(self):
        try:
            self.answer = self.client.call(self.procedure, **self.arguments)
        except Exception as error:  # what the server answers, or what the client makes of the server's end
            self.error = error

    def wait(self, test):
        self.join(60)
        test.assertFalse(self.is_alive(), f"{self.procedure} does not come back")
        return self.answer


def bar_codes(statuses):
    return [slot.get("PrimaryVolumeID") for slot in statuses.findall("SlotStatus")]


class Turns(unittest.TestCase):
    def setUp(self):
        self.server = TapeServer(libraries=("examples/library-24",) * 2, start=False)
        self.addCleanup(self.server.close)
        description = self.server.libraries[1] / "library.xml"
        description.write_text(description.read_text().replace("TRN", "OTH"))
        self.server.start()

    def slow_robot(self, library, milliseconds):
        (self.server.libraries[library] / "faults.xml").write_text(
            f'<faults><fault kind="slow-robot" times="0" milliseconds="{milliseconds}"/></faults>')

    def wait_for_log(self, text):
        limit = time.monotonic() + 30
        while text not in self.server.log():
            self.assertLess(time.monotonic(), limit, f"no '{text}' in\n{self.server.log()}")
            time.sleep(0.02)

    def start_move(self):
        """A move of the first library, which has its robot when this returns."""
        mover = Caller(self, "MoveToSlot", SymLinkName=LINKS[0], SourceSlotNum=0, destinationSlotNum=23)
        self.wait_for_log(UNDER_WAY)
        return mover

    def was_made_to_wait(self, procedure):
        log = self.server.log()
        places = [log.index(line) for line in (f"[SoapEnter] {procedure}:", ARRIVED, f"[SoapExit] {procedure}:")]
        self.assertEqual(places, sorted(places), log)

    def test_calls_for_one_changer_take_turns(self):
        self.slow_robot(0, 3000)
        mover = self.start_move()
        readers = {name: Caller(self, name, SymLinkName=LINKS[0]) for name in ("GetSlotsStatuses", "GetSlotsStatusesByScsi", "GetChanger")}
        readers["GetChangers"] = Caller(self, "GetChangers")
        answers = {name: reader.wait(self) for name, reader in readers.items()}
        self.assertEqual((mover.wait(self), mover.error), ({}, None))
        for name in readers:
            with self.subTest(name):
                self.assertIsNone(readers[name].error)
                self.was_made_to_wait(name)
        # Whoever had to wait sees where the cartridge is now, and no error.
        for name in ("GetSlotsStatuses", "GetSlotsStatusesByScsi"):
            codes = bar_codes(answers[name]["SlotsStatuses"])
            self.assertEqual((codes[0], codes[23]), ("", "TRN001L8"))
        self.assertEqual(list(answers["GetChanger"]), ["Changer"])
        self.assertEqual([(changer.get("SymbolicLink"), changer.get("Error")) for changer in answers["GetChangers"]["Changers"]],
                         [(link, None) for link in LINKS])

    def test_a_second_move_begins_when_the_first_has_ended(self):
        self.slow_robot(0, 2000)
        first = self.start_move()
        second = Caller(self, "MoveToSlotByScsi", SymLinkName=LINKS[0], SourceSlotNum=23, destinationSlotNum=22)
        for mover in (first, second):
            self.assertEqual((mover.wait(self), mover.error), ({}, None))
        log = self.server.log()
        self.assertLess(log.index("[SoapEnter] MoveToSlotByScsi:"), log.index(ARRIVED))
        self.assertLess(log.index(ARRIVED), log.index("Checking if ChangerSlot #23 is full"))

    def test_two_changers_run_side_by_side(self):
        self.slow_robot(0, 600_000)
        mover = self.start_move()
        # All of this is done while the first library's robot is on its way.
        client = self.server.client()
        self.addCleanup(client.close)
        client.call("LoadMedium", SymLinkName=LINKS[1], SlotNum=0, DriveNum=1)
        codes = bar_codes(client.call("GetSlotsStatusesByScsi", SymLinkName=LINKS[1])["SlotsStatuses"])
        self.assertEqual(codes[:2], ["", "OTH002L8"])
        client.call("UnloadMedium", SymLinkName=LINKS[1], SlotNum=0, DriveNum=1)
        self.assertTrue(mover.is_alive())
        self.assertNotIn(ARRIVED, self.server.log())
        self.assertNotIn("[SoapExit] MoveToSlot:", self.server.log())
        self.assertEqual(self.server.stop(), 0)
        mover.wait(self)
        self.assertIsNotNone(mover.error)


if __name__ == "__main__":
    unittest.main()
