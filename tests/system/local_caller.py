"""Calls a server over its local socket, once for each line of the input, on one connection: prints "served" or "refused".

    local_caller.py SOCKET

It needs nothing but the interpreter, so that a user without rights to anything else can run it.
"""

import socket
import struct
import sys
import uuid

INTERFACE = uuid.UUID("d1c2c07a-d989-48cc-a423-b73ecd518d40").bytes_le + struct.pack("<HH", 1, 0)
NDR = uuid.UUID("8a885d04-1ceb-11c9-9fe8-08002b104860").bytes_le + struct.pack("<I", 2)
REQUEST, RESPONSE, BIND, BIND_ACK = 0, 2, 11, 12


def pdu(kind, call, body):
    return struct.pack("<BBBB4sHHI", 5, 0, kind, 3, b"\x10\0\0\0", 16 + len(body), 0, call) + body


def receive(plug, count):
    data = b""
    while len(data) < count:
        part = plug.recv(count - len(data))
        if not part:
            raise ConnectionError("the server has closed the connection")
        data += part
    return data


def exchange(plug, request, kind):
    plug.sendall(request)
    header = receive(plug, 16)
    body = receive(plug, struct.unpack_from("<H", header, 8)[0] - 16)
    if header[2] != kind:
        raise ValueError(f"PDU {header[2]}: {body.hex()}")
    return body


def text(value):
    units = (value + "\0").encode("utf-16le")
    count = len(units) // 2
    return struct.pack("<III", count, 0, count) + units + bytes(-len(units) % 4)


def main():
    plug = socket.socket(socket.AF_UNIX)
    plug.settimeout(60)
    plug.connect(sys.argv[1])
    offer = struct.pack("<HHIB3xHBx", 5840, 5840, 0, 1, 0, 1) + INTERFACE + NDR
    exchange(plug, pdu(BIND, 1, offer), BIND_ACK)
    for call, _ in enumerate(sys.stdin, 2):
        stub = text("GetOwnerName") + text("<InputArguments />")
        body = exchange(plug, pdu(REQUEST, call, struct.pack("<IHH", len(stub), 0, 0) + stub), RESPONSE)
        # An output text comes with success alone.
        print("served" if struct.unpack_from("<I", body, 8)[0] else "refused", flush=True)


if __name__ == "__main__":
    main()
