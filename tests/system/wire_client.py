"""A client of the bare wire: makes each PDU itself, in either byte order and with whatever a test wants to be different.

    wire = WireClient(port, big_endian=True)
    wire.bind()
    answer = wire.call(2, wire.text("hello"))
"""

import socket
import struct
import uuid

REQUEST, RESPONSE, FAULT, BIND, BIND_ACK, BIND_NAK = 0, 2, 3, 11, 12, 13
ALTER_CONTEXT, ALTER_CONTEXT_RESP, AUTH3, SHUTDOWN, CO_CANCEL, ORPHANED = 14, 15, 16, 17, 18, 19
FIRST, LAST, HEADER_SIGN, MULTIPLEX, OBJECT = 1, 2, 4, 0x10, 0x80
WHOLE = FIRST | LAST
CONNECT, CALL, PACKET, INTEGRITY, PRIVACY = 2, 3, 4, 5, 6 # "call" is raised to "packet"
NEGOTIATE, NTLM = 9, 10

INVOKER = ("d1c2c07a-d989-48cc-a423-b73ecd518d40", 1, 0)
MANAGEMENT = ("afa8bd80-7d8a-11c9-bef4-08002b102989", 1, 0)
MAPPER = ("e1af8308-5d1f-11c9-91a4-08002b14a0fa", 3, 0)
NDR = ("8a885d04-1ceb-11c9-9fe8-08002b104860", 2, 0)
NDR64 = ("71710533-beba-4937-8319-b5dbef9ccc36", 1, 0)
NO_SYNTAX = ("00000000-0000-0000-0000-000000000000", 0, 0)


def feature_negotiation(bits):
    return (f"6cb71c2c-9812-4540-{bits:02x}00-000000000000", 1, 0)


class Fault(Exception):
    def __init__(self, status, flags):
        super().__init__(f"fault {status:#x}")
        self.status = status
        self.flags = flags


class Pdu:
    def __init__(self, data):
        self.data = data
        self.version, self.minor, self.type, self.flags, order = struct.unpack_from("<BBBBB", data)
        assert order == 0x10, "the server answers little-endian"
        self.length, self.auth_length, self.call_id = struct.unpack_from("<HHI", data, 8)
        trailer = self.length - self.auth_length - 8
        self.token = data[trailer + 8:] if self.auth_length else b""
        if self.auth_length:
            self.auth_type, self.level, self.pad, _, self.auth_context = struct.unpack_from("<BBBBI", data, trailer)
        self.body_end = trailer - self.pad if self.auth_length else self.length

    @property
    def stub(self):
        return self.data[24:self.body_end]

    @property
    def status(self):
        return struct.unpack_from("<I", self.data, 24)[0]

    @property
    def reason(self):
        return struct.unpack_from("<H", self.data, 16)[0]

    def results(self):
        """Of a bind_ack or alter_context_resp: [(result, reason, transfer syntax)]."""
        at = 26 + struct.unpack_from("<H", self.data, 24)[0]
        at += -at % 4
        found = []
        for index in range(self.data[at]):
            where = at + 4 + 24 * index
            result, reason = struct.unpack_from("<HH", self.data, where)
            found.append((result, reason, (str(uuid.UUID(bytes_le=self.data[where + 4:where + 20])),
                                           *struct.unpack_from("<HH", self.data, where + 20))))
        return found

    def sizes(self):
        return struct.unpack_from("<HH", self.data, 16)

    def group(self):
        return struct.unpack_from("<I", self.data, 20)[0]


class Security:
    """One authentication of a connection: `mechanism` makes tokens and signatures."""

    def __init__(self, mechanism, level=INTEGRITY, auth_type=NTLM, context_id=1):
        self.mechanism = mechanism
        self.level = level
        self.auth_type = auth_type
        self.context_id = context_id


