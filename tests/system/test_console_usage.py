"""tarnoctl as somebody uses it who makes mistakes: what it says, on which stream, and with which exit status. And its completion."""

import json
import os
import signal
import subprocess
import time
import unittest

from tape_server import PASSWORD, PROGRAMS, ROOT, TapeServer

CHANGER = "\\\\.\\Changer0"


class CommandLines(unittest.TestCase):
    """What is refused before anybody is asked: there is no server."""

    def run_console(self, *words, **options):
        return subprocess.run([PROGRAMS / "tarnoctl", *words], capture_output=True, text=True, timeout=60, stdin=subprocess.DEVNULL, **options)

    def test_lines_that_make_no_sense(self):
        for line, text in (
            ("", "A command is wanted."),
            ("steal", "There is no command 'steal'."),
            ("--bogus", "There is no option '--bogus'."),
            ("load 3", "drive is required"),
            ("load x 0", "slot: 'x' is no number from 0 to 65535."),
            ("load -1 0", "slot: '-1' is no number from 0 to 65535."),
            ("unload 0 4294967297", "slot: '4294967297' is no number from 0 to 65535."),
            ("task 4294967296", "number: '4294967296' is no number from 0 to 4294967295."),
            ("--timeout 0 changers", "--timeout: '0' is no number from 1 to 31622400."),
            ("inventory Changer0 Changer1", "The following argument was not expected: Changer1"),
        ):
            with self.subTest(line):
                done = self.run_console(*line.split())
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                first, second = done.stderr.splitlines()
                self.assertEqual(first, "tarnoctl: " + text)
                self.assertRegex(second, r"^'tarnoctl ([a-z-]+ )?--help' says more\.$")

    def test_options_that_do_not_go_together(self):
        for line, text in (
            ("--user anna changers", "--user is for --host: over the local socket the system tells who calls."),
            ("--password-file f changers", "--password-file is for --host: over the local socket the system tells who calls."),
            ("--host h --socket s changers", "A server is reached by --host or by --socket, not by both."),
            ("--host h:70000 changers", "'70000' is no port."),
            ("--host h --authentication ntlm changers", "NTLM needs a user."),
        ):
            with self.subTest(line):
                done = self.run_console(*line.split())
                self.assertEqual((done.returncode, done.stdout, done.stderr), (2, "", f"tarnoctl: {text}\n"))
        done = self.run_console("--host", "", "changers")
        self.assertEqual((done.returncode, done.stderr), (2, "tarnoctl: --host needs the name of a server.\n"))

    def test_a_server_that_is_not_there(self):
        done = self.run_console("--socket", "/nowhere/socket", "changers")
        self.assertEqual((done.returncode, done.stderr),
                         (3, "tarnoctl: The server can't be reached: Cannot connect to /nowhere/socket: No such file or directory.\n"))

    def test_passwords_that_cannot_be_read(self):
        words = ("--host", "127.0.0.1:1", "--user", "operator", "--password-file")
        done = self.run_console(*words, "/nowhere/password", "changers")
        self.assertEqual((done.returncode, done.stderr),
                         (2, "tarnoctl: The password can't be read from '/nowhere/password': No such file or directory.\n"))
        done = self.run_console(*words, "/dev/null", "changers")
        self.assertEqual((done.returncode, done.stderr), (2, "tarnoctl: The password can't be read from '/dev/null': its first line is empty.\n"))


