"""Starts real tape servers for the system tests: loopback only, on free ports, ended by process id.

The programs are those of the build folder named by TARNO_PROGRAMS (src/programs of a build).
"""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "examples"))

from impacket_client import TapeClient  # noqa: E402  (the path is set above)

PROGRAMS = pathlib.Path(os.environ.get("TARNO_PROGRAMS", ROOT / "build/linux-debug/src/programs"))
PASSWORD = "Correct horse 9"
START_SECONDS = 30

TAPE_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Tarno\Tarno Backup Tape"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def quoted(text):
    return '"' + str(text).replace("\\", "\\\\").replace('"', '\\"') + '"'


def setting_lines(values):
    return [f'"{name}"=dword:{value:08x}' if isinstance(value, int) else f'"{name}"={quoted(value)}' for name, value in values.items()]


class TapeServer:
    """One server process in a folder of its own.

    libraries: folders of virtual libraries to copy in. iscsi: the text of that setting. values: more values of the tape key, int
    or str. access: more values of its subkey Access.
    """

    def __init__(self, libraries=("examples/library-24",), iscsi="", values=None, start=True, access=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tape-server-"))
        self.port = free_port()
        self.log_path = self.folder / "Svc.TarnoTape.log"
        self.socket_path = self.folder / "rpc.sock"
        self.state = self.folder / "state"
        self.process = None
        self.libraries = []
        for index, library in enumerate(libraries):
            target = self.folder / f"library{index}"
            shutil.copytree(ROOT / library, target, ignore=shutil.ignore_patterns("state*"))
            self.libraries.append(target)
        self.write_settings(values or {}, iscsi, access or {})
        self.add_account("operator", administrator=True)
        if start:
            self.start()

    def write_settings(self, values, iscsi, access=None):
        lines = ["Windows Registry Editor Version 5.00", "", f"[{TAPE_KEY}]"]
        lines += setting_lines(values)
        lines += ["", f"[{TAPE_KEY}\\Devices]", '"ScsiGeneric"=dword:00000000',
                  f'"VirtualLibrary"={quoted(";".join(str(path) for path in self.libraries))}', f'"Iscsi"={quoted(iscsi)}']
        lines += ["", f"[{TAPE_KEY}\\Access]", '"ListenAddress"="127.0.0.1"', f'"LocalSocket"={quoted(self.socket_path)}',
                  '"EndpointMapperPort"=dword:00000000',
                  f'"Accounts"={quoted(self.folder / "accounts")}', *setting_lines(access or {}), ""]
        settings = self.folder / "settings.reg"
        settings.write_text("\n".join(lines), encoding="utf-8")
        settings.chmod(0o600)

    def add_account(self, name, administrator=False, password=PASSWORD):
        command = [PROGRAMS / "tarno-tape-account", "--file", self.folder / "accounts", "add"]
        subprocess.run([*command, *(["--administrator"] if administrator else []), name], input=password + "\n", text=True, check=True,
                       stdout=subprocess.DEVNULL)

    def launch(self, port_switch=None, namespace=()):
        """Starts the process. `port_switch`: another number behind -port than the one that the server is to listen on. `namespace`:
        words in front of the command that change what it sees of the machine and become it then."""
        command = [*namespace, PROGRAMS / "TarnoTapeSvc", "-debug", "-settings", self.folder / "settings.reg", "-state", self.state, "-log", self.log_path,
                   "-port", str(port_switch or self.port)]
        with open(self.folder / "stderr", "ab") as errors:
            self.process = subprocess.Popen(command, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors)

    def start(self, port_switch=None, namespace=()):
        self.launch(port_switch, namespace)
        self.wait_until_it_listens()

    def wait_until_it_listens(self):
        deadline = time.monotonic() + START_SECONDS
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                if self.process.poll() is not None or time.monotonic() > deadline:
                    raise RuntimeError(f"the server did not start: {self.errors()}\n{self.log()}") from None
                time.sleep(0.02)

    def client(self, user="operator", password=PASSWORD, owner="CONSOLE", **options):
        return TapeClient("127.0.0.1", self.port, user, password, owner=owner, **options)

    def console(self, *words, owner="CONSOLE", timeout=120):
        """Runs tarnoctl over the local socket."""
        command = [PROGRAMS / "tarnoctl", "--socket", self.socket_path, *(["--owner", owner] if owner else []), *words]
        return subprocess.run(command, capture_output=True, text=True, timeout=timeout, stdin=subprocess.DEVNULL)

    def log(self):
        return self.log_path.read_text(encoding="utf-8", errors="replace").replace("\r\n", "\n") if self.log_path.exists() else ""

    def errors(self):
        path = self.folder / "stderr"
        return path.read_text(errors="replace") if path.exists() else ""

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()

    def stop(self):
        """Ends the server by SIGTERM; its exit code."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.terminate()
        try:
            return self.process.wait(30)
        except subprocess.TimeoutExpired:
            self.kill()
            raise RuntimeError("the server did not end") from None

    def close(self):
        try:
            code = self.stop()
            sanitizer = [line for line in self.errors().splitlines() if "Sanitizer" in line or "runtime error" in line]
            if sanitizer:
                raise AssertionError("\n".join(["the server's sanitizer reports:", self.errors()]))
            return code
        finally:
            shutil.rmtree(self.folder, ignore_errors=True)
