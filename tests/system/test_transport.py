"""What crosses the wire, and what a client may do to the server: many connections, pieces, silence, vanishing, the server's end."""

import re
import resource
import socket
import struct
import threading
import time
import unittest

from impacket.dcerpc.v5.dtypes import LONG, LPWSTR, WSTR
from impacket.dcerpc.v5.ndr import NDRCALL, NDRPOINTER, NDRUniConformantArray

from tape_server import TapeServer
from impacket_client import DoRpc, DoRpcResponse, InvokeResult, InvokerTestConnection, TapeClient
from test_movement import Library

FRAME_NAME = "IInvokeDispatcher.IsSerialInvokerEnabled"
EMPTY = "<InputArguments />"
ENABLED = '<OutputArguments><IsEnabled value="false" /></OutputArguments>'
#: The mark of a verification trailer, and one command in it: header signing, "must be processed" and "end" (MS-RPCE 2.2.2.13).
VERIFICATION_TRAILER = bytes.fromhex("8ae3137102f43671") + struct.pack("<HH4s", 0x4000 | 1, 4, bytes(4))


class ByteBlock(NDRUniConformantArray):
    item = "c"


class ByteBlockPointer(NDRPOINTER):
    referent = (("Data", ByteBlock),)


class DoRpcWithBinary(NDRCALL):
    opnum = 1
    structure = (("procedure", WSTR), ("input", WSTR), ("inputSize", LONG), ("inputData", ByteBlock))


class DoRpcWithBinaryResponse(NDRCALL):
    structure = (("output", LPWSTR), ("outputSize", LONG), ("outputData", ByteBlockPointer), ("ret", InvokeResult))


def reset(client):
    """Ends a client's connection without a farewell."""
    plug = client.dce.get_rpc_transport().get_socket()
    plug.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    plug.close()


