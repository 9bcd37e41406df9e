"""tarnoctl on a terminal: the password is asked for without echo, and an interrupt leaves the terminal as it was."""

import os
import sys
import time
import unittest

from tape_server import PASSWORD, PROGRAMS, ROOT, TapeServer

sys.path.insert(0, str(ROOT / "tests/rpc"))

from test_account_tool import SECONDS, Terminal  # noqa: E402  (the path is set above)

PROMPT = b"Password of 'operator': "


class ConsoleOnATerminal(unittest.TestCase):
    def start(self, port):
        return Terminal(PROGRAMS / "tarnoctl", "--host", f"127.0.0.1:{port}", "--user", "operator", "call", "EnumLocks")

    def test_asks_once_without_echo(self):
        server = TapeServer()
        self.addCleanup(server.close)
        terminal = self.start(server.port)
        terminal.expect(PROMPT)
        self.assertFalse(terminal.echoes())
        terminal.type(PASSWORD.encode() + b"\n")
        self.assertEqual(0, os.waitstatus_to_exitcode(terminal.finish()), terminal.text)
        self.assertIn(b"<OutputArguments><locks /></OutputArguments>", terminal.text)
        self.assertNotIn(PASSWORD.encode(), terminal.text)

    def test_an_interrupt_ends_it_and_gives_the_echo_back(self):
        terminal = self.start(1)
        terminal.expect(PROMPT)
        terminal.type(b"Corr\x03")
        limit = time.monotonic() + SECONDS
        while not terminal.echoes() and time.monotonic() < limit:
            terminal.read()
        self.assertTrue(terminal.echoes())
        self.assertEqual(-2, os.waitstatus_to_exitcode(terminal.finish()))

    def test_no_password_is_a_matter_of_usage(self):
        terminal = self.start(1)
        terminal.expect(PROMPT)
        terminal.type(b"\n")
        self.assertEqual(2, os.waitstatus_to_exitcode(terminal.finish()))
        self.assertIn(b"An empty password is not accepted.", terminal.text)


if __name__ == "__main__":
    unittest.main()
