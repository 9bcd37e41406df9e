#!/usr/bin/python3
"""Calls of Samba's client library to the server that the test program runs, as `calls.py` describes them.

Mechanisms: ntlm, kerberos, negotiate-ntlm, negotiate-kerberos, negotiate-both (the client prefers Kerberos, which it gets a
ticket for by itself), none. Kerberos alone takes its tickets from the cache that KRB5CCNAME names.
"""

import os

import calls
from samba import credentials, param
from samba.dcerpc import echo

LEVELS = {2: "connect", 4: "packet", 5: "sign", 6: "seal"}
MECHANISMS = {"ntlm": ["ntlm"], "kerberos": ["krb5"], "negotiate-ntlm": ["spnego"], "negotiate-kerberos": ["spnego"],
              "negotiate-both": ["spnego"], "none": []}


def settings():
    made = param.LoadParm()
    made.set("realm", "TARNO.TEST")
    made.set("workgroup", "TARNO")
    made.set("netbios name", "CLIENT")
    for name in ("private dir", "state directory", "cache directory", "lock directory", "pid directory"):
        made.set(name, os.path.dirname(os.environ["KRB5_CONFIG"]) + "/samba")
    return made


def connection(port, user, password, host, mechanism, level):
    known = settings()
    identity = credentials.Credentials()
    identity.guess(known)
    if "kerberos" in mechanism:
        identity.set_kerberos_state(credentials.MUST_USE_KERBEROS)
        identity.set_named_ccache(os.environ["KRB5CCNAME"], credentials.SPECIFIED, known)
    elif mechanism == "none":
        identity.set_anonymous()
    else:
        both = mechanism == "negotiate-both"
        identity.set_kerberos_state(credentials.AUTO_USE_KERBEROS if both else credentials.DONT_USE_KERBEROS)
        identity.set_username(user)
        identity.set_password(password)
        identity.set_domain("CORP")
        identity.set_realm("TARNO.TEST")
    options = [port] + MECHANISMS[mechanism]
    if mechanism != "none":
        options += [LEVELS[level], "target_hostname=" + host]
    binding = "ncacn_ip_tcp:127.0.0.1[%s]" % ",".join(options)
    # Only an interface that the library knows can be bound with authentication: the server offers its operation by this one, too.
    caller = echo.rpcecho(binding, known, identity)
    # A second presentation context on the same connection: after NTLM, the library's alter_context repeats its last token. After
    # Kerberos alone, it sends memory there that it has freed: no server could take that.
    second = caller if mechanism == "kerberos" else echo.rpcecho(binding, known, identity, basis_connection=caller)
    return calls.answer_of(lambda number, stub: (caller if number % 2 == 0 else second).request(0, stub))


if __name__ == "__main__":
    os.makedirs(os.path.dirname(os.environ["KRB5_CONFIG"]) + "/samba", exist_ok=True)
    calls.make(connection)