class Transport(unittest.TestCase):
    def setUp(self):
        self.server = TapeServer()
        self.addCleanup(self.server.close)

    def connect(self, **options):
        client = self.server.client(**options)
        self.addCleanup(client.close)
        return client

    def still_serves(self):
        client = self.server.client()
        self.assertEqual(client.do_rpc(FRAME_NAME, EMPTY), (True, ENABLED, ""))
        client.close()

    def slow_robot(self, milliseconds):
        (self.server.libraries[0] / "faults.xml").write_text(
            f'<faults><fault kind="slow-robot" times="0" milliseconds="{milliseconds}"/></faults>')

    def wait_for_log(self, text):
        limit = time.monotonic() + 30
        while text not in self.server.log():
            self.assertLess(time.monotonic(), limit, self.server.log())
            time.sleep(0.02)

    def start_slow_move(self, client):
        """A move that takes a while, on a thread of its own; [what became of it]."""
        outcome = []

        def move():
            try:
                outcome.append(client.call("MoveToSlot", SymLinkName=r"\\.\Changer0", SourceSlotNum=0, destinationSlotNum=23))
            except Exception as error:  # whatever the client makes of the end of its connection
                outcome.append(error)

        mover = threading.Thread(target=move)
        mover.start()
        self.wait_for_log("[SoapEnter] MoveToSlot")
        return mover, outcome

    def test_the_other_procedures_succeed_for_anybody(self):
        client = TapeClient("127.0.0.1", self.server.port)
        self.addCleanup(client.close)
        test = InvokerTestConnection()
        test["text"] = "hello\0"
        reply = client.dce.request(test, checkError=False)
        self.assertEqual((reply["ret"]["success"], reply["ret"]["errorMessage"]), (1, b""))
        binary = DoRpcWithBinary()
        binary["procedure"] = "GetOwnerName\0"
        binary["input"] = "no xml\0"
        binary["inputSize"] = 3
        binary["inputData"] = list(b"\x01\x02\x03")
        client.dce.call(binary.opnum, binary)
        self.assertEqual(client.dce.recv(), struct.pack("<IIIIi", 0, 0, 0, 1, 0))

    def test_bytes_behind_the_last_parameter_are_tolerated(self):
        for level in ("connect", "integrity", "privacy"):
            with self.subTest(level):
                client = self.connect(level=level)
                request = DoRpc()
                request["procedure"] = FRAME_NAME + "\0"
                request["input"] = EMPTY + "\0"
                stub = request.getData()
                stub += bytes(-len(stub) % 4) + VERIFICATION_TRAILER
                client.dce.call(0, stub)
                reply = DoRpcResponse(client.dce.recv())
                self.assertEqual(reply["ret"]["success"], 1)
                self.assertEqual(reply["output"], ENABLED + "\0")

    def test_bad_stub_data_is_a_fault_and_the_connection_lives(self):
        client = self.connect()
        client.dce.call(0, b"\x01\x00\x00\x00" * 4)
        with self.assertRaisesRegex(Exception, "0x6f7|bad_stub_data|RPC_X_BAD_STUB_DATA"):
            client.dce.recv()
        self.assertTrue(client.do_rpc(FRAME_NAME, EMPTY)[0])

    def test_texts_that_lie_are_bad_stub_data_at_each_level(self):
        text = (FRAME_NAME + "\0").encode("utf-16le")
        text += bytes(-len(text) % 4)
        units = len(FRAME_NAME) + 1
        given = (EMPTY + "\0").encode("utf-16le")
        count = len(EMPTY) + 1
        right = struct.pack("<III", count, 0, count) + given

        def stub(maximum, offset, actual, body=text):
            return struct.pack("<III", maximum, offset, actual) + body + right

        unterminated = (FRAME_NAME + "x").encode("utf-16le")
        lies = {"maximum below the count": stub(units - 1, 0, units), "offset": stub(units, 1, units), "empty": stub(0, 0, 0, b""),
                "longer than all": stub(0xFFFFFFFF, 0, 0xFFFFFFFF), "two to the 31": stub(1 << 31, 0, 1 << 31),
                "longer than itself": stub(units + 7, 0, units + 7), "no terminator": stub(units, 0, units, unterminated + b"\0\0"),
                "one text only": stub(units, 0, units)[:-len(right)], "cut": stub(units, 0, units)[:-3], "nothing": b"", "odd": b"\1\0\0"}
        for level in ("connect", "integrity", "privacy"):
            client = self.connect(level=level)
            for name, data in lies.items():
                with self.subTest(f"{level}: {name}"):
                    client.dce.call(0, data)
                    with self.assertRaisesRegex(Exception, "0x6f7|bad_stub_data|RPC_X_BAD_STUB_DATA"):
                        client.dce.recv()
            client.dce.call(0, stub(units, 0, units))
            self.assertEqual(DoRpcResponse(client.dce.recv())["ret"]["success"], 1)

    def test_texts_end_at_their_first_terminator(self):
        client = self.connect()
        self.assertEqual(client.do_rpc(FRAME_NAME + "\0Other", EMPTY + "\0</a>"), (True, ENABLED, ""))
        success, output, error = client.do_rpc("\ud800Name\udc00", EMPTY)
        self.assertEqual((success, output), (False, ""))
        self.assertTrue(error)
        self.still_serves()

    def test_headers_that_were_changed_on_the_way_are_noticed(self):
        wrong = VERIFICATION_TRAILER[:8] + struct.pack("<HHBxxxBxxxIHH", 0x4000 | 3, 16, 0, 0x10, 0xDEAD, 0, 0)
        request = DoRpc()
        request["procedure"] = FRAME_NAME + "\0"
        request["input"] = EMPTY + "\0"
        stub = request.getData()
        client = self.connect()
        client.dce.call(0, stub + bytes(-len(stub) % 4) + wrong)
        with self.assertRaisesRegex(Exception, "access_denied"):
            client.dce.recv()
        self.still_serves()

    def test_limits_are_those_of_the_settings(self):
        self.server.stop()
        self.server.write_settings({}, "", {"MaxConnectionsPerAddress": 8, "MaxRequestBytesBeforeAuthentication": 100, "BindTimeoutSec": 1,
                                            "MaxRequestBytes": 100_000, "MaxCalls": 1})
        self.server.start()
        stranger = TapeClient("127.0.0.1", self.server.port)
        self.addCleanup(stranger.close)
        stranger.dce.call(0, bytes(101))
        with self.assertRaisesRegex(Exception, "access_denied"):
            stranger.dce.recv()
        client = self.connect()
        self.assertTrue(client.do_rpc(FRAME_NAME, EMPTY)[0])
        client.dce.call(0, bytes(100_001))
        with self.assertRaisesRegex(Exception, "access_denied"):
            client.dce.recv()
        for closed in (stranger, client):
            closed.close()
        half = [socket.create_connection(("127.0.0.1", self.server.port), 20) for _ in range(9)]
        for plug in half:
            self.addCleanup(plug.close)
            self.assertEqual(plug.recv(1), b"", "closed at once, or after a second without a bind")
        self.slow_robot(3000)
        mover, outcome = self.start_slow_move(self.connect())
        with self.assertRaisesRegex(Exception, "0x1c010014|server_too_busy"):
            self.connect().call("GetChangers")
        mover.join(30)
        self.assertNotIsInstance(outcome[0], Exception)
        self.assertIn("A connection of RPC client 127.0.0.1 was refused: there are too many.", self.server.log())

    def test_requests_in_small_pieces(self):
        for level in ("connect", "integrity", "privacy"):
            with self.subTest(level):
                client = self.connect(level=level)
                client.dce.set_max_fragment_size(104)
                name = "N" * 5000
                self.assertTrue(client.do_rpc("SetOwnerName", f'<InputArguments><NewOwnerName value="{name}"/></InputArguments>')[0])
                self.assertIn(f'value="{name}"', client.do_rpc("GetOwnerName", EMPTY)[1])

    def test_twenty_megabytes_both_ways(self):
        client = self.connect()
        name = "N" * (10 * 1024 * 1024)
        self.assertTrue(client.do_rpc("SetOwnerName", f'<InputArguments><NewOwnerName value="{name}"/></InputArguments>')[0])
        self.assertEqual(client.do_rpc("GetOwnerName", EMPTY)[1], f'<OutputArguments><OwnerName value="{name}" /></OutputArguments>')

    def test_a_thousand_connections(self):
        # The usual allowance of descriptors, of which the server has to take more by itself; this process needs them, too.
        former = resource.getrlimit(resource.RLIMIT_NOFILE)
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, former)
        if former[1] != resource.RLIM_INFINITY and former[1] < 2048:
            self.skipTest("this machine doesn't allow a process so many descriptors")
        self.server.stop()
        resource.setrlimit(resource.RLIMIT_NOFILE, (1024, former[1]))
        self.server.start()
        resource.setrlimit(resource.RLIMIT_NOFILE, (2048, former[1]))
        held = []
        for _ in range(1000):
            held.append(socket.create_connection(("127.0.0.1", self.server.port), 20))
            self.addCleanup(held[-1].close)
        self.still_serves()
        for plug in held:
            plug.setblocking(False)
            self.assertRaises(BlockingIOError, plug.recv, 1)

    def test_half_a_bind_disturbs_nobody(self):
        for start in (b"", b"\x05", b"\x05\x00\x0b\x03\x10\x00\x00\x00\x48\x00\x00\x00\x01\x00\x00\x00" + bytes(8)):
            plug = socket.create_connection(("127.0.0.1", self.server.port), 20)
            self.addCleanup(plug.close)
            plug.sendall(start)
        self.still_serves()

    def test_a_client_that_vanishes_leaves_its_call_to_its_end(self):
        self.slow_robot(1500)
        mover_client = self.connect()
        before = Library(mover_client, False).contents()
        mover, outcome = self.start_slow_move(mover_client)
        reset(mover_client)
        self.still_serves()
        mover.join(30)
        self.assertFalse(mover.is_alive())
        self.assertIsInstance(outcome[0], Exception)
        self.wait_for_log("[SoapExit] MoveToSlot")
        after = Library(self.connect(), False).contents()
        self.assertEqual(after.pop(("slot", 23)), before.pop(("slot", 0)))
        self.assertEqual(after, before)

    def test_the_end_waits_for_no_call(self):
        self.slow_robot(60_000)
        mover, outcome = self.start_slow_move(self.connect())
        begun = time.monotonic()
        self.assertEqual(self.server.stop(), 0)
        self.assertLess(time.monotonic() - begun, 5)
        mover.join(30)
        self.assertFalse(mover.is_alive())
        self.assertIsInstance(outcome[0], Exception)
        lines = re.findall(r"(?:tap|rpc)\| (SCM: .*|Stopping RPC.*|Server was.*|Shutting down.*|Context was.*|Tape service is stopped.*)",
                           self.server.log())
        self.assertEqual(lines, ["SCM: Processing request to stop service.", "Stopping RPC server.", "Server was successfully stopped.",
                                 "Shutting down service context.", "Context was cleared.", "Tape service is stopped."])


if __name__ == "__main__":
    unittest.main()
