#!/usr/bin/env python3
"""Writes PDUs that random bytes would hardly become, for the target rpc_pdu to begin with: rpc_pdu_seeds.py FOLDER."""

import pathlib
import struct
import sys
import uuid

ECHO, MAPPER, MANAGEMENT = 0, 1, 2  # contexts of the bind that the target puts in front
ECHO_INTERFACE = (uuid.UUID("12345678-9abc-def0-1122-334455667788"), 1, 0)
NDR = (uuid.UUID("8a885d04-1ceb-11c9-9fe8-08002b104860"), 2, 0)
FIRST, LAST, OBJECT = 1, 2, 0x80
REQUEST, BIND, ALTER_CONTEXT, ORPHANED = 0, 11, 14, 19
BOUND, MULTIPLEXED = 2, 4  # bits of the target's first byte


def pdu(kind, body, flags=FIRST | LAST, call=1, order="<"):
    representation = b"\x10\0\0\0" if order == "<" else b"\0\0\0\0"
    return struct.pack("BBBB4s", 5, 0, kind, flags, representation) + struct.pack(order + "HHI", 16 + len(body), 0, call) + body


def request(context, operation, stub=b"", order="<", **header):
    return pdu(REQUEST, struct.pack(order + "IHH", len(stub), context, operation) + stub, order=order, **header)


def uuid_bytes(value, order="<"):
    return value.bytes_le if order == "<" else value.bytes


def syntax(identifier, order="<"):
    return uuid_bytes(identifier[0], order) + struct.pack(order + "HH", *identifier[1:])


def offer(kind, *interfaces):
    body = struct.pack("<HHIBxxx", 5840, 5840, 0, len(interfaces))
    for number, interface in enumerate(interfaces):
        body += struct.pack("<HBx", 10 + number, 1) + syntax(interface) + syntax(NDR)
    return pdu(kind, body)


def trailer(order, call, context, operation):
    """What a client says once more of its request, behind the stub data."""
    representation = b"\x10\0\0\0" if order == "<" else b"\0\0\0\0"
    commands = struct.pack(order + "HHI", 1, 4, 0)
    commands += struct.pack(order + "HH", 2, 40) + syntax(ECHO_INTERFACE, order) + syntax(NDR, order)
    commands += struct.pack(order + "HH", 0x4003, 16) + b"\0\0\0\0" + representation
    return b"\x8a\xe3\x13\x71\x02\xf4\x36\x71" + commands + struct.pack(order + "IHH", call, context, operation)


def floor(left, right):
    return struct.pack("<H", len(left)) + left + struct.pack("<H", len(right)) + right


def tower():
    uuids = [floor(b"\x0d" + syntax(each)[:18], syntax(each)[18:]) for each in (ECHO_INTERFACE, NDR)]
    rest = [floor(b"\x0b", b"\0\0"), floor(b"\x07", b"\0\0"), floor(b"\x09", bytes(4))]
    return struct.pack("<H", 5) + b"".join(uuids + rest)


def map_request():
    asked = tower()
    stub = struct.pack("<I", 1) + bytes(16) + struct.pack("<III", 2, len(asked), len(asked)) + asked
    return request(MAPPER, 3, stub + bytes(-len(stub) % 4) + bytes(20) + struct.pack("<I", 4))


def lookup_request(option):
    interface = struct.pack("<I", 2) + syntax(ECHO_INTERFACE)
    return request(MAPPER, 2, struct.pack("<II", 1, 0) + interface + struct.pack("<I", option) + bytes(20) + struct.pack("<I", 9))


def seeds():
    for order, name in (("<", "little"), (">", "big")):
        stub = b"echo"
        yield "echo-" + name, BOUND, request(ECHO, 0, stub, order)
        yield "trailer-" + name, BOUND, request(ECHO, 1, stub + trailer(order, 1, ECHO, 1), order)
    yield "map", BOUND, map_request()
    for option in range(1, 6):
        yield f"lookup-{option}", BOUND, lookup_request(option)
    yield "management", BOUND, b"".join(request(MANAGEMENT, each, struct.pack("<II", 10, 200), call=each + 1) for each in range(5))
    yield "object", BOUND, request(ECHO, 0, bytes(16) + b"echo", flags=FIRST | LAST | OBJECT)
    parts = [request(ECHO, 0, b"12345678", flags=flags, call=2) for flags in (FIRST, 0, LAST)]
    yield "fragments", BOUND, b"".join(parts)
    others = [request(ECHO, 1, b"abcdefgh", flags=flags, call=3) for flags in (FIRST, 0, LAST)]
    yield "in-turn", BOUND | MULTIPLEXED, b"".join(a + b for a, b in zip(parts, others))
    yield "orphaned", BOUND | MULTIPLEXED, parts[0] + pdu(ORPHANED, b"", call=2) + others[0] + others[2]
    yield "bind", 0, offer(BIND, ECHO_INTERFACE) + request(10, 0, b"echo")
    yield "alter", BOUND, offer(ALTER_CONTEXT, ECHO_INTERFACE, NDR) + request(10, 0, b"echo")


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for name, choice, pdus in seeds():
        (folder / f"seed-{name}").write_bytes(bytes([choice]) + pdus)


main()
