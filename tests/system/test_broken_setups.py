"""What can be amiss when a server starts: it goes on where it can and says so, else it ends and says why."""

import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time
import unittest

from tape_server import PROGRAMS, TAPE_KEY, TapeServer


class Libraries(unittest.TestCase):
    def server(self, **options):
        server = TapeServer(start=False, **options)
        self.addCleanup(server.close)
        return server

    def changers(self, server):
        result = server.console("--json", "changers")
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout.count("TRNLIB0001")

    def test_missing_and_damaged_libraries_leave_the_others(self):
        server = self.server(libraries=("examples/library-24",) * 4)
        good, missing, damaged, stale = server.libraries
        shutil.rmtree(missing)
        (damaged / "library.xml").write_text("<library")
        (stale / "state.xml").write_text("garbage")
        server.start()
        for library, name in ((missing, "library.xml"), (damaged, "library.xml"), (stale, "state.xml")):
            sentence = f"WARN|A virtual library can't be used. Library file '{library / name}'"
            self.assertIn(sentence, server.log())
            self.assertIn(f"A virtual library can't be used. Library file '{library / name}'", server.errors())
        self.assertNotIn(str(good / "library.xml"), server.log())
        self.assertEqual(self.changers(server), 1)
        # What is put right is there at the next look, without a start.
        (stale / "state.xml").unlink()
        self.assertEqual(self.changers(server), 2)
        self.assertIn(f"The virtual library '{stale}' can be used now.", server.log())

    def test_a_library_that_another_server_has(self):
        first = self.server()
        first.start()
        self.assertEqual(self.changers(first), 1)
        second = self.server(libraries=())
        second.libraries = first.libraries
        second.write_settings({}, "")
        second.start()
        self.assertIn("state.xml.lock': the library is in use already, here or by another process", second.log())
        self.assertEqual(self.changers(second), 0)
        first.kill()  # a dead process holds nothing
        self.assertEqual(self.changers(second), 1)

    def test_a_portal_that_says_nothing_delays_the_first_look_only(self):
        with socket.socket() as silent:
            silent.bind(("127.0.0.1", 0))
            silent.listen(16)
            server = self.server(iscsi=f"iscsi://127.0.0.1:{silent.getsockname()[1]}/iqn.2015-06.local:nobody")
            server.start()
            self.assertEqual(self.changers(server), 1)
            begun = time.monotonic()
            self.assertEqual(self.changers(server), 1)
            self.assertLess(time.monotonic() - begun, 4)
            self.assertIn("can't be used: the log-in at", server.log())


class Ends(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tape-broken-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def run_server(self, *switches):
        command = [PROGRAMS / "TarnoTapeSvc", "-debug", *map(str, switches)]
        return subprocess.run(command, capture_output=True, text=True, timeout=60, cwd=self.folder, stdin=subprocess.DEVNULL,
                              env={name: value for name, value in os.environ.items() if name != "STATE_DIRECTORY"})

    def refuses(self, sentence, *switches):
        result = self.run_server(*switches)
        self.assertEqual(result.returncode, 2, result.stderr)
        self.assertEqual(result.stderr, f"TarnoTapeSvc: {sentence}\n")

    def settings(self, *lines):
        path = self.folder / "settings.reg"
        path.write_text("\n".join(["Windows Registry Editor Version 5.00", "", *lines, ""]))
        return path

    def test_settings_that_cannot_be_read(self):
        state = ("-state", self.folder / "state")
        absent = self.folder / "absent.reg"
        self.refuses(f"{absent}: There is no such file.", "-settings", absent, *state)
        self.refuses(f"{self.folder}: This is no file.", "-settings", self.folder, *state)
        path = self.settings(f"[{TAPE_KEY}]", '"Port"=dword:nonsense')
        self.refuses(f"{path}:4: Behind dword: stand one to eight hexadecimal digits.", "-settings", path, *state)
        self.refuses("The switch -settings needs a path behind it.", *state, "-settings")

    def test_values_that_cannot_be_used(self):
        state = ("-state", self.folder / "state")
        path = self.settings(f"[{TAPE_KEY}\\Devices]", '"ScsiGeneric"="yes"')
        self.refuses(f"{path}: The value SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices\\ScsiGeneric must be a DWORD.", "-settings", path,
                     *state)
        path = self.settings(f"[{TAPE_KEY}\\Devices]", '"Iscsi"="tape://user%secret@host"')
        self.refuses(f'{path}: iSCSI setting: entry [***@host]: "iscsi://" is expected at its start.', "-settings", path, *state)

    def test_a_state_folder_that_cannot_be_made(self):
        path = self.settings()
        where = self.folder / "no" / "such" / "folder"
        self.refuses(f"The state folder {where} can't be made: The system cannot find the path specified.", "-settings", path, "-state",
                     where)
        self.refuses(f"The state folder {path} is no folder.", "-settings", path, "-state", path)


class WithoutLog(unittest.TestCase):
    def test_a_log_that_cannot_be_opened_is_told(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        server.log_path = server.folder  # no file can have this name
        server.launch()
        server.wait_until_it_listens()
        deadline = time.monotonic() + 20
        while "log" not in server.errors() and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertIn("TarnoTapeSvc: The log file can't be opened, so that nothing is logged. The switch -log names another.",
                      server.errors())


if __name__ == "__main__":
    unittest.main()
