"""Which client is served by which mechanism at which level, by the real server: a table, and each of its cells checked.

A cell says "works", or why not; reasons other than that lie in the client, and are named here one by one.
"""

import os
import pathlib
import subprocess
import sys
import unittest
from unittest import mock

from impacket.dcerpc.v5 import rpcrt, transport

from kerberos_realm import REALM, KerberosRealm, available
from tape_server import PASSWORD, PROGRAMS, TapeServer
from impacket_client import INTERFACE, DoRpc, DoRpcResponse, InvokerTestConnection, TapeClient

HOST = "server.tarno.test"
SERVICE = "TarnoTapeSvc/" + HOST
FRAME_NAME = "IInvokeDispatcher.IsSerialInvokerEnabled"
LEVELS = ("connect", "packet", "integrity", "privacy")
MECHANISMS = ("ntlm", "negotiate-ntlm", "kerberos", "negotiate-kerberos")

NOT_IN_CLIENT = "not in the client"
#: impacket protects nothing at level packet, so that its requests come unsigned over an association that promised signatures.
SIGNS_NOTHING = "DCERPCException: rpc_s_access_denied"
#: impacket's own code stumbles when it is to sign by Kerberos.
CANNOT_SIGN = "TypeError: can't concat str to bytes"
PRIVACY_ONLY = "not in the client: it always asks for privacy"

EXPECTED = {
    "impacket": {
        "ntlm": ("works", SIGNS_NOTHING, "works", "works"),
        "negotiate-ntlm": (NOT_IN_CLIENT,) * 4,
        "kerberos": (NOT_IN_CLIENT,) * 4,
        "negotiate-kerberos": ("works", SIGNS_NOTHING, CANNOT_SIGN, "works"),
        "none": ("works",),
        "local socket": (NOT_IN_CLIENT,),
    },
    "samba": {
        **{mechanism: ("works",) * 4 for mechanism in MECHANISMS},
        "none": ("works",),
        "local socket": (NOT_IN_CLIENT,),
    },
    "tarnoctl": {
        **{mechanism: (PRIVACY_ONLY,) * 3 + ("works",) for mechanism in MECHANISMS},
        "none": (NOT_IN_CLIENT,),
        "local socket": ("works",),
    },
}


def has_samba():
    return subprocess.run(["/usr/bin/python3", "-c", "import samba.dcerpc.mgmt"], capture_output=True).returncode == 0


