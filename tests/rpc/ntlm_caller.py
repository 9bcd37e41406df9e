#!/usr/bin/python3
"""One call with NTLM as impacket makes it, to the server that the test program runs.

    ntlm_caller.py PORT LEVEL DOMAIN USER PASSWORD SIZE

Sends SIZE bytes, which come back in reverse order behind the caller's name; prints that name, or why the server refused.
"""

import sys

from impacket.dcerpc.v5 import rpcrt, transport
from impacket.uuid import uuidtup_to_bin

INTERFACE = uuidtup_to_bin(("d1c2c07a-d989-48cc-a423-b73ecd518d40", "1.0"))
SECONDS = 20


def main():
    port, level, domain, user, password, size = sys.argv[1:7]
    channel = transport.DCERPCTransportFactory(f"ncacn_ip_tcp:127.0.0.1[{port}]")
    channel.set_connect_timeout(SECONDS)
    channel.set_credentials(user, password, domain)
    caller = channel.get_dce_rpc()
    caller.set_auth_type(rpcrt.RPC_C_AUTHN_WINNT)
    caller.set_auth_level(int(level))
    caller.connect()
    channel.get_socket().settimeout(SECONDS)
    stub = bytes(index % 251 for index in range(int(size)))
    try:
        caller.bind(INTERFACE)
        caller.call(0, stub)
        answer = caller.recv()
    except rpcrt.DCERPCException as error:
        print(f"refused {error}")
        return
    name, _, rest = answer.partition(b"\n")
    print(name.decode() if rest == stub[::-1] else "spoilt")


if __name__ == "__main__":
    main()
