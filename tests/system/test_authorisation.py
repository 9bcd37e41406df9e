"""Who is let in: over TCP by NTLM accounts, over the local socket by the caller's user."""

import os
import subprocess
import unittest

from impacket.dcerpc.v5.rpcrt import DCERPCException

from tape_server import PASSWORD, PROGRAMS, TapeServer
from impacket_client import TapeClient

NOT_ADMINISTRATOR = "Access is denied.\nRPC client is not a member of built-in Administrators group.\n--tr:Error code: 0x80070005"
NO_CONTEXT = ("The binding does not contain any authentication information.\nAuth context not available\n--tr:Error code: 0x000006d2\n"
              "--tr:Failed to check whether RPC client is a member of the specified built-in group.")
FRAME_NAME = "IInvokeDispatcher.IsSerialInvokerEnabled"
NOBODY = 65534


class Authorisation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = TapeServer()
        cls.server.add_account("visitor")

    @classmethod
    def tearDownClass(cls):
        cls.server.close()

    def connect(self, **options):
        client = self.server.client(owner=None, **options)
        self.addCleanup(client.close)
        return client

    def test_administrator_is_served_at_each_level(self):
        # At packet level this client signs nothing, which no server may accept.
        for level in ("connect", "integrity", "privacy"):
            with self.subTest(level):
                self.assertTrue(self.connect(level=level).do_rpc(FRAME_NAME, "<InputArguments />")[0])

    def test_domain_of_the_client_is_not_looked_at(self):
        self.assertTrue(self.connect(domain="ELSEWHERE").do_rpc(FRAME_NAME, "<InputArguments />")[0])

    def test_other_account_is_refused_for_every_procedure(self):
        client = self.connect(user="visitor")
        for name in (FRAME_NAME, "GetOwnerName", "SetOwnerName", "GetChangers", "NoSuch", ""):
            with self.subTest(name):
                self.assertEqual(client.do_rpc(name, "<InputArguments />"), (False, "", NOT_ADMINISTRATOR))
        self.assertIn("rpc| ERR |RPC method call has failed ().", self.server.log())
        self.assertEqual(client.do_rpc("GetOwnerName", "no xml")[2], NOT_ADMINISTRATOR)

    def test_caller_without_authentication_is_refused(self):
        client = TapeClient("127.0.0.1", self.server.port)
        self.addCleanup(client.close)
        for name in ("GetOwnerName", FRAME_NAME, ""):
            self.assertEqual(client.do_rpc(name, "<InputArguments />"), (False, "", NO_CONTEXT))

    def test_wrong_password_and_unknown_account_get_nothing(self):
        for options in (dict(password="wrong"), dict(user="nobody-knows"), dict(user="", password="")):
            with self.subTest(options):
                with self.assertRaises((DCERPCException, ConnectionError, OSError)):
                    self.connect(**options).do_rpc(FRAME_NAME, "<InputArguments />")
        self.assertTrue(self.connect().do_rpc(FRAME_NAME, "<InputArguments />")[0])

    def test_account_added_while_running_is_served(self):
        self.server.add_account("late", administrator=True, password="another one")
        self.assertTrue(self.connect(user="late", password="another one").do_rpc(FRAME_NAME, "<InputArguments />")[0])

    def test_root_is_served_over_the_local_socket(self):
        done = self.server.console("call", "EnumLocks", owner=None)
        self.assertEqual((done.returncode, done.stdout), (0, "<OutputArguments><locks /></OutputArguments>\n"))

    @unittest.skipUnless(os.geteuid() == 0, "needs root to become somebody else")
    def test_other_user_is_refused_over_the_local_socket(self):
        self.server.folder.chmod(0o755)
        done = subprocess.run([PROGRAMS / "tarnoctl", "--socket", self.server.socket_path, "call", "GetOwnerName"], capture_output=True,
                              text=True, user=NOBODY, group=NOBODY, extra_groups=[], timeout=60, cwd="/")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("RPC client is not a member of built-in Administrators group.", done.stderr)

    def test_console_over_tcp(self):
        words = ["--host", f"127.0.0.1:{self.server.port}", "--user", "operator", "call", "EnumLocks"]
        done = subprocess.run([PROGRAMS / "tarnoctl", *words], input=PASSWORD + "\n", capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (0, "<OutputArguments><locks /></OutputArguments>\n"), done.stderr)
        done = subprocess.run([PROGRAMS / "tarnoctl", *words], input="wrong\n", capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (4, ""), done.stderr)


if __name__ == "__main__":
    unittest.main()
