"""The endpoint mapper and the management interface of the server's runtime, asked over the bare wire in either byte order, with and
without authentication."""

import os
import struct
import unittest
import uuid

import wire_client as wire
import wire_ntlm as ntlm
from tape_server import PASSWORD, TapeServer
from wire_client import INVOKER, MANAGEMENT, MAPPER, NDR, Fault, Security, WireClient

ALL, BY_INTERFACE, BY_OBJECT, BY_BOTH = 0, 1, 2, 3
ALL_VERSIONS, COMPATIBLE, EXACT, MAJOR_ONLY, UP_TO = 1, 2, 3, 4, 5
NOT_REGISTERED = 0x16C9A0D6
CANNOT_PERFORM = 0x16C9A0CD
NO_HANDLE = bytes(20)
NO_ROOM, UNKNOWN_SERVICE, ACCESS_DENIED = 122, 1747, 5


class BuiltinInterfaces(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = TapeServer()
        cls.addClassCleanup(cls.server.close)

    def clients(self, interface):
        for big_endian in (False, True):
            for level in (None, wire.CONNECT, wire.PRIVACY):
                with self.subTest(big_endian=big_endian, level=level):
                    client = WireClient(self.server.port, big_endian=big_endian)
                    security = level and Security(ntlm.Ntlm("operator", PASSWORD), level)
                    client.bind([(0, interface, (NDR,))], security=security)
                    yield client
                    client.close()

    def tower(self, client, interface=INVOKER, floors=5):
        def floor(left, right):
            return struct.pack("<H", len(left)) + left + struct.pack("<H", len(right)) + right

        def syntax(given):
            name, major, minor = given
            return floor(b"\x0d" + uuid.UUID(name).bytes_le + struct.pack("<H", major), struct.pack("<H", minor))

        return (struct.pack("<H", floors) + syntax(interface) + syntax(NDR) + floor(b"\x0b", bytes(2)) + floor(b"\x07", bytes(2))
                + floor(b"\x09", bytes(4)))

    def lookup(self, client, kind, interface=None, option=ALL_VERSIONS, object_id=None, handle=NO_HANDLE, most=500):
        """(entries, status, stub data)."""
        stub = client.pack("I", kind) + (client.pack("I", 1) + object_id if object_id else bytes(4))
        if interface:
            name, major, minor = interface
            identifier = uuid.UUID(name)
            stub += client.pack("I", 2) + (identifier.bytes if client.big_endian else identifier.bytes_le) + client.pack("HH", major, minor)
        else:
            stub += bytes(4)
        answer = client.call(2, stub + client.pack("I", option) + handle + client.pack("I", most))
        self.assertEqual(answer[:20], NO_HANDLE, "nothing is left for another call")
        return *struct.unpack("<I", answer[20:24]), *struct.unpack("<I", answer[-4:]), answer

    def test_each_kind_of_lookup(self):
        name = INVOKER[0]
        for client in self.clients(MAPPER):
            count, status, answer = self.lookup(client, ALL)
            self.assertEqual((count, status), (1, 0))
            self.assertIn(b"Tarno Invoker\0", answer)
            self.assertIn(b"\x07\x02\0" + struct.pack(">H", self.server.port), answer)
            there, missing = (1, 0), (0, NOT_REGISTERED)
            wanted = {(1, 0): (there,) * 5, (1, 1): (there, missing, missing, there, there), (2, 0): (there, missing, missing, missing, there),
                      (0, 9): (there,) + (missing,) * 4}
            for version, found in wanted.items():
                for option in range(ALL_VERSIONS, UP_TO + 1):
                    for kind in (BY_INTERFACE, BY_BOTH):
                        self.assertEqual(self.lookup(client, kind, (name, *version), option)[:2], found[option - 1], (version, option))
            self.assertEqual(self.lookup(client, BY_INTERFACE, MANAGEMENT)[:2], missing)
            self.assertEqual(self.lookup(client, BY_OBJECT, object_id=os.urandom(16))[:2], missing)
            self.assertEqual(self.lookup(client, BY_BOTH, INVOKER, object_id=os.urandom(16))[:2], missing)
            self.assertEqual(self.lookup(client, BY_INTERFACE, INVOKER, object_id=os.urandom(16))[:2], there)

    def test_map(self):
        for client in self.clients(MAPPER):
            for interface, floors, found in ((INVOKER, 5, 1), ((INVOKER[0], 1, 1), 5, 0), (MANAGEMENT, 5, 0), (INVOKER, 4, 0)):
                tower = self.tower(client, interface, floors)
                stub = bytes(4) + client.pack("III", 1, len(tower), len(tower)) + tower
                stub += bytes(-len(stub) % 4) + NO_HANDLE + client.pack("I", 4)
                answer = client.call(3, stub)
                self.assertEqual(struct.unpack("<I", answer[20:24])[0], found)
                self.assertEqual(struct.unpack("<I", answer[-4:])[0], 0 if found else NOT_REGISTERED)
                self.assertEqual(struct.pack(">H", self.server.port) in answer, found == 1)

    def test_the_map_is_not_changed_from_afar(self):
        for client in self.clients(MAPPER):
            for operation in (0, 1, 6):
                self.assertEqual(client.call(operation, bytes(100)), struct.pack("<I", CANNOT_PERFORM))
            for cut in (b"", bytes(20)):
                with self.assertRaises(Fault) as caught:
                    client.call(2, cut)
                self.assertEqual(caught.exception.status, 0x6F7)
            with self.assertRaises(Fault) as caught:
                client.call(7, b"")
            self.assertEqual(caught.exception.status, 0x1C010002)
            self.assertEqual(self.lookup(client, ALL)[:2], (1, 0))

    def test_management(self):
        for client in self.clients(MANAGEMENT):
            known = client.call(0, b"")
            self.assertEqual(known[4:12], struct.pack("<II", 1, 1))
            self.assertEqual(known[16:], uuid.UUID(INVOKER[0]).bytes_le + struct.pack("<HHI", 1, 0, 0))
            for asked in (0, 3, 4, 1000):
                counts = client.call(1, client.pack("I", asked))
                self.assertEqual(counts[:8], struct.pack("<II", min(asked, 4), min(asked, 4)))
                self.assertEqual(len(counts), 8 + 4 * min(asked, 4) + 4)
            self.assertEqual(client.call(2, b""), struct.pack("<II", 0, 1))
            self.assertEqual(client.call(3, b""), struct.pack("<I", ACCESS_DENIED))
            name = client.call(4, client.pack("II", wire.NEGOTIATE, 1000))
            self.assertTrue(name[12:].startswith(b"TarnoTapeSvc/"))
            self.assertEqual(name[-4:], bytes(4))
            self.assertEqual(client.call(4, client.pack("II", wire.NEGOTIATE, 5))[-4:], struct.pack("<I", NO_ROOM))
            self.assertEqual(client.call(4, client.pack("II", 68, 1000))[-4:], struct.pack("<I", UNKNOWN_SERVICE))
            self.assertEqual(client.call(2, b""), struct.pack("<II", 0, 1))


if __name__ == "__main__":
    unittest.main()
