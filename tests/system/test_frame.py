"""The call frame and the owner gate, over TCP with a foreign RPC client."""

import socket
import time
import unittest

from tape_server import TapeServer, free_port
from impacket_client import CallFailed

EMPTY = "<InputArguments />"

GATED = """GetChangers GetChanger UnloadMedium MoveToSlot LoadMedium FromDriveToIEPort FromSlotToIEPort FromIEPortToSlot GetSlotsStatuses
GetDrivesStatuses GetIEPortsStatuses GetElementsStatuses GetAllChangers GetChangerByScsi UnloadMediumByScsi MoveToSlotByScsi
LoadMediumByScsi FromDriveToIEPortByScsi FromSlotToIEPortByScsi FromIEPortToSlotByScsi GetSlotsStatusesByScsi GetDrivesStatusesByScsi
GetIEPortsStatusesByScsi GetElementsStatusesByScsi GetDrives GetMediaInfo GeDriveInfo EraseTape GetDriveError EjectTapeFromStandalone
PrepareTape StorageMediaRemoval TaskStatus WaitForResult GetDriveAlerts GetChangerAlerts""".split()

MISSING_OWNER = "Failed to retrieve value of the unicode attribute 'OwnerName'."


def xml(**arguments):
    return "<InputArguments>" + "".join(f'<{name} value="{value}"/>' for name, value in arguments.items()) + "</InputArguments>"


class Frame(unittest.TestCase):
    def setUp(self):
        self.server = TapeServer()
        self.addCleanup(self.server.close)
        self.client = self.server.client(owner=None)
        self.addCleanup(self.client.close)

    def fails_with(self, procedure, text, *expected):
        success, output, error = self.client.do_rpc(procedure, text)
        self.assertFalse(success)
        self.assertEqual(output, "")
        for part in expected:
            self.assertIn(part, error)
        return error

    def test_reserved_name_answers_without_an_owner(self):
        self.assertEqual(self.client.do_rpc("IInvokeDispatcher.IsSerialInvokerEnabled", EMPTY),
                         (True, '<OutputArguments><IsEnabled value="false" /></OutputArguments>', ""))

    def test_reserved_name_parses_its_input_first(self):
        self.fails_with("IInvokeDispatcher.IsSerialInvokerEnabled", "no xml", "XML error: [", "Source content: [no xml].")

    def test_empty_input_fails_in_the_parser(self):
        self.fails_with("GetOwnerName", "", "--tr:Failed to parse XML content. Source content: [].")

    def test_owner_life(self):
        self.assertEqual(self.client.do_rpc("GetOwnerName", EMPTY)[1], '<OutputArguments><OwnerName value="" /></OutputArguments>')
        self.assertTrue(self.client.do_rpc("GetChangers", xml(OwnerName="A"))[0])
        self.assertTrue(self.client.do_rpc("GetChangers", xml(OwnerName="a"))[0])
        self.assertEqual(self.fails_with("GetChangers", xml(OwnerName="B")), "'B' isn't current owner. You have to change current owner")
        self.assertEqual(self.client.do_rpc("SetOwnerName", xml(NewOwnerName="a"))[1], '<OutputArguments><NewOwnerName value="a" /></OutputArguments>')
        self.assertIn('value="A"', self.client.do_rpc("GetOwnerName", EMPTY)[1])
        self.assertTrue(self.client.do_rpc("SetOwnerName", xml(NewOwnerName="B"))[0])
        self.assertEqual(self.fails_with("GetChangers", xml(OwnerName="A")), "'A' isn't current owner. You have to change current owner")

    def test_owner_outlives_the_process(self):
        self.assertTrue(self.client.do_rpc("SetOwnerName", xml(NewOwnerName="Först"))[0])
        self.server.kill()
        self.server.start()
        client = self.server.client(owner=None)
        self.addCleanup(client.close)
        self.assertEqual(client.do_rpc("GetOwnerName", EMPTY)[1], '<OutputArguments><OwnerName value="Först" /></OutputArguments>')

    def test_every_gated_name_needs_the_owner(self):
        for name in GATED:
            with self.subTest(name):
                self.fails_with(name, EMPTY, MISSING_OWNER, "Value of the argument 'OwnerName' is not defined.")

    def test_names_are_exact(self):
        self.client.do_rpc("SetOwnerName", xml(NewOwnerName="A"))
        for name in ("GetDriveInfo", "getchangers", "GetChangers ", "GetAllChangersByScsi", ""):
            with self.subTest(name):
                self.assertEqual(self.fails_with(name, xml(OwnerName="A")), f"Unknown command: '{name}'")

    def test_enum_locks_is_empty(self):
        self.assertEqual(self.client.do_rpc("EnumLocks", EMPTY)[1], "<OutputArguments><locks /></OutputArguments>")

    def test_log_folder_is_written_and_lost(self):
        self.fails_with("GetLogFolder", xml(OwnerName="A"), "Unknown command: 'GetLogFolder'")
        self.assertIn("RPC: GetLogFolder", self.server.log())

    def test_compatible_is_not_older(self):
        self.assertEqual(self.client.do_rpc("TestCompatible", xml(backupConsoleVersion="65000.0.0.0"))[1],
                         '<OutputArguments><isCompatible value="true" /></OutputArguments>')
        self.assertEqual(self.client.do_rpc("TestCompatible", xml(backupConsoleVersion="0.0.0.0"))[1],
                         '<OutputArguments><isCompatible value="false" /></OutputArguments>')
        self.fails_with("TestCompatible", xml(backupConsoleVersion="9.5"), "Failed to parse version string '9.5'.")

    def test_log_tells_the_calls(self):
        self.client.do_rpc("GetOwnerName", EMPTY)
        self.client.do_rpc("NoSuch", xml(OwnerName="A"))
        log = self.server.log()
        self.assertIn("rpc| [SoapEnter] GetOwnerName:<InputArguments />", log)
        self.assertIn('rpc| [SoapExit] GetOwnerName:<OutputArguments><OwnerName value="" /></OutputArguments>', log)
        self.assertIn("rpc| ERR |RPC method call has failed (NoSuch).", log)
        self.assertIn(">>  |Unknown command: 'NoSuch'", log)


