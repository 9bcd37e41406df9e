"""Virtual libraries for the tests of drives, and what those tests share."""

import threading
import time

import tape_server  # noqa: F401  (it knows where the next one lies)
from impacket_client import CallFailed

RUNNING = 997
DONE = 0


def link_of(drive):
    return rf"\\.\Tape{drive}"


def write_library(folder, drives, loaded=(), timings="", serial="TRNLIB0001"):
    """A library with that many drives and a slot for each. loaded: for each drive, from the first, the attributes of the cartridge in
    it (bar code, flags), or None for an empty drive. timings: attributes of that element."""
    cartridges = "".join(f'<cartridge barcode="TRN{number:03}L8" element="{0x400 + number}" {flags}/>'
                         for number, flags in enumerate(loaded) if flags is not None)
    units = "".join(f'<drive serial="TRNDRV{number:04}" vendor="TARNO" product="VIRTUAL-LTO8"/>' for number in range(drives))
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "library.xml").write_text(
        f'<library vendor="TARNO" product="VIRTUAL-LIBRARY" revision="0100" serial="{serial}" state="state.xml">'
        f'<elements><transports first="0" count="1"/><slots first="0x1000" count="{drives}"/><ports first="0x10" count="1"/>'
        f'<drives first="0x400" count="{drives}"/></elements>'
        f"<drives>{units}</drives><cartridges>{cartridges}</cartridges><timings {timings}/></library>\n", encoding="utf-8")
    return folder


def write_faults(folder, *faults):
    """Takes the place of all faults that there were. Each is the text of a `fault` element's attributes."""
    text = "".join(f"<fault {fault}/>" for fault in faults)
    (folder / "faults.new").write_text(f"<faults>{text}</faults>")
    (folder / "faults.new").rename(folder / "faults.xml")


def failure_of(client, procedure, **arguments):
    """The server's text of a call that has to fail."""
    try:
        answer = client.call(procedure, **arguments)
    except CallFailed as error:
        return str(error)
    raise AssertionError(f"{procedure} did not fail, but answered {answer}")


def start_erase(client, drive, long=False):
    link = drive if isinstance(drive, str) else link_of(drive)
    return client.call("EraseTape", SymLinkName=link, LongErasure="true" if long else "false")["TaskID"]


def task_status(client, task):
    return int(client.call("TaskStatus", TaskID=task)["TaskStatus"])


def outcome(client, task, seconds=60):
    """The status that a task ends with."""
    limit = time.monotonic() + seconds
    while (status := task_status(client, task)) == RUNNING:
        if time.monotonic() > limit:
            raise AssertionError(f"task {task} does not end")
        time.sleep(0.05)
    return status


class Caller(threading.Thread):
    """One call on a connection and a thread of its own."""

    def __init__(self, test, server, procedure, **arguments):
        super().__init__()
        self.client = server.client(timeout=300)
        test.addCleanup(self.client.close)
        self.procedure, self.arguments = procedure, arguments
        self.answer = self.error = self.seconds = None
        self.start()

    def run(self):
        began = time.monotonic()
        try:
            self.answer = self.client.call(self.procedure, **self.arguments)
        except Exception as error:  # what the server answers, or what the client makes of the server's end
            self.error = error
        self.seconds = time.monotonic() - began

    def wait(self, test, seconds=120):
        self.join(seconds)
        test.assertFalse(self.is_alive(), f"{self.procedure} does not come back")
        return self.answer
