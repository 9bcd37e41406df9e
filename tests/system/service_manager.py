"""Plays the service manager for a real tape server: the socket that NOTIFY_SOCKET names, and the messages on it."""

import os
import socket
import subprocess
import time

from tape_server import PROGRAMS, TapeServer


class Manager:
    """The manager's end of sd_notify(3)'s protocol."""

    def __init__(self, path):
        self.path = path
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(path))

    def close(self):
        self.socket.close()

    def message(self, seconds=30):
        """The next message, as a dictionary; fails when none comes in that time."""
        self.socket.settimeout(seconds)
        return dict(line.split("=", 1) for line in self.socket.recv(4096).decode().splitlines())

    def until(self, wanted, seconds=60):
        """All messages up to the first one that has the entry `wanted`, "NAME=VALUE"; the last of them is that one."""
        name, value = wanted.split("=", 1)
        deadline = time.monotonic() + seconds
        seen = []
        while not seen or seen[-1].get(name) != value:
            seen.append(self.message(max(0.1, deadline - time.monotonic())))
        return seen

    def silent(self):
        """Whether nothing more has come."""
        self.socket.settimeout(0.1)
        try:
            self.socket.recv(4096)
            return False
        except TimeoutError:
            return True


class ManagedServer(TapeServer):
    """A tape server that runs as a service, under a manager of its own."""

    def __init__(self, **options):
        super().__init__(start=False, **options)
        self.manager = Manager(self.folder / "notify")

    def launch(self, port_switch=None, namespace=(), switches=(), environment=None):
        command = [*namespace, PROGRAMS / "TarnoTapeSvc", "-settings", self.folder / "settings.reg", "-state", self.state, "-log", self.log_path,
                   "-port", str(port_switch or self.port), *switches]
        with open(self.folder / "stderr", "ab") as errors:
            self.process = subprocess.Popen(command, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors,
                                            env={**os.environ, "NOTIFY_SOCKET": str(self.manager.path), **(environment or {})})

    def start(self, port_switch=None, namespace=()):
        """Ends as soon as the manager hears that the server serves."""
        self.launch(port_switch, namespace)
        return self.manager.until("READY=1")

    def close(self):
        self.manager.close()
        return super().close()