class BadInput(unittest.TestCase):
    """Each bad input gets its failure, and the server goes on."""

    def setUp(self):
        self.server = TapeServer()
        self.addCleanup(self.server.close)
        self.client = self.server.client(owner=None)
        self.addCleanup(self.client.close)
        self.client.do_rpc("SetOwnerName", xml(NewOwnerName="A"))

    def still_serves(self):
        self.assertTrue(self.client.do_rpc("GetChangers", xml(OwnerName="A"))[0])

    def test_deep_xml_is_refused_before_the_parser(self):
        success, _, error = self.client.do_rpc("GetOwnerName", "<a>" * 100000 + "</a>" * 100000)
        self.assertFalse(success)
        self.assertIn("XML error: [", error)
        self.assertIn("..., length: 700000].", error)
        self.still_serves()

    def test_twenty_megabytes(self):
        text = "x" * (20 * 1024 * 1024)
        success, _, error = self.client.do_rpc("GetSlotsStatuses", xml(OwnerName="A", SymLinkName=text))
        self.assertFalse(success)
        self.assertIn("Could not find or open changer", self.server.log()[-100000000:])
        self.assertTrue(error)
        self.still_serves()

    def test_odd_texts(self):
        for text in ("\ud800", "<InputArguments>\udc00</InputArguments>", "<InputArguments><OwnerName value='\ud83d'/></InputArguments>",
                     "\x01\x02", "<?xml version='1.0'?>", "<!---->", "<InputArguments", "&#0;", "<a/><InputArguments/>"):
            with self.subTest(repr(text)):
                success, output, _ = self.client.do_rpc("GetChangers", text)
                self.assertFalse(success)
                self.assertEqual(output, "")
        self.still_serves()

    def test_missing_arguments_touch_no_device(self):
        cases = {"LoadMedium": dict(SymLinkName=r"\\.\Changer0", SlotNum=0), "GetSlotsStatuses": {},
                 "GetElementsStatuses": dict(SymLinkName=r"\\.\Changer0", ElementAddress=0, ElementsCount=1)}
        missing = {"LoadMedium": "DriveNum", "GetSlotsStatuses": "SymLinkName", "GetElementsStatuses": "ElementType"}
        for name, arguments in cases.items():
            with self.subTest(name):
                success, _, error = self.client.do_rpc(name, xml(OwnerName="A", **arguments))
                self.assertFalse(success)
                self.assertIn(f"Value of the argument '{missing[name]}' is not defined.", error)

    def test_numbers(self):
        call = self.client.do_rpc
        link = r"\\.\Changer0"
        _, _, error = call("LoadMedium", xml(OwnerName="A", SymLinkName=link, SlotNum="x", DriveNum=0))
        self.assertIn("Cannot convert string value to signed integer. Given string: [x].", error)
        _, _, error = call("GetElementsStatuses", xml(OwnerName="A", SymLinkName=link, ElementAddress=-1, ElementsCount=1, ElementType=2))
        self.assertIn("Incorrect first element number. Elements adds = -1, Max count = 24", error)
        _, _, error = call("GetElementsStatuses", xml(OwnerName="A", SymLinkName=link, ElementAddress=25, ElementsCount=1, ElementType=2))
        self.assertIn("Incorrect first element number. Elements adds = 25, Max count = 24", error)
        success, output, _ = call("GetElementsStatuses", xml(OwnerName="A", SymLinkName=link, ElementAddress=24, ElementsCount=5, ElementType=2))
        self.assertTrue(success)
        self.assertNotIn("ElementStatus ", output)
        for kind in (0, 1, 2, 3, 4):
            for name in ("GetElementsStatuses", "GetElementsStatusesByScsi"):
                with self.subTest(f"{name} of no elements of type {kind}"):
                    success, output, error = call(name, xml(OwnerName="A", SymLinkName=link, ElementAddress=0, ElementsCount=0, ElementType=kind))
                    self.assertTrue(success, error)
                    self.assertIn("&lt;ElementsStatuses DeviceName=&quot;Changer0&quot; ", output)
        self.still_serves()

    def test_link_that_does_not_exist(self):
        success, output, error = self.client.do_rpc("GetChanger", xml(OwnerName="A", SymLinkName=r"\\.\Changer9"))
        self.assertTrue(success, error)
        self.assertIn('<Error value="&lt;Error&gt;&lt;ApiFunctionName&gt;CreateFile&lt;/ApiFunctionName&gt;', output)
        self.assertIn("Could not find or open changer", output)
        success, _, error = self.client.do_rpc("GetSlotsStatuses", xml(OwnerName="A", SymLinkName=r"\\.\Changer9"))
        self.assertFalse(success)
        self.assertIn("The system cannot find the file specified.", error)