class Mistakes(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = TapeServer()
        cls.addClassCleanup(cls.server.close)
        client = cls.server.client()
        client.call("GetOwnerName")  # answered: the local socket is there, too
        client.close()

    def refused(self, status, *words, owner="CONSOLE"):
        done = self.server.console(*words, owner=owner)
        self.assertEqual((done.returncode, done.stdout), (status, ""), done.stderr)
        return done.stderr

    def test_moves_that_cannot_be_are_refused_at_once(self):
        slots = sum(row["element"].startswith("slot:")
                    for row in json.loads(self.server.console("--json", "inventory", "--all").stdout)["elements"])
        before = self.server.log().count("[SoapEnter]")
        self.assertEqual(self.refused(2, "load", str(slots), "0"),
                         f"tarnoctl: The changer {CHANGER} has no slot:{slots}: its slots are slot:0 to slot:{slots - 1}.\n")
        self.assertEqual(self.refused(2, "move", "slot:1", "s1"), "tarnoctl: slot:1 can't be moved to itself.\n")
        self.assertEqual(self.refused(2, "move", "drive:0", "drive:1"), "tarnoctl: The server can't move a cartridge from a drive to a drive.\n")
        self.assertEqual(self.server.log().count("[SoapEnter]"), before + 3, "only the changers were asked for")

    def test_a_device_that_is_not_there_has_no_alerts_to_be_glad_of(self):
        self.assertIn("No alerts were told, but the device can't be asked: ", self.refused(1, "alerts", "Tape77"))
        self.assertIn("No alerts were told, but the device can't be asked: ", self.refused(1, "alerts", "\\\\.\\Changer77"))
        for device in ("Tape0", "Changer0"):
            self.assertEqual(self.server.console("alerts", device).stdout, "No alerts.\n")

    def test_another_owner_hears_what_to_do(self):
        self.assertEqual(self.server.console("owner", "CONSOLE").stdout, "The owner is CONSOLE.\n")
        text = self.refused(1, "changers", owner="OTHER")
        self.assertIn("'OTHER' isn't current owner. You have to change current owner\n'tarnoctl owner' shows the owner.", text)
        self.assertIn("The new owner needs a name.", self.refused(2, "owner", ""))

    def test_an_interrupt_says_that_the_move_goes_on(self):
        faults = self.server.libraries[0] / "faults.xml"
        faults.write_text('<faults><fault kind="slow-robot" milliseconds="1500" times="1"/></faults>', encoding="utf-8")
        self.addCleanup(faults.unlink)
        full = next(row["element"] for row in json.loads(self.server.console("--json", "inventory").stdout)["elements"] if row["full"])
        words = [PROGRAMS / "tarnoctl", "--socket", self.server.socket_path, "--owner", "CONSOLE", "load", full.removeprefix("slot:"), "0"]
        console = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        deadline = time.monotonic() + 60
        while "Begin to move tape." not in self.server.log() and time.monotonic() < deadline:
            time.sleep(0.02)
        console.send_signal(signal.SIGINT)
        output, errors = console.communicate(timeout=60)
        self.assertEqual((console.returncode, output), (-signal.SIGINT, ""))
        self.assertEqual(errors, "tarnoctl: A move that the server has begun goes on; 'tarnoctl inventory' shows what came of it.\n")
        # The changer's turn comes when the move is done.
        rows = {row["element"]: row for row in json.loads(self.server.console("--json", "inventory").stdout)["elements"]}
        self.assertEqual((rows["drive:0"]["full"], rows[full]["full"]), (True, False))

    def test_a_task_that_is_unknown(self):
        self.assertIn("There is no task with id = 7\n", self.refused(1, "task", "7"))

    def test_who_is_not_let_in_hears_so_and_stands_in_the_log(self):
        self.server.add_account("guest")
        words = [PROGRAMS / "tarnoctl", "--host", f"127.0.0.1:{self.server.port}", "--user", "guest", "changers"]
        done = subprocess.run(words, input=PASSWORD + "\n", capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (4, ""))
        self.assertIn("RPC client is not a member of built-in Administrators group.", done.stderr)
        lines = self.server.log().splitlines()
        refusal = max(i for i, line in enumerate(lines) if "RPC method call has failed ()." in line)
        self.assertRegex(lines[refusal - 1], r"This thread serves \[[^]]*\\guest\] at \[127\.0\.0\.1\]\.$")
        self.assertEqual(lines[refusal - 1][:32], lines[refusal][:32], "of the same thread")
        done = subprocess.run(words, input="wrong\n", capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, 4)
        self.assertIn("the authentication failed. The server's log says why.", done.stderr)

    @unittest.skipUnless(os.geteuid() == 0, "the name of the caller is looked for")
    def test_the_log_tells_who_calls_over_the_local_socket(self):
        self.server.console("owner")
        self.assertIn("rpc| This thread serves [root] on this machine.", self.server.log())


class Completion(unittest.TestCase):
    SCRIPT = ROOT / "packaging/completion/tarnoctl.bash"

    def complete(self, *words):
        code = 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMPREPLY=(); _tarnoctl; printf "%s\\n" "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "-c", code, self.SCRIPT, "tarnoctl", *words], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def test_words_in_their_places(self):
        self.assertEqual(self.complete("lo"), ["load"])
        self.assertEqual(self.complete("--host", "erase", ":", "6166", "--json", "inv"), ["inventory"])
        self.assertEqual(self.complete("move", "s"), ["slot:"])
        self.assertEqual(self.complete("erase", "--yes", ""), ["Tape0"])
        self.assertEqual(self.complete("prepare", "Tape0", "un"), ["unload", "unlock"])
        self.assertEqual(self.complete("--authentication", "k"), ["kerberos"])
        self.assertEqual(self.complete("task", "--w"), ["--wait"])

    def test_it_knows_every_command_and_every_option(self):
        text = subprocess.run([PROGRAMS / "tarnoctl", "--help"], capture_output=True, text=True, check=True, timeout=60).stdout
        commands = {line.split()[0] for line in text.split("Subcommands:\n")[1].split("\n\n")[0].splitlines()}
        self.assertEqual(set(self.complete("")), commands)
        options = {word.split(",")[-1] for line in text.splitlines() if line.startswith("  -") for word in [line.split()[0]]}
        self.assertEqual(set(self.complete("-")), options)

    def test_it_knows_every_procedure(self):
        rows = (ROOT / "docs/procedures.md").read_text(encoding="utf-8").splitlines()
        cells = [cell for row in rows if row.startswith("| `") for cell in row.split("|")[1:3]]
        known = {word for cell in cells for word in cell.replace("`", " ").replace(",", " ").split() if word[:1].isupper()}
        offered = set(self.complete("call", ""))
        self.assertFalse(offered - known - {"GetDrivesStatusesByScsi"})
        self.assertIn("LoadMediumByScsi", offered)


if __name__ == "__main__":
    unittest.main()
