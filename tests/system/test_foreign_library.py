"""The changer procedures on a library that is not ours: the packaged target framework's, over iSCSI on loopback."""

import subprocess
import time
import unittest

from tape_server import ROOT, TapeServer
from impacket_client import CallFailed
from test_movement import LINK, Library, Movement


class ForeignLibrary:
    """A target of its own: 2 drives, 8 slots, 4 cartridges, 2 ports, unless the options of the script say otherwise. Ends with its
    process."""

    def __init__(self, *options):
        self.process = subprocess.Popen(["bash", ROOT / "tests/support/tgt_library.sh", "--ports", "2", *options],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.facts = {}
        for line in self.process.stdout:
            if line.strip() == "ready":
                return
            name, _, value = line.strip().partition("=")
            self.facts[name] = value
        raise RuntimeError("the target did not start")

    @property
    def url(self):
        return f"iscsi://{self.facts['portal']}/{self.facts['target']}"

    @property
    def port(self):
        return self.facts["portal"].rpartition(":")[2]

    def stop_daemon(self):
        """It keeps its connections and answers nothing any more."""
        subprocess.run(["kill", "-STOP", self.facts["pid"]], check=True)

    def kill_daemon(self):
        subprocess.run(["kill", "-9", self.facts["pid"]], check=True)

    def close(self):
        self.process.stdin.close()
        self.process.wait(30)
        self.process.stdout.close()


class OverIscsi(Movement, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.foreign = ForeignLibrary()
        cls.server = TapeServer(libraries=(), iscsi=cls.foreign.url, values={"TapeDeviceNotReadyTimeoutSec": 1})
        cls.client = cls.server.client()

    @classmethod
    def tearDownClass(cls):
        cls.client.close()
        cls.server.close()
        cls.foreign.close()

    def test_inventory_is_what_was_put_in(self):
        self.assertEqual([(kind, number) for kind, number in self.before], [("slot", number) for number in range(4)])
        self.assertEqual((len(self.library.slots()), len(self.library.ports()), len(self.library.elements(4))), (8, 2, 2))


class OverIscsiByScsi(OverIscsi):
    twin = True


class DeadTarget(unittest.TestCase):
    """The target dies: an error within the time limit, and the server goes on."""

    def test_target_dies_between_and_during_reads(self):
        foreign = ForeignLibrary()
        self.addCleanup(foreign.close)
        server = TapeServer(iscsi=foreign.url, values={"TapeDeviceNotReadyTimeoutSec": 1})
        self.addCleanup(server.close)
        client = server.client(timeout=300)
        self.addCleanup(client.close)
        links = [changer.get("SymbolicLink") for changer in client.call("GetChangers")["Changers"].findall("Changer")]
        self.assertEqual(links, [LINK, r"\\.\Changer1"])
        self.assertEqual(len(client.call("GetSlotsStatuses", SymLinkName=LINK)["SlotsStatuses"].findall("SlotStatus")), 8)
        foreign.kill_daemon()
        started = time.monotonic()
        for procedure in ("GetSlotsStatuses", "GetSlotsStatusesByScsi"):
            with self.assertRaises(CallFailed):
                client.call(procedure, SymLinkName=LINK)
        self.assertLess(time.monotonic() - started, 120)
        # The other library isn't touched by it.
        other = client.call("GetSlotsStatuses", SymLinkName=r"\\.\Changer1")["SlotsStatuses"].findall("SlotStatus")
        self.assertEqual(len(other), 24)
        self.assertEqual(len(Library(client, False).client.call("GetChangers")["Changers"].findall("Changer")), 1)


if __name__ == "__main__":
    unittest.main()
