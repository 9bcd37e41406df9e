"""The server as a service: its manager speaks the real notification protocol on a real socket, and sends real signals."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

from service_manager import ManagedServer
from tape_server import PROGRAMS, ROOT, TAPE_KEY, TapeServer
from test_movement import Library

LINK = "\\\\.\\Changer0"
DRIVE = "\\\\.\\Tape0"
SOON = 15
PENDING = {"EXTEND_TIMEOUT_USEC": "5000000"}
START = [{"STATUS": "Setting up."}, {"STATUS": "Starting.", **PENDING}]
SERVING = {"READY": "1", "STATUS": "Serving."}
STOP = [{"STOPPING": "1", "STATUS": "Stopping.", **PENDING}, {"STOPPING": "1", "STATUS": "Stopped."}]
FAILED = [{"STOPPING": "1", "STATUS": "The start has failed; the log says why. Stopping.", **PENDING},
          {"STOPPING": "1", "STATUS": "The start has failed; the log says why. Stopped."}]
STOP_LINES = ["SCM: Processing request to stop service.", "Stopping RPC server.", "Server was successfully stopped.",
              "Shutting down service context.", "Context was cleared.", "Tape service is stopped."]


def taken_port(server):
    """Gives the server a port that somebody else listens on: the returned socket."""
    other = socket.socket()
    other.bind(("127.0.0.1", 0))
    other.listen(1)
    server.port = other.getsockname()[1]
    return other


class Service(unittest.TestCase):
    def server(self, **options):
        server = ManagedServer(**options)
        self.addCleanup(server.close)
        return server

    def stopped(self, server):
        """Sends the stop control: the messages and lines that follow are those of a stop in order, and it takes little time."""
        began = time.monotonic()
        server.process.terminate()
        self.assertEqual([server.manager.message(), server.manager.message()], STOP)
        self.assertEqual(server.process.wait(SOON), 0)
        self.assertLess(time.monotonic() - began, SOON)
        self.assertTrue(server.manager.silent())
        log, at = server.log(), 0
        for line in STOP_LINES:
            at = log.find(line, at)
            self.assertGreaterEqual(at, 0, line)
        self.assertEqual(server.errors(), "")

    def wait_for_log(self, server, text):
        deadline = time.monotonic() + SOON
        while text not in server.log():
            self.assertLess(time.monotonic(), deadline, f"the log doesn't say: {text}")
            time.sleep(0.02)

    def set_timings(self, server, timings):
        personality = server.libraries[0] / "library.xml"
        text = personality.read_text(encoding="utf-8")
        self.assertNotIn("<timings", text)
        personality.write_text(text.replace("</library>", f"<timings {timings}/></library>"), encoding="utf-8")

    def test_start_and_stop(self):
        server = self.server()
        self.assertEqual(server.start(), [*START, SERVING])
        socket.create_connection(("127.0.0.1", server.port), 1).close()  # ready means listening
        log = server.log()
        self.assertLess(log.index("tap| Starting server in synchronous mode."), log.index("RPC server is initialized."))
        self.assertLess(log.index("RPC server is initialized."), log.index("tap| Tape server is ready to process incoming calls."))
        self.assertNotIn("Launched in debug mode.", log)
        client = server.client()
        client.call("SetOwnerName", NewOwnerName="CONSOLE")
        self.assertEqual(client.call("GetOwnerName")["OwnerName"], "CONSOLE")
        client.close()
        self.stopped(server)

    def test_without_a_manager_it_ends_with_one(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        command = [PROGRAMS / "TarnoTapeSvc", "-settings", server.folder / "settings.reg", "-state", server.state, "-log", server.log_path]
        environment = {name: value for name, value in os.environ.items() if name != "NOTIFY_SOCKET"}
        for gone in ({}, {"NOTIFY_SOCKET": str(server.folder / "nobody")}):
            result = subprocess.run(command, env={**environment, **gone}, capture_output=True, text=True, timeout=60)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (1, "", ""))
        self.assertNotIn("Starting server", server.log())
        self.assertFalse(server.socket_path.exists())

    def test_reload(self):
        server = self.server()
        server.start()
        settings = server.folder / "settings.reg"
        good = settings.read_text(encoding="utf-8")
        for text, sentence in ((good, "The settings are read again."), (good + "\ngarbage\n", "What was read from the file before stays in force."),
                               (good, "The settings are read again.")):
            settings.write_text(text, encoding="utf-8")
            before = time.clock_gettime_ns(time.CLOCK_MONOTONIC) // 1000
            server.process.send_signal(signal.SIGHUP)
            reloading = server.manager.message()
            self.assertGreaterEqual(int(reloading.pop("MONOTONIC_USEC")), before)
            self.assertEqual(reloading, {"RELOADING": "1", "STATUS": "Reading the settings again."})
            self.assertEqual(server.manager.message(), SERVING)
            self.assertIn(sentence, server.log())
        self.assertEqual(server.log().count("stays in force."), 1)
        self.assertNotIn("The next start", server.log())
        socket.create_connection(("127.0.0.1", server.port), 1).close()
        self.stopped(server)

    def test_reload_tells_what_would_fail_the_next_start(self):
        server = self.server()
        server.start()
        settings = server.folder / "settings.reg"
        good = settings.read_text(encoding="utf-8")
        for wrong, reason in (('"ScsiGeneric"="yes"', "The value SOFTWARE\\Tarno\\Tarno Backup Tape\\Devices\\ScsiGeneric must be a DWORD."),
                              ('"Iscsi"="tape://user%secret@host"', 'iSCSI setting: entry [***@host]: "iscsi://" is expected at its start.')):
            settings.write_text(f"{good}\n[{TAPE_KEY}\\Devices]\n{wrong}\n", encoding="utf-8")
            server.process.send_signal(signal.SIGHUP)
            self.assertIn("RELOADING", server.manager.message())
            self.assertEqual(server.manager.message(), SERVING)
            self.assertIn(f"WARN|{settings}: {reason} The next start would fail over it.\n", server.log())
        self.assertNotIn("secret", server.log())
        self.stopped(server)

    def test_a_watch_is_answered(self):
        server = self.server()
        server.launch(environment={"WATCHDOG_USEC": "200000"})
        server.manager.until("READY=1")
        for _ in range(3):
            self.assertEqual(server.manager.message(), {"WATCHDOG": "1"})
        server.process.terminate()
        server.manager.until("STATUS=Stopped.")
        self.assertEqual(server.process.wait(SOON), 0)

    def test_a_diagnostic_does_not_wait_for_a_manager(self):
        server = self.server()
        server.launch(switches=("-mediumparameters",))  # an empty drive: it waits a minute for a cartridge
        self.wait_for_log(server, "Getting media info")
        server.process.terminate()
        self.assertEqual(server.process.wait(SOON), -signal.SIGTERM)
        self.assertTrue(server.manager.silent())

    def test_stop_during_a_move(self):
        server = self.server()
        self.set_timings(server, 'move="600000"')
        server.start()
        client = server.client()
        client.call("SetOwnerName", NewOwnerName="CONSOLE")
        outcome = []

        def move():
            try:
                Library(client, False).call("MoveToSlot", SourceSlotNum=0, destinationSlotNum=22)
                outcome.append("moved")
            except Exception as problem:  # the connection ends with the server, however the client words that
                outcome.append(problem)

        mover = threading.Thread(target=move)
        mover.start()
        self.wait_for_log(server, "Begin to move tape.")
        self.stopped(server)
        mover.join(SOON)
        self.assertFalse(mover.is_alive(), "the client hangs after the server's end")
        self.assertNotEqual(outcome, ["moved"])
        client.close()
        # The next server finds all cartridges, each in one place.
        self.set_no_timings(server)
        server.start()
        client = server.client()
        contents = Library(client, False).contents()
        self.assertEqual(len(set(contents.values())), 20)
        self.assertEqual(len(contents), 20)
        client.close()
        self.stopped(server)

    def set_no_timings(self, server):
        personality = server.libraries[0] / "library.xml"
        personality.write_text(re.sub(r"<timings[^>]*/>", "", personality.read_text(encoding="utf-8")), encoding="utf-8")

    def test_stop_during_an_erase(self):
        server = self.server()
        self.set_timings(server, 'erase-long="600000"')
        server.start()
        client = server.client()
        client.call("LoadMedium", SymLinkName=LINK, SlotNum=0, DriveNum=0)
        client.call("PrepareTape", SymLinkName=DRIVE, OperationNum=0)
        task = client.call("EraseTape", SymLinkName=DRIVE, LongErasure="true")["TaskID"]
        self.wait_for_log(server, "Beginning tape erasing.")
        self.assertEqual(client.call("TaskStatus", TaskID=task)["TaskStatus"], "997")
        self.stopped(server)
        client.close()

    def test_port_that_stays_taken(self):
        server = self.server()
        with taken_port(server):
            began = time.monotonic()
            server.launch()
            self.assertEqual(server.manager.until(f"STATUS={FAILED[-1]['STATUS']}"), [*START, *FAILED])
            self.assertEqual(server.process.wait(SOON), 0)
            self.assertGreaterEqual(time.monotonic() - began, 4)  # four pauses of a second
        log = server.log()
        self.assertEqual(log.count("Waiting for endpoint to be released"), 1)
        self.assertIn("Failed to start tape service.", log)
        self.assertLess(log.index("Failed to start tape service."), log.index("SCM: Processing request to stop service."))
        self.assertNotIn("Tape server is ready", log)
        self.assertFalse(server.socket_path.exists())

    def test_port_that_is_released_in_time(self):
        server = self.server()
        with taken_port(server):
            server.launch()
            self.assertEqual([server.manager.message(), server.manager.message()], START)
            self.wait_for_log(server, "Waiting for endpoint to be released")
        self.assertEqual(server.manager.message(), SERVING)
        self.assertEqual(server.log().count("Waiting for endpoint to be released"), 1)
        self.stopped(server)

    def test_stop_during_the_start(self):
        server = self.server()
        with taken_port(server):
            server.launch()
            self.wait_for_log(server, "Waiting for endpoint to be released")
            server.process.terminate()
        # The start comes to its end first, and the stop is delivered then.
        self.assertEqual(server.manager.until("STATUS=Stopped."), [*START, SERVING, *STOP])
        self.assertEqual(server.process.wait(SOON), 0)

    def test_settings_with_an_error_start_nothing(self):
        server = self.server()
        settings = server.folder / "settings.reg"
        settings.write_text(f'Windows Registry Editor Version 5.00\n\n[{TAPE_KEY}]\n"Port"=dword:nonsense\n', encoding="utf-8")
        server.launch()
        self.assertEqual(server.process.wait(SOON), 2)
        self.assertEqual(server.errors(), f"TarnoTapeSvc: {settings}:4: Behind dword: stand one to eight hexadecimal digits.\n")
        self.assertTrue(server.manager.silent())
        self.assertFalse(server.log_path.exists())
        self.assertFalse(server.socket_path.exists())
        self.assertEqual(list(server.state.glob("*")) if server.state.exists() else [], [])

    def test_a_setting_that_cannot_be_taken_starts_nothing(self):
        server = self.server(values={"UserSlotPortion": 65536})
        server.launch()
        self.assertEqual(server.process.wait(SOON), 3)
        self.assertIn("Unable to cast value from [unsigned long] to [unsigned short].", server.errors())
        self.assertIn("Unable to cast value from [unsigned long] to [unsigned short].", server.log())
        self.assertTrue(server.manager.silent())
        self.assertFalse(server.socket_path.exists())


class DebugMode(unittest.TestCase):
    def test_a_terminal_that_hangs_up_ends_it_in_order(self):
        server = TapeServer()
        self.addCleanup(server.close)
        server.process.send_signal(signal.SIGHUP)
        self.assertEqual(server.process.wait(SOON), 0)
        self.assertIn("Tape service is stopped.", server.log())

    def test_whoever_ignores_the_hang_up_goes_on_serving(self):
        server = TapeServer(start=False)
        self.addCleanup(server.close)
        server.start(namespace=("nohup",))
        status = pathlib.Path(f"/proc/{server.process.pid}/status").read_text(encoding="utf-8")
        ignored, held = (int(re.search(rf"{name}:\s+(\w+)", status)[1], 16) for name in ("SigIgn", "SigBlk"))
        self.assertTrue(ignored & 1 << signal.SIGHUP - 1)
        self.assertFalse(held & 1 << signal.SIGHUP - 1)
        server.process.send_signal(signal.SIGHUP)
        socket.create_connection(("127.0.0.1", server.port), 1).close()
        self.assertEqual(server.stop(), 0)


@unittest.skipUnless(shutil.which("systemd-analyze"), "systemd isn't installed")
class Unit(unittest.TestCase):
    UNIT = ROOT / "packaging/tarno-tape.service"

    def test_systemd_understands_the_unit(self):
        with tempfile.TemporaryDirectory() as folder:
            unit = pathlib.Path(folder) / self.UNIT.name
            text = self.UNIT.read_text(encoding="utf-8")
            self.assertIn("ExecStart=/usr/sbin/TarnoTapeSvc\n", text)
            unit.write_text(text.replace("/usr/sbin/TarnoTapeSvc", str(PROGRAMS / "TarnoTapeSvc")), encoding="utf-8")
            result = subprocess.run(["systemd-analyze", "verify", "--man=no", unit], capture_output=True, text=True, timeout=60)
            self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_the_unit_is_hardened(self):
        result = subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=25", "--no-pager", self.UNIT],
                                capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertRegex(result.stdout, r"Overall exposure level for tarno-tape.service: [0-2]\.\d OK")

    def test_the_unit_leaves_what_the_server_needs(self):
        """A process with the unit's capabilities, mask and descriptors, as far as they can be given without systemd."""
        if os.geteuid() != 0 or not shutil.which("setpriv"):
            self.skipTest("only root can give capabilities up")
        server = ManagedServer()
        self.addCleanup(server.close)
        server.start(namespace=("setpriv", "--bounding-set=-all,+sys_rawio,+net_bind_service", "--inh-caps=-all", "--no-new-privs", "sh", "-c",
                                'umask 0077; ulimit -n 4096; exec "$0" "$@"'))
        status = pathlib.Path(f"/proc/{server.process.pid}/status").read_text(encoding="utf-8")
        self.assertRegex(status, r"CapBnd:\s+0000000000020400")
        self.assertRegex(status, r"CapEff:\s+0000000000020400")
        result = server.console("changers")
        self.assertEqual(result.returncode, 0, result.stderr)
        server.process.terminate()
        self.assertEqual(server.process.wait(SOON), 0)


if __name__ == "__main__":
    unittest.main()
