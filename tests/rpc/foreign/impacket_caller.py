#!/usr/bin/python3
"""Calls of impacket to the server that the test program runs, as `calls.py` describes them.

Mechanisms: ntlm, kerberos, negotiate-kerberos, none. Kerberos takes its tickets from the cache that KRB5CCNAME names.
"""

import calls
from impacket.dcerpc.v5 import rpcrt, transport
from impacket.uuid import uuidtup_to_bin

INTERFACE = uuidtup_to_bin(("d1c2c07a-d989-48cc-a423-b73ecd518d40", "1.0"))
TYPES = {
    "ntlm": rpcrt.RPC_C_AUTHN_WINNT,
    "kerberos": 16,
    "negotiate-kerberos": rpcrt.RPC_C_AUTHN_GSS_NEGOTIATE,
}


def connection(port, user, password, host, mechanism, level):
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

    def call(_, stub):
        caller.call(0, stub)
        return caller.recv()

    return calls.answer_of(call)


if __name__ == "__main__":
    calls.make(connection)