@unittest.skipUnless(available(), "the packages krb5-kdc, krb5-admin-server and krb5-user are not installed")
class Matrix(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.realm = KerberosRealm(["anna"], [SERVICE, "host/" + HOST])
        cls.addClassCleanup(cls.realm.close)
        environment = mock.patch.dict(os.environ, cls.realm.environment)
        environment.start()
        cls.addClassCleanup(environment.stop)
        cls.realm.log_in("anna")
        cls.realm.run("/usr/bin/kvno", "host/" + HOST)  # impacket would look for a KDC on the usual port only
        cls.server = TapeServer(access={"Keytab": str(cls.realm.keytab), "AdministratorPrincipals": "anna@" + REALM})
        cls.addClassCleanup(cls.server.close)

    def check(self, client, found):
        for mechanism, cells in found.items():
            for level, cell in zip(LEVELS, cells):
                print(f"| {client:8} | {mechanism:18} | {level if len(cells) > 1 else '':9} | {cell}", flush=True)
        self.assertEqual(found, EXPECTED[client])

    def served(self, dce):
        """Whether an administrator's call goes through, a second time, too."""
        for _ in range(2):
            request = DoRpc()
            request["procedure"] = FRAME_NAME + "\0"
            request["input"] = "<InputArguments />\0"
            dce.call(0, request)
            reply = DoRpcResponse(dce.recv())
            if reply["ret"]["success"] != 1:
                return "refused by the procedure"
        return "works"

    def impacket(self, mechanism, level):
        if mechanism == "ntlm":
            client = self.server.client(level=level)
            self.addCleanup(client.close)
            return self.served(client.dce)
        channel = transport.DCERPCTransportFactory(f"ncacn_ip_tcp:127.0.0.1[{self.server.port}]")
        channel.set_credentials("anna", "anna", REALM)
        channel.set_kerberos(True, "127.0.0.1")
        channel.setRemoteName(HOST)
        channel.set_connect_timeout(20)
        dce = channel.get_dce_rpc()
        dce.set_auth_type(rpcrt.RPC_C_AUTHN_GSS_NEGOTIATE)
        dce.set_auth_level(TapeClient.LEVELS[level])
        dce.connect()
        self.addCleanup(dce.disconnect)
        channel.get_socket().settimeout(20)
        dce.bind(INTERFACE)
        return self.served(dce)

    def test_impacket(self):
        def cell(mechanism, level):
            try:
                return self.impacket(mechanism, level)
            except Exception as error:  # whatever it is, it is the answer
                return f"{type(error).__name__}: {error}"

        found = {mechanism: tuple(cell(mechanism, level) for level in LEVELS) for mechanism in ("ntlm", "negotiate-kerberos")}
        found["negotiate-ntlm"] = found["kerberos"] = (NOT_IN_CLIENT,) * 4
        anybody = TapeClient("127.0.0.1", self.server.port)
        self.addCleanup(anybody.close)
        test = InvokerTestConnection()
        test["text"] = "hello\0"
        self.assertEqual(anybody.dce.request(test, checkError=False)["ret"]["success"], 1)
        self.assertIn("Auth context not available", anybody.do_rpc(FRAME_NAME, "<InputArguments />")[2])
        found["none"] = ("works",)
        found["local socket"] = (NOT_IN_CLIENT,)
        self.check("impacket", found)

    @unittest.skipUnless(has_samba(), "the package python3-samba is not installed")
    def test_samba(self):
        wishes = [f"{mechanism}:{level}" for mechanism in MECHANISMS for level in LEVELS] + ["none:connect"]
        folder = self.realm.folder / "samba"
        folder.mkdir()
        script = pathlib.Path(__file__).with_name("samba_management.py")
        done = subprocess.run(["/usr/bin/python3", "-B", script, str(self.server.port), "operator", PASSWORD, HOST, REALM, folder, *wishes],
                              capture_output=True, text=True, timeout=180)
        answers = dict(line.split(" ", 1) for line in done.stdout.splitlines() if line.partition(" ")[0] in wishes)
        self.assertEqual(set(answers), set(wishes), done.stderr)
        found = {mechanism: tuple(answers[f"{mechanism}:{level}"] for level in LEVELS) for mechanism in MECHANISMS}
        found["none"] = (answers["none:connect"],)
        found["local socket"] = (NOT_IN_CLIENT,)
        self.check("samba", found)

    def console(self, *options):
        words = ["--host", f"127.0.0.1:{self.server.port}", *options, "call", "EnumLocks"]
        done = subprocess.run([PROGRAMS / "tarnoctl", *words], input=PASSWORD + "\n", capture_output=True, text=True, timeout=60)
        return "works" if done.returncode == 0 else done.stderr

    def test_console(self):
        ways = {"ntlm": ("--user", "operator", "--authentication", "ntlm"),
                "negotiate-ntlm": ("--user", "operator", "--authentication", "negotiate"),
                "kerberos": ("--service", SERVICE, "--authentication", "kerberos"),
                "negotiate-kerberos": ("--service", SERVICE, "--authentication", "negotiate")}
        found = {mechanism: (PRIVACY_ONLY,) * 3 + (self.console(*options),) for mechanism, options in ways.items()}
        found["none"] = (NOT_IN_CLIENT,)
        done = self.server.console("call", "EnumLocks")
        found["local socket"] = ("works" if done.returncode == 0 else done.stderr,)
        self.check("tarnoctl", found)


if __name__ == "__main__":
    if not has_samba():
        print("Samba's client is left out: python3-samba is not installed.", file=sys.stderr)
    unittest.main()
