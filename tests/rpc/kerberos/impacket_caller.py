#!/usr/bin/python3
"""Calls of impacket to the server that the test program runs.

    impacket_caller.py PORT USER PASSWORD HOST MECHANISM:LEVEL...

Mechanisms: ntlm, kerberos, negotiate-kerberos, none. Kerberos takes its tickets from the cache that KRB5CCNAME names; HOST is the host
of the service there. Each call sends bytes of several sizes, which come back in reverse order behind a line about the caller. Prints for
each a line "MECHANISM:LEVEL ANSWER", where ANSWER is that line, or "refused" and why. Never waits longer than two minutes.
"""

import signal
import sys

from impacket.dcerpc.v5 import rpcrt, transport
from impacket.uuid import uuidtup_to_bin

INTERFACE = uuidtup_to_bin(("d1c2c07a-d989-48cc-a423-b73ecd518d40", "1.0"))
TYPES = {
    "ntlm": rpcrt.RPC_C_AUTHN_WINNT,
    "kerberos": 16,
    "negotiate-kerberos": rpcrt.RPC_C_AUTHN_GSS_NEGOTIATE,
}


def call(port, user, password, host, mechanism, level):
    channel = transport.DCERPCTransportFactory("ncacn_ip_tcp:127.0.0.1[%s]" % port)
    channel.set_connect_timeout(20)
    if mechanism != "none":
        channel.set_credentials(user, password, "TARNO.TEST" if "kerberos" in mechanism else "CORP")
        if "kerberos" in mechanism:
            channel.set_kerberos(True, "127.0.0.1")
            channel.setRemoteName(host)
    caller = channel.get_dce_rpc()
    if mechanism != "none":
        caller.set_auth_type(TYPES[mechanism])
        caller.set_auth_level(level)
    caller.connect()
    channel.get_socket().settimeout(20)
    caller.bind(INTERFACE)
    lines = set()
    for size in (100, 0, 16, 20001, 7):
        stub = bytes(index % 251 for index in range(size))
        caller.call(0, stub)
        line, _, rest = caller.recv().partition(b"\n")
        if rest[::-1][: len(stub)] != stub:  # a verification trailer may have come behind it
            return "spoilt"
        lines.add(line.decode())
    return " | ".join(sorted(lines))


def main():
    signal.alarm(120)
    port, user, password, host = sys.argv[1:5]
    for wish in sys.argv[5:]:
        mechanism, level = wish.split(":")
        try:
            answer = call(port, user, password, host, mechanism, int(level))
        except Exception as error:  # whatever it is, it is the answer
            answer = "refused %s: %s" % (type(error).__name__, " ".join(str(error).split()))
        print(wish, answer, flush=True)


if __name__ == "__main__":
    main()
