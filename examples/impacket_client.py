"""A console's side of the tape server's remote procedures, on the packaged RPC library impacket.

    client = TapeClient("127.0.0.1", 6166, user="operator", password="secret", owner="CONSOLE")
    client.call("GetSlotsStatuses", SymLinkName=r"\\\\.\\Changer0")

It knows nothing but the interface: three procedures, of which `DoRpc` takes a procedure's name and an XML text.
"""

import socket
import xml.etree.ElementTree as ElementTree
from xml.sax.saxutils import quoteattr

from impacket.dcerpc.v5 import rpcrt, transport
from impacket.dcerpc.v5.dtypes import LPWSTR, WSTR
from impacket.dcerpc.v5.ndr import NDRCALL, NDRSMALL, NDRSTRUCT
from impacket.uuid import uuidtup_to_bin

INTERFACE = uuidtup_to_bin(("d1c2c07a-d989-48cc-a423-b73ecd518d40", "1.0"))


class InvokeResult(NDRSTRUCT):
    structure = (("success", NDRSMALL), ("errorMessage", LPWSTR))


class DoRpc(NDRCALL):
    opnum = 0
    structure = (("procedure", WSTR), ("input", WSTR))


class DoRpcResponse(NDRCALL):
    structure = (("output", LPWSTR), ("ret", InvokeResult))


class InvokerTestConnection(NDRCALL):
    opnum = 2
    structure = (("text", WSTR),)


class InvokerTestConnectionResponse(NDRCALL):
    structure = (("ret", InvokeResult),)


class _Connection(transport.TCPTransport):
    """impacket's own, but a server that goes away ends the read instead of letting it spin."""

    def recv(self, forceRecv=0, count=0):
        data = b""
        while not data or len(data) < count:
            part = self.get_socket().recv(count - len(data) if count else 8192)
            if not part:
                raise ConnectionError("the server has closed the connection")
            data += part
        return data


class CallFailed(Exception):
    """The server has answered that the call failed; the text is the server's own."""


class _Units(str):
    """A text that goes over the wire unit by unit, unpaired surrogates included, which the library would refuse."""

    def encode(self, encoding="utf-16le", errors="surrogatepass"):
        return str.encode(self, encoding, errors)


def _text(value):
    text = value.decode("utf-16le", "surrogatepass") if isinstance(value, bytes) else str(value)
    return text.split("\0", 1)[0]


class TapeClient:
    """One authenticated connection. `user` None makes no authentication at all."""

    LEVELS = {"connect": rpcrt.RPC_C_AUTHN_LEVEL_CONNECT, "integrity": rpcrt.RPC_C_AUTHN_LEVEL_PKT_INTEGRITY,
              "packet": rpcrt.RPC_C_AUTHN_LEVEL_PKT, "privacy": rpcrt.RPC_C_AUTHN_LEVEL_PKT_PRIVACY}

    def __init__(self, host, port, user=None, password="", domain="", level="integrity", owner=None, timeout=120):
        self.owner = owner
        rpc = _Connection(host, port)
        rpc.set_connect_timeout(timeout)
        if user is not None:
            rpc.set_credentials(user, password, domain)
        self.dce = rpc.get_dce_rpc()
        if user is not None:
            self.dce.set_auth_type(rpcrt.RPC_C_AUTHN_WINNT)
            self.dce.set_auth_level(self.LEVELS[level])
        self.dce.connect()
        rpc.get_socket().settimeout(timeout)  # it would wait for ever for a server that died
        rpc.get_socket().setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.dce.bind(INTERFACE)

    def do_rpc(self, procedure, text):
        """The bare remote procedure: (success, output or "", error message or "")."""
        request = DoRpc()
        request["procedure"] = _Units(procedure + "\0")
        request["input"] = _Units(text + "\0")
        reply = self.dce.request(request, checkError=False)
        return reply["ret"]["success"] != 0, _text(reply["output"]), _text(reply["ret"]["errorMessage"])

    def call_xml(self, procedure, **arguments):
        """Calls a procedure by its arguments; the output XML as it came."""
        if self.owner is not None:
            arguments.setdefault("OwnerName", self.owner)
        elements = "".join(f"<{name} value={quoteattr(str(value))} />" for name, value in arguments.items())
        success, output, error = self.do_rpc(procedure, f"<InputArguments>{elements}</InputArguments>")
        if not success:
            raise CallFailed(error)
        return output

    def call(self, procedure, **arguments):
        """Calls a procedure; its output values by name. A record document arrives as an XML element."""
        values = {}
        for child in ElementTree.fromstring(self.call_xml(procedure, **arguments)):
            value = child.get("value", "")
            values.setdefault(child.tag, ElementTree.fromstring(value) if value.startswith("<") else value)
        return values

    def close(self):
        self.dce.disconnect()
