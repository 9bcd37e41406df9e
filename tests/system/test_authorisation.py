"""Who is let in: over TCP by NTLM accounts, over the local socket by the caller's user."""

import os
import pathlib
import subprocess
import sys
import unittest
import warnings

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

    def test_rights_that_are_taken_away_count_from_the_next_call_on(self):
        call = ("GetOwnerName", "<InputArguments />")
        self.server.add_account("former", administrator=True)
        client = self.connect(user="former")
        self.assertTrue(client.do_rpc(*call)[0])
        self.server.add_account("former")
        self.assertEqual(client.do_rpc(*call), (False, "", NOT_ADMINISTRATOR))
        self.server.add_account("former", administrator=True)
        self.assertTrue(client.do_rpc(*call)[0])
        for command, success in (("disable", False), ("enable", True), ("remove", False)):
            subprocess.run([PROGRAMS / "tarno-tape-account", "--file", self.server.folder / "accounts", command, "former"], check=True,
                           stdout=subprocess.DEVNULL)
            self.assertEqual(client.do_rpc(*call)[0], success, command)

    def test_disabled_account_is_not_let_in(self):
        self.server.add_account("resting", administrator=True)
        subprocess.run([PROGRAMS / "tarno-tape-account", "--file", self.server.folder / "accounts", "disable", "resting"], check=True,
                       stdout=subprocess.DEVNULL)
        with self.assertRaises((DCERPCException, ConnectionError, OSError)):
            self.connect(user="resting").do_rpc(FRAME_NAME, "<InputArguments />")
        self.assertIn("[\\resting] at [] was refused: the account is disabled.", self.server.log())

    def test_root_is_served_over_the_local_socket(self):
        done = self.server.console("call", "EnumLocks", owner=None)
        self.assertEqual((done.returncode, done.stdout), (0, "<OutputArguments><locks /></OutputArguments>\n"))

    @unittest.skipUnless(os.geteuid() == 0, "needs root to become somebody else")
    def test_other_user_is_refused_over_the_local_socket(self):
        self.server.folder.chmod(0o755)
        done = subprocess.run([PROGRAMS / "tarnoctl", "--socket", self.server.socket_path, "call", "GetOwnerName"], capture_output=True,
                              text=True, user=NOBODY, group=NOBODY, extra_groups=[], timeout=60, cwd="/")
        self.assertEqual((done.returncode, done.stdout), (4, ""))
        self.assertIn("RPC client is not a member of built-in Administrators group.", done.stderr)

    @unittest.skipUnless(os.geteuid() == 0, "needs root to have groups of its own for a process")
    def test_group_that_is_left_counts_no_more_at_the_next_call(self):
        if subprocess.run(["unshare", "--mount", "true"], capture_output=True).returncode != 0:
            self.skipTest("no mounts of one's own here")
        # The server sees the groups of this file in the place of the machine's, by a mount of its own.
        server = TapeServer(start=False, access={"AdministratorGroups": "tapers"})
        self.addCleanup(server.close)
        server.folder.chmod(0o755)
        groups = server.folder / "group"
        former = pathlib.Path("/etc/group").read_text(encoding="utf-8")
        groups.write_text(former + "tapers:x:64321:nobody\n", encoding="utf-8")
        server.start(namespace=("unshare", "--mount", "sh", "-c", f'mount --bind {groups} /etc/group && exec "$@"', "sh"))
        caller = subprocess.Popen([sys.executable, "-B", pathlib.Path(__file__).with_name("local_caller.py"), server.socket_path],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, user=NOBODY, group=NOBODY, extra_groups=[])
        self.addCleanup(caller.communicate)

        def answer():
            caller.stdin.write("call\n")
            caller.stdin.flush()
            return caller.stdout.readline().strip()

        self.assertEqual(answer(), "served")
        groups.write_text(former + "tapers:x:64321:\n", encoding="utf-8")
        self.assertEqual(answer(), "refused")
        groups.write_text(former + "tapers:x:64321:nobody\n", encoding="utf-8")
        self.assertEqual(answer(), "served")

    def test_strangers_do_not_fill_the_log(self):
        server = TapeServer()
        self.addCleanup(server.close)
        warnings.simplefilter("ignore", ResourceWarning)  # the library leaves the sockets of its failed clients to the collector
        for number in range(150):
            with self.assertRaises((DCERPCException, ConnectionError, OSError)):
                server.client(user=f"stranger{number}", owner=None).do_rpc(FRAME_NAME, "<InputArguments />")
        told = [line for line in server.log().splitlines() if "was refused" in line or "failed to authenticate" in line]
        self.assertLess(len(told), 90)
        self.assertIn("[\\stranger0] at [] was refused: there is no such account.", told[0] + told[1])
        self.assertEqual(sum("failed to authenticate" in line for line in told if "The same" not in line), 1, told)

    def test_console_over_tcp(self):
        words = ["--host", f"127.0.0.1:{self.server.port}", "--user", "operator", "call", "EnumLocks"]
        done = subprocess.run([PROGRAMS / "tarnoctl", *words], input=PASSWORD + "\n", capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (0, "<OutputArguments><locks /></OutputArguments>\n"), done.stderr)
        done = subprocess.run([PROGRAMS / "tarnoctl", *words], input="wrong\n", capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (4, ""), done.stderr)


if __name__ == "__main__":
    unittest.main()
