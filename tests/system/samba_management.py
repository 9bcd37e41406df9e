"""Asks the management interface of a server whether it listens, by Samba's own client library.

    samba_management.py PORT USER PASSWORD HOST REALM FOLDER MECHANISM:LEVEL...

Prints for each wish a line "MECHANISM:LEVEL ANSWER": "works", or why not. Samba's library can bind with authentication only to
interfaces that it knows; this one is served beside the tape server's own, by the same rules of the wire.
"""

import os
import signal
import sys

from samba import credentials, param
from samba.dcerpc import mgmt

LEVELS = {"connect": "connect", "packet": "packet", "integrity": "sign", "privacy": "seal"}
MECHANISMS = {"ntlm": "ntlm", "kerberos": "krb5", "negotiate-ntlm": "spnego", "negotiate-kerberos": "spnego"}


def call(port, user, password, host, realm, folder, mechanism, level):
    known = param.LoadParm()
    known.set("realm", realm)
    for name in ("private dir", "state directory", "cache directory", "lock directory", "pid directory"):
        known.set(name, folder)
    identity = credentials.Credentials()
    identity.guess(known)
    options = [port]
    if mechanism == "none":
        identity.set_anonymous()
    else:
        options += [MECHANISMS[mechanism], LEVELS[level], "target_hostname=" + host]
    if "kerberos" in mechanism:
        identity.set_kerberos_state(credentials.MUST_USE_KERBEROS)
        identity.set_named_ccache(os.environ["KRB5CCNAME"], credentials.SPECIFIED, known)
    elif mechanism != "none":
        identity.set_kerberos_state(credentials.DONT_USE_KERBEROS)
        identity.set_username(user)
        identity.set_password(password)
        identity.set_domain("CORP")
    caller = mgmt.mgmt("ncacn_ip_tcp:127.0.0.1[%s]" % ",".join(options), known, identity)
    for _ in range(3):
        _, listening = caller.is_server_listening()
        if listening != 1:
            return "answered %r" % listening
    return "works"


def main():
    signal.alarm(120)
    for wish in sys.argv[7:]:
        try:
            answer = call(*sys.argv[1:7], *wish.split(":"))
        except Exception as error:  # whatever it is, it is the answer
            answer = "%s: %s" % (type(error).__name__, " ".join(str(error).split()))
        print(wish, answer, flush=True)


if __name__ == "__main__":
    main()