class WireClient:
    def __init__(self, port, big_endian=False, minor=0):
        self.order = ">" if big_endian else "<"
        self.big_endian = big_endian
        self.minor = minor
        self.call_id = 1
        self.max_fragment = 5840
        self.security = None
        self.socket = socket.create_connection(("127.0.0.1", port), 20)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def close(self):
        self.socket.close()

    def pack(self, form, *values):
        return struct.pack(self.order + form, *values)

    def syntax(self, given):
        name, major, minor = given
        identifier = uuid.UUID(name)
        return (identifier.bytes if self.big_endian else identifier.bytes_le) + self.pack("I", minor << 16 | major)

    # PDUs

    def pdu(self, kind, body, flags=WHOLE, call_id=None, security=None, token=b"", pad=0):
        """A PDU; with a token also the verifier, behind `pad` bytes of filling."""
        if token:
            body += bytes(pad) + self.pack("BBBBI", security.auth_type, security.level, pad, 0, security.context_id)
        call_id = self.call_id if call_id is None else call_id
        header = struct.pack("BBBBBBBB", 5, self.minor, kind, flags, 0 if self.big_endian else 0x10, 0, 0, 0)
        return header + self.pack("HHI", 16 + len(body) + len(token), len(token), call_id) + body + token

    def bind_body(self, contexts, max_transmit=5840, max_receive=5840, group=0):
        body = self.pack("HHIBBH", max_transmit, max_receive, group, len(contexts), 0, 0)
        for number, interface, syntaxes in contexts:
            body += self.pack("HBB", number, len(syntaxes), 0) + self.syntax(interface) + b"".join(self.syntax(one) for one in syntaxes)
        return body

    def request_head(self, operation, context=0, alloc_hint=0, object_id=None):
        head = self.pack("IHH", alloc_hint, context, operation)
        return head + (object_id or b"")

    def send(self, data):
        self.socket.sendall(data)

    def receive_exactly(self, size):
        data = b""
        while len(data) < size:
            part = self.socket.recv(size - len(data))
            if not part:
                raise ConnectionError("the server has closed the connection")
            data += part
        return data

    def receive(self):
        head = self.receive_exactly(16)
        return Pdu(head + self.receive_exactly(struct.unpack_from("<H", head, 8)[0] - 16))

    def is_closed(self):
        try:
            return self.socket.recv(1) == b""
        except ConnectionResetError:
            return True

    # What clients do

    def bind(self, contexts=((0, INVOKER, (NDR,)),), flags=0, security=None, **sizes):
        """Binds, to the end of the authentication if there is one; the bind_ack."""
        token = security.mechanism.first() if security else b""
        self.send(self.pdu(BIND, self.bind_body(contexts, **sizes), WHOLE | flags, security=security, token=token))
        answer = self.receive()
        if answer.type == BIND_ACK:
            self.max_fragment = answer.sizes()[1]
            if security:
                security.mechanism.header_signing = bool(answer.flags & HEADER_SIGN)
                self.finish(security, answer, contexts)
        return answer

    def finish(self, security, answer, contexts):
        """The rest of an authentication that a bind or alter_context has begun."""
        self.security = security
        token = security.mechanism.next(answer.token)
        if token and security.auth_type == NTLM:
            self.send(self.pdu(AUTH3, bytes(4), security=security, token=token))
            return
        while token:
            self.send(self.pdu(ALTER_CONTEXT, self.bind_body(contexts), security=security, token=token))
            token = security.mechanism.next(self.receive().token)

    def alter(self, contexts, flags=0, security=None):
        """Adds contexts and, where `security` is given, an authentication; the answer to its first PDU."""
        token = security.mechanism.first() if security else b""
        self.send(self.pdu(ALTER_CONTEXT, self.bind_body(contexts), WHOLE | flags, security=security, token=token))
        answer = self.receive()
        if security and answer.type == ALTER_CONTEXT_RESP:
            self.finish(security, answer, contexts)
        return answer

    def protected(self, kind, head, stub, flags, call_id, security, pad=None):
        if security is None or (security.level == CONNECT and pad is None):
            return self.pdu(kind, head + stub, flags, call_id)
        pad = -len(stub) % 16 if pad is None else pad
        blank = self.pdu(kind, head + stub, flags, call_id, security, bytes(security.mechanism.signature_size), pad)
        return security.mechanism.protect(blank, 16 + len(head), security.level)

    def fragments(self, operation, stub, context=0, security=None, pad=None, alloc_hint=None, object_id=None, call_id=None, size=None):
        """The PDUs of a request."""
        security = security or self.security
        room = (size or self.max_fragment) - 24 - (16 if object_id else 0) - (8 + 16 + (pad or 16) if security else 0)
        room -= room % 16
        parts = [stub[at:at + room] for at in range(0, len(stub), room)] or [b""]
        made = []
        for index, part in enumerate(parts):
            flags = (FIRST if index == 0 else 0) | (LAST if index + 1 == len(parts) else 0) | (OBJECT if object_id else 0)
            hint = len(stub) - index * room if alloc_hint is None else alloc_hint
            head = self.request_head(operation, context, hint, object_id)
            made.append(self.protected(REQUEST, head, part, flags, self.call_id if call_id is None else call_id, security, pad))
        return made

    def answer(self, security=None, call_id=None):
        """The stub data of the answer that is due."""
        security = security or self.security
        stub = b""
        while True:
            pdu = self.receive()
            assert len(pdu.data) <= self.max_fragment
            if call_id is not None:
                assert pdu.call_id == call_id, f"answer to call {pdu.call_id} instead of {call_id}"
            if pdu.type == FAULT:
                raise Fault(pdu.status, pdu.flags)
            assert pdu.type == RESPONSE, f"PDU of type {pdu.type}"
            if security and security.level >= CALL:
                pdu = Pdu(security.mechanism.unprotect(pdu.data, security.level))
            stub += pdu.stub
            if pdu.flags & LAST:
                return stub

    def call(self, operation, stub, **how):
        self.call_id = how.pop("call_id", self.call_id + 1)
        for fragment in self.fragments(operation, stub, **how):
            self.send(fragment)
        return self.answer(how.get("security"), self.call_id)

    # NDR

    def text(self, text):
        units = (text + "\0").encode("utf-16be" if self.big_endian else "utf-16le")
        data = self.pack("III", len(units) // 2, 0, len(units) // 2) + units
        return data + bytes(-len(data) % 4)

    def do_rpc(self, procedure, text, **how):
        """(success, output, error message)."""
        answer = self.call(0, self.text(procedure) + self.text(text), **how)
        at = 4
        output = None
        if answer[:4] != bytes(4):
            count = struct.unpack_from("<I", answer, 12)[0]
            output = answer[16:16 + 2 * count - 2].decode("utf-16le")
            at = 16 + 2 * count
            at += -at % 4
        success = answer[at]
        error = None
        if answer[at + 4:at + 8] != bytes(4):
            error = answer[at + 20:-2].decode("utf-16le")
        return success, output, error
