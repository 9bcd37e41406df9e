"""A server that crashes says why in its log, leaves a dump beside it, and ends by the signal that it got."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from service_manager import ManagedServer
from tape_server import PROGRAMS, ROOT, TAPE_KEY, TapeServer

# A sanitizer would take the signals for itself, and has stacks for them that its own code fills up.
PLAIN_SIGNALS = ":".join(f"handle_{name}=0" for name in ("segv", "sigbus", "sigfpe", "sigill", "abort")) + ":use_sigaltstack=0"


def setUpModule():
    for name in ("ASAN_OPTIONS", "TSAN_OPTIONS"):
        os.environ[name] = ":".join(filter(None, (os.environ.get(name), PLAIN_SIGNALS)))


class Crash(unittest.TestCase):
    def setUp(self):
        self.server = TapeServer()
        self.addCleanup(self.server.close)

    def wait_until_it_serves(self):
        """It listens before its start is through; from then on nothing but calls is logged."""
        deadline = time.monotonic() + 30
        while (console := self.server.console("changers")).returncode != 0:
            self.assertLess(time.monotonic(), deadline, console.stderr)
            time.sleep(0.02)

    def crash(self, number):
        """Ends the server by the signal; what it has logged since, without stamps."""
        self.wait_until_it_serves()
        before = len(self.server.log())
        self.server.process.send_signal(number)
        self.assertEqual(self.server.process.wait(60), -number)
        return re.sub(r"(?m)^.*?> ", "", self.server.log()[before:])

    def dump(self, number):
        return self.server.folder / f"TAPE_crash_{number}.log"

    def check_log(self, log, number, dump):
        name = signal.Signals(number).name
        self.assertEqual([line.strip() for line in log.splitlines()],
                         [f"ERR |Signal {number.value} ({name}) ends the process: process {os.getpid()} of user {os.getuid()} has sent it.",
                          "Trying to generate crash dump", f"Writing legacy dump. Dump path: {dump}.", "Executing crash handlers.",
                          "Crash handlers were successfully executed."])
        self.assertIn(f"TarnoTapeSvc: Signal {number.value} ({name}) ends the process: ", self.server.errors())

    def check_dump(self, text, code):
        program = (PROGRAMS / "TarnoTapeSvc").resolve()
        process = f"0x{self.server.process.pid:08x}"
        self.assertRegex(text, rf"^\n/{{85}}\n// Exception: {code}, Address: 0x[0-9a-f]{{8,16}}, Date/Time \w{{3}} \w{{3}} [ \d]\d "
                               rf"\d\d:\d\d:\d\d \d{{4}}\n// Process TarnoTapeSvc \({re.escape(str(program))}\), Process ID: {process}, "
                               r"Thread ID: 0x[0-9a-f]{8}\n\nLoaded modules:\n\n0x")
        self.assertRegex(text, rf"\n0x[0-9a-f]+ - 0x[0-9a-f]+ TarnoTapeSvc \({re.escape(str(program))}\) \d+\.\d+\.\d+\.\d+, symbols loaded\n")
        self.assertRegex(text, r"\n\neax=[0-9a-f]{8,16} ebx=.*\neip=[0-9a-f]{8,16} esp=.* iopl=0 .*\ncs=0033  ss=.* efl=[0-9a-f]{8}\n"
                               r"\nStack frames:\n\nFrame address: ")
        self.assertRegex(text, r"\nReturn address: 0x[0-9a-f]{8,16}\nParam1: .*\nParam2: .*\nParam3: .*\nParam4: .*\n\n0x[0-9a-f]+\t")
        self.assertIn("Return address: 0x00000000\n", text, "the stack is walked to its end")
        self.assertIn("\tTarnoTapeSvc!", text, "the server's own functions have names")

    def test_each_crash_leaves_a_log_a_dump_and_its_signal(self):
        for index, (number, code) in enumerate(((signal.SIGSEGV, "0xc0000005"), (signal.SIGABRT, "0xc0000409"))):
            log = self.crash(number)
            self.check_log(log, number, self.dump(index))
            self.check_dump(self.dump(index).read_text(), code)
            self.assertEqual(self.dump(index).stat().st_mode & 0o007, 0, "others can't read it")
            self.assertFalse(self.dump(index + 1).exists())
            self.server.start()
        self.wait_until_it_serves()

    def test_twenty_dumps_are_kept(self):
        for number in range(20):
            self.dump(number).write_text("old")
            os.utime(self.dump(number), (1_000_000 + number, 1_000_000 + number))
        os.utime(self.dump(5), (1000, 1000))
        log = self.crash(signal.SIGSEGV)
        self.assertIn(f"Dump [{self.dump(5)}] deleted.", log)
        self.assertIn(f"Writing legacy dump. Dump path: {self.dump(5)}.", log)
        self.assertEqual(len(list(self.server.folder.glob("TAPE_crash_*"))), 20)
        self.assertIn("// Exception: 0xc0000005", self.dump(5).read_text())

    def test_without_room_for_a_dump_it_ends_all_the_same(self):
        for number in range(20):
            self.dump(number).mkdir()
        log = self.crash(signal.SIGSEGV)
        self.assertEqual(log.count("Old dump cannot be removed. Dump path: ["), 20)
        self.assertIn("ERR |Cannot generate crash dump.", log)
        self.assertIn(">>  |Crash details cannot be stored in legacy format.", log)
        self.assertTrue(log.rstrip().endswith("Crash handlers were successfully executed."))


class Recorder(unittest.TestCase):
    def test_a_recorder_that_this_system_lacks_is_told_and_done_without(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        settings = server.folder / "settings.reg"
        settings.write_text(settings.read_text() + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarno\\Tarno Lodestore]\n\"OutOfProcDumpGen\"=dword:1\n")
        server.start()
        server.process.send_signal(signal.SIGABRT)
        self.assertEqual(server.process.wait(60), -signal.SIGABRT)
        self.assertIn("ERR |Failed to create out-of-process dump generator", server.log())
        self.assertIn(">>  |Cannot initialize out-of-process dump generator: failed to duplicate current process handle", server.log())
        self.assertIn("// Exception: 0xc0000409", (server.folder / "TAPE_crash_0.log").read_text())


class Service(unittest.TestCase):
    def test_a_service_that_crashes(self):
        server = ManagedServer()
        self.addCleanup(server.close)
        server.start()
        server.process.send_signal(signal.SIGSEGV)
        self.assertEqual(server.process.wait(60), -signal.SIGSEGV)
        self.assertTrue(server.manager.silent(), "the manager sees by itself how it ended")
        self.assertIn("// Exception: 0xc0000005", (server.folder / "TAPE_crash_0.log").read_text())


class OtherModes(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tape-crash-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.settings = self.folder / "settings.reg"
        self.log = self.folder / "run.log"
        self.dump = self.folder / "TAPE_crash_0.log"

    def write_settings(self, *lines):
        self.settings.write_text("\n".join(["Windows Registry Editor Version 5.00", "", f"[{TAPE_KEY}]", *lines, f"[{TAPE_KEY}\\Devices]",
                                            '"ScsiGeneric"=dword:0', f"[{TAPE_KEY}\\Access]", '"ListenAddress"="127.0.0.1"',
                                            f'"LocalSocket"="{self.folder}/rpc.sock"', ""]))
        self.settings.chmod(0o600)

    def command(self, *switches):
        return [PROGRAMS / "TarnoTapeSvc", *switches, "-settings", self.settings, "-state", self.folder / "state", "-log", self.log]

    def test_a_start_that_fails_has_a_dump_of_where_it_failed(self):
        self.write_settings('"UserSlotPortion"=dword:10000')
        result = subprocess.run(self.command("-debug"), capture_output=True, text=True, timeout=60, cwd=self.folder, stdin=subprocess.DEVNULL)
        self.assertEqual(result.returncode, 3, result.stderr)
        self.assertIn("TarnoTapeSvc: The tape server can't be started.\n", result.stderr)
        log = self.log.read_text()
        self.assertIn("ERR |The tape server can't be started.", log)
        self.assertIn(f"Writing legacy dump. Dump path: {self.dump}.", log)
        dump = self.dump.read_text()
        self.assertIn("// Exception: 0x40000015", dump)
        self.assertIn("tape_settings::LoadAll(", dump)

    def test_a_diagnostic_that_crashes(self):
        library = self.folder / "library"
        shutil.copytree(ROOT / "examples/library-24", library, ignore=shutil.ignore_patterns("state*"))
        self.write_settings()
        self.settings.write_text(self.settings.read_text().replace('"ScsiGeneric"=dword:0', f'"ScsiGeneric"=dword:0\n"VirtualLibrary"="{library}"'))
        # It waits a minute for a cartridge in the empty drive.
        process = subprocess.Popen(self.command("-mediumparameters"), cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        deadline = time.monotonic() + 30
        while not (self.log.exists() and "tap| " in self.log.read_text()) and time.monotonic() < deadline:
            time.sleep(0.02)
        process.send_signal(signal.SIGSEGV)
        self.assertEqual(process.wait(60), -signal.SIGSEGV)
        self.assertIn("// Exception: 0xc0000005", self.dump.read_text())


if __name__ == "__main__":
    unittest.main()
