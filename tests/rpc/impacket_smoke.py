#!/usr/bin/python3
"""A client that this project did not write calls the test server.

    impacket_smoke.py PORT USER PASSWORD

The server offers the test interface (echo, block, produce, who, fault), NTLM with one account, the endpoint mapper and the
management interface. Ends with 0 when all went as it should; otherwise with a trace. It never waits longer than a minute.
"""

import signal
import struct
import sys

from impacket import uuid
from impacket.dcerpc.v5 import epm, mgmt, rpcrt, transport

INTERFACE = uuid.uuidtup_to_bin(("12345678-9abc-def0-1122-334455667788", "1.0"))
UNKNOWN = uuid.uuidtup_to_bin(("00000000-1111-2222-3333-444444444444", "1.0"))
ECHO, _, PRODUCE, WHO, FAULT, COUNT = range(6)
LEVELS = {
    "connect": rpcrt.RPC_C_AUTHN_LEVEL_CONNECT,
    "integrity": rpcrt.RPC_C_AUTHN_LEVEL_PKT_INTEGRITY,
    "privacy": rpcrt.RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
}


def connect(port, interface=INTERFACE, level=None, user="", password="", fragment=None):
    rpc_transport = transport.DCERPCTransportFactory("ncacn_ip_tcp:127.0.0.1[%d]" % port)
    rpc_transport.set_connect_timeout(20)
    if level is not None:
        rpc_transport.set_credentials(user, password)
    dce = rpc_transport.get_dce_rpc()
    if level is not None:
        dce.set_auth_type(rpcrt.RPC_C_AUTHN_WINNT)
        dce.set_auth_level(level)
    dce.connect()
    if fragment is not None:
        dce.set_max_fragment_size(fragment)
    if interface is not None:
        dce.bind(interface)
    return dce


def call(dce, operation, stub=b""):
    dce.call(operation, stub)
    return dce.recv()


def pattern(size):
    return bytes((i * 31 + i // 256) & 255 for i in range(size))


def fails_with(word, action):
    try:
        action()
    except rpcrt.DCERPCException as e:
        assert word in str(e), "expected '%s', got '%s'" % (word, e)
        return
    raise AssertionError("expected '%s', but it succeeded" % word)


def plain_calls(port):
    dce = connect(port)
    assert call(dce, WHO) == b"nobody"
    for size in (0, 1, 4000, 20000):
        assert call(dce, ECHO, pattern(size)) == pattern(size), size
    assert call(dce, PRODUCE, struct.pack("<L", 200000)) == pattern(200000)
    fails_with("rpc_x_bad_stub_data", lambda: call(dce, FAULT, struct.pack("<L", 1783)))
    fails_with("nca_s_op_rng_error", lambda: call(dce, COUNT))
    assert call(dce, ECHO, b"still here") == b"still here"
    dce.disconnect()
    fails_with("abstract_syntax_not_supported", lambda: connect(port, UNKNOWN))
    small = connect(port, fragment=16)
    assert call(small, ECHO, pattern(1000)) == pattern(1000)
    second = small.alter_ctx(INTERFACE)
    assert call(second, ECHO, b"second context") == b"second context"


def authenticated_calls(port, user, password):
    for name, level in LEVELS.items():
        dce = connect(port, level=level, user=user, password=password)
        caller, _, used = call(dce, WHO).decode().rpartition(" ")
        assert caller.endswith("\\" + user) and int(used) == level, (name, caller, used)
        for size in (0, 1, 15, 16, 17, 3000, 100000):
            assert call(dce, ECHO, pattern(size)) == pattern(size), (name, size)
        assert call(dce, PRODUCE, struct.pack("<L", 100000)) == pattern(100000), name
        fails_with("nca_s_op_rng_error", lambda: call(dce, COUNT))
        assert call(dce, ECHO, b"still here") == b"still here"
        dce.disconnect()
        refused = connect(port, level=level, user=user, password=password + "!")
        fails_with("rpc_s_access_denied", lambda: call(refused, WHO))
    # At level packet this client promises signatures but makes none: exactly what must not get through.
    unsigned = connect(port, level=rpcrt.RPC_C_AUTHN_LEVEL_PKT, user=user, password=password)
    fails_with("rpc_s_access_denied", lambda: call(unsigned, WHO))


def builtin_interfaces(port):
    binding = epm.hept_map("127.0.0.1", INTERFACE, protocol="ncacn_ip_tcp", dce=connect(port, None))
    assert binding == "ncacn_ip_tcp:127.0.0.1[%d]" % port, binding
    entries = epm.hept_lookup(None, dce=connect(port, None))
    assert [entry["annotation"] for entry in entries] == [b"Test annotation\0"], entries
    dce = connect(port, mgmt.MSRPC_UUID_MGMT)
    vector = mgmt.hinq_if_ids(dce)["if_id_vector"]
    assert vector["count"] == 1
    assert vector["if_id"][0]["Data"].getData() == INTERFACE
    assert mgmt.hinq_stats(dce)["count"] == 4
    assert dce.request(mgmt.is_server_listening(), checkError=False)["status"] == 0
    assert dce.request(mgmt.stop_server_listening(), checkError=False)["status"] == 5


def main():
    signal.alarm(60)
    port, user, password = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    plain_calls(port)
    authenticated_calls(port, user, password)
    builtin_interfaces(port)


if __name__ == "__main__":
    main()
