"""The account tool as a person and as a script use it.

The program is that of the build folder named by TARNO_PROGRAMS (src/programs of a build).
"""

import os
import pathlib
import pty
import stat
import subprocess
import tempfile
import termios
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PROGRAMS = pathlib.Path(os.environ.get("TARNO_PROGRAMS", ROOT / "build/linux-debug/src/programs"))
TOOL = PROGRAMS / "tarno-tape-account"
HASH_OF_PASSWORD = "a4f49c406510bdcab6824ee7c30fd852"
SECONDS = 20


class AccountTool(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="tape-account-")
        self.addCleanup(self.folder.cleanup)
        self.file = pathlib.Path(self.folder.name) / "accounts"

    def run_tool(self, *arguments, password="", file=True):
        command = [TOOL] + (["--file", self.file] if file else []) + list(arguments)
        return subprocess.run(command, input=password.encode(), capture_output=True, timeout=SECONDS)

    def succeed(self, *arguments, password=""):
        done = self.run_tool(*arguments, password=password)
        self.assertEqual((0, b""), (done.returncode, done.stderr))
        return done.stdout.decode()

    def fail_with(self, code, *arguments, password=""):
        done = self.run_tool(*arguments, password=password)
        self.assertEqual(code, done.returncode, done)
        return done.stderr.decode()

    def lines(self):
        return [line for line in self.file.read_text().splitlines() if not line.startswith("#")]

    def test_adds_lists_changes_and_removes(self):
        self.assertEqual("Added account 'Anna', administrator.\n",
                         self.succeed("add", "--administrator", "Anna", password="Password\n"))
        self.assertEqual("Added account 'bob'.\n", self.succeed("add", "bob", password="other"))
        self.assertEqual(["tarno-tape-accounts 1", "Anna:administrator:" + HASH_OF_PASSWORD], self.lines()[:2])
        self.assertEqual(0o600, stat.S_IMODE(self.file.stat().st_mode))
        self.assertEqual("Anna\tadministrator\nbob\n", self.succeed("list"))
        self.assertEqual("Changed account 'ANNA'.\n", self.succeed("add", "ANNA", password="Password\r\n"))
        self.assertIn("ANNA::" + HASH_OF_PASSWORD, self.lines())
        self.assertEqual("Removed account 'anna'.\n", self.succeed("remove", "anna"))
        self.assertEqual("bob\n", self.succeed("list"))

    def test_disabling_keeps_password_and_rights(self):
        self.succeed("add", "--administrator", "Anna", password="Password\n")
        self.assertEqual("Disabled account 'Anna'.\n", self.succeed("disable", "ANNA"))
        self.assertEqual("Anna\tadministrator\tdisabled\n", self.succeed("list"))
        self.assertIn("Anna:administrator,disabled:" + HASH_OF_PASSWORD, self.lines())
        self.assertEqual("Disabled account 'Anna'.\n", self.succeed("disable", "Anna"))
        self.assertEqual("Enabled account 'Anna'.\n", self.succeed("enable", "anna"))
        self.assertIn("Anna:administrator:" + HASH_OF_PASSWORD, self.lines())

    def test_option_of_the_file_may_stand_behind_the_command(self):
        done = self.run_tool("add", "Anna", "--file", str(self.file), password="Password\n", file=False)
        self.assertEqual(0, done.returncode, done.stderr)
        self.assertEqual("Anna\n", self.succeed("list"))

    def test_only_the_first_line_is_the_password_with_its_blanks(self):
        self.succeed("add", "a", password=" x \nsecond line\n")
        self.succeed("add", "b", password=" x ")
        hashes = [line.split(":")[2] for line in self.lines()[1:]]
        self.assertEqual(hashes[0], hashes[1])

    def test_refused_passwords_change_nothing(self):
        for password, reason in (("", "An empty password is not accepted."), ("\n", "An empty password is not accepted."),
                                 ("x" * 1025, "The password is longer than 1024 bytes.")):
            self.assertEqual(f"tarno-tape-account: {reason}\n", self.fail_with(1, "add", "Anna", password=password))
        done = subprocess.run([TOOL, "--file", self.file, "add", "Anna"], input=b"\xff\n", capture_output=True, timeout=SECONDS)
        self.assertEqual((1, b"tarno-tape-account: The password is no well-formed UTF-8.\n"), (done.returncode, done.stderr))
        self.assertFalse(self.file.exists())

    def test_what_is_not_there_is_a_failure(self):
        self.assertEqual(f"tarno-tape-account: Cannot open the accounts file '{self.file}': No such file or directory.\n",
                         self.fail_with(1, "list"))
        self.assertEqual(f"tarno-tape-account: There is no account 'Anna' in '{self.file}'.\n", self.fail_with(1, "remove", "Anna"))
        for command in ("disable", "enable"):
            self.assertEqual(f"tarno-tape-account: There is no account 'Anna' in '{self.file}'.\n", self.fail_with(1, command, "Anna"))
        self.file = self.file / "below"
        self.assertIn("Cannot open the lock file", self.fail_with(1, "add", "Anna", password="x\n"))

    def test_wrong_usage(self):
        for arguments in ([], ["add"], ["remove"], ["rename", "a"], ["disable"], ["enable", "a", "b"], ["add", "a", "b"], ["list", "a"], ["remove", "--administrator", "a"]):
            self.assertNotEqual("", self.fail_with(2, *arguments), arguments)
        self.assertEqual(self.fail_with(2, "rename"), "tarno-tape-account: There is no command 'rename'.\n'tarno-tape-account --help' says more.\n")
        for name in ("a:b", "DOMAIN\\a", "a@b", "", " a", "x" * 105):
            self.assertIn("can't be an account's name", self.fail_with(2, "add", name, password="x\n"))

    def test_help_is_no_failure(self):
        self.assertIn("NTLM accounts", self.run_tool("--help", file=False).stdout.decode())
        self.assertEqual(0, self.run_tool("add", "--help", file=False).returncode)

    def test_an_open_file_is_warned_of_and_closed_by_the_next_change(self):
        self.succeed("add", "Anna", password="x\n")
        self.file.chmod(0o644)
        done = self.run_tool("list")
        self.assertEqual((0, b"Anna\n"), (done.returncode, done.stdout))
        self.assertIn(b"has to have mode 0600", done.stderr)
        self.succeed("add", "bob", password="x\n")
        self.assertEqual(0o600, stat.S_IMODE(self.file.stat().st_mode))

    def test_a_file_of_something_else_is_left_alone(self):
        self.file.write_text("root:x:0\n")
        self.assertIn("line 1: this is no accounts file", self.fail_with(1, "add", "Anna", password="x\n"))
        self.assertEqual("root:x:0\n", self.file.read_text())

    def test_editors_at_the_same_time_lose_nothing(self):
        running = []
        for number in range(8):
            process = subprocess.Popen([TOOL, "--file", self.file, "add", f"user{number}"], stdin=subprocess.PIPE,
                                       stdout=subprocess.DEVNULL)
            process.stdin.write(b"x\n")
            process.stdin.close()
            running.append(process)
        self.assertEqual([0] * 8, [process.wait(timeout=SECONDS) for process in running])
        self.assertEqual([f"user{number}" for number in range(8)], self.succeed("list").split())