class ManyOwners(unittest.TestCase):
    def test_every_name_passes_and_none_becomes_owner(self):
        server = TapeServer(values={"ManyOwners": 1, "BackupServer": "FIRST"})
        self.addCleanup(server.close)
        client = server.client(owner=None)
        self.addCleanup(client.close)
        for name in ("A", "B"):
            self.assertTrue(client.do_rpc("GetChangers", xml(OwnerName=name))[0])
        self.assertTrue(client.do_rpc("SetOwnerName", xml(NewOwnerName="C"))[0])
        self.assertIn('value="FIRST"', client.do_rpc("GetOwnerName", EMPTY)[1])
        self.assertFalse(client.do_rpc("GetChangers", EMPTY)[0])


class Listening(unittest.TestCase):
    def test_valid_port_of_the_settings_wins_over_the_switch(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        server.write_settings({"Port": server.port}, "")
        server.start(port_switch=free_port())
        client = server.client()
        self.addCleanup(client.close)
        self.assertIn("Changers", client.call("GetChangers"))
        self.assertIn(f"Port settings were read from registry. Port: '{server.port}'.", server.log())

    def test_port_that_stays_taken_fails_the_start(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", server.port))
            taken.listen()
            server.launch()
            self.assertEqual(server.process.wait(60), 3)
        log = server.log()
        self.assertEqual(log.count("WARN|Waiting for endpoint to be released"), 1)
        self.assertIn("WARN|The endpoint is a duplicate.\n", log)
        self.assertIn(f"Failed to register TCP/IP RPC endpoint. Port: [{server.port}].", log)
        self.assertIn("--tr:Failed to initialize RPC runtime for 'Transport' service.", server.errors())

    def test_port_released_in_time_is_taken(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", server.port))
            taken.listen()
            server.launch()
            while "Waiting for endpoint to be released" not in server.log():
                time.sleep(0.05)
        server.wait_until_it_listens()
        client = server.client()
        self.addCleanup(client.close)
        self.assertIn("Changers", client.call("GetChangers"))

    def test_bad_settings_stop_the_start(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        (server.folder / "settings.reg").write_text('Windows Registry Editor Version 5.00\n\n"Port"=dword:1\n')
        server.launch()
        self.assertEqual(server.process.wait(30), 2)
        self.assertIn("settings.reg:3: ", server.errors())
        self.assertEqual(server.log(), "")

    def test_invalid_port_of_the_settings_is_skipped(self):
        server = TapeServer(values={"Port": 70000})
        self.addCleanup(server.close)
        client = server.client()
        self.addCleanup(client.close)
        self.assertRaises(CallFailed, client.call, "NoSuch")
        self.assertIn("Invalid port value was read from registry, setting '70000' is skipped.", server.log())


if __name__ == "__main__":
    unittest.main()