class Terminal:
    """The tool on a terminal of its own."""

    def __init__(self, *command):
        self.text = b""
        self.process, self.end = pty.fork()
        if self.process == 0:
            os.execv(command[0], [os.fspath(word) for word in command])

    def expect(self, text):
        limit = time.monotonic() + SECONDS
        while text not in self.text and time.monotonic() < limit:
            self.text += self.read()
        if text not in self.text:
            raise AssertionError(f"no {text!r} in {self.text!r}")

    def read(self):
        try:
            return os.read(self.end, 4096)
        except OSError:  # the tool has ended
            return b""

    def type(self, text):
        os.write(self.end, text)

    def echoes(self):
        return bool(termios.tcgetattr(self.end)[3] & termios.ECHO)

    def finish(self):
        while part := self.read():
            self.text += part
        _, status = os.waitpid(self.process, 0)
        os.close(self.end)
        return status


class AccountToolOnATerminal(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(prefix="tape-account-")
        self.addCleanup(self.folder.cleanup)
        self.file = pathlib.Path(self.folder.name) / "accounts"
        self.terminal = Terminal(TOOL, "--file", self.file, "add", "Anna")

    def test_asks_twice_without_echo(self):
        self.terminal.expect(b"New password of 'Anna': ")
        self.assertFalse(self.terminal.echoes())
        self.terminal.type(b"Password\n")
        self.terminal.expect(b"The same again: ")
        self.terminal.type(b"Password\n")
        self.assertEqual(0, os.waitstatus_to_exitcode(self.terminal.finish()))
        self.assertIn(b"Added account 'Anna'.", self.terminal.text)
        self.assertNotIn(b"Password", self.terminal.text)
        self.assertIn("Anna::" + HASH_OF_PASSWORD, self.file.read_text())

    def test_different_passwords_are_refused(self):
        self.terminal.expect(b"New password of 'Anna': ")
        self.terminal.type(b"one\n")
        self.terminal.expect(b"The same again: ")
        self.terminal.type(b"two\n")
        self.assertEqual(1, os.waitstatus_to_exitcode(self.terminal.finish()))
        self.assertIn(b"The two passwords differ.", self.terminal.text)
        self.assertFalse(self.file.exists())

    def test_an_interrupt_ends_it_and_gives_the_echo_back(self):
        self.terminal.expect(b"New password of 'Anna': ")
        self.terminal.type(b"Pass\x03")
        limit = time.monotonic() + SECONDS
        while not self.terminal.echoes() and time.monotonic() < limit:
            self.terminal.read()
        self.assertTrue(self.terminal.echoes())
        self.assertEqual(-2, os.waitstatus_to_exitcode(self.terminal.finish()))
        self.assertFalse(self.file.exists())


if __name__ == "__main__":
    unittest.main()
