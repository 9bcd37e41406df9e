"""The log of real servers: a path that is held, a thousand that are, rotation, and a disk without room."""

import contextlib
import fcntl
import gzip
import os
import pathlib
import re
import resource
import shutil
import struct
import subprocess
import tempfile
import time
import unittest

from tape_server import TapeServer
from impacket_client import CallFailed

PRODUCT_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\Tarno\Tarno Lodestore"
LINE = re.compile(r"\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d\] < *\d+> .*")
DENIES_WRITE = 2**63 - 1 - 16 + 3  # where an opener that lets nobody else write leaves its mark


def server_with_log(path, limit=None, archives=10, start=True):
    server = TapeServer(start=False)
    server.log_path = path
    if limit is not None:
        settings = server.folder / "settings.reg"
        text = settings.read_text()
        settings.write_text(f'{text}\n[{PRODUCT_KEY}]\n"AgentMaxLogSize"=dword:{limit:08x}\n"AgentMaxLogCount"=dword:{archives:08x}\n')
    if start:
        server.start()
    return server


class LogCase(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tape-log-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.log = self.folder / "Svc.log"

    def server(self, **options):
        server = server_with_log(self.log, **options)
        self.addCleanup(server.close)
        return server

    def call(self, server):
        with contextlib.closing(server.client()) as client:
            return client.call("GetOwnerName")["OwnerName"]


class HeldLogs(LogCase):
    def process_of(self, path):
        return int(re.findall(r"Process Id: (\d+)", path.read_text())[-1])

    def test_second_server_takes_the_next_number(self):
        first = self.server()
        second = self.server()
        self.assertEqual(self.process_of(self.log), first.process.pid)
        self.assertEqual(self.process_of(self.folder / "Svc.1.log"), second.process.pid)
        self.call(second)
        self.assertIn("[SoapEnter] GetOwnerName", (self.folder / "Svc.1.log").read_text())
        self.assertNotIn("[SoapEnter] GetOwnerName", self.log.read_text())
        first.kill()
        third = self.server()
        self.assertEqual(self.process_of(self.log), third.process.pid, "the log of a dead server is free again")

    def test_server_goes_on_without_a_log_when_a_thousand_are_held(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if hard < 1200:
            self.skipTest("this process may not hold a thousand files open")
        resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, 1200), hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        with contextlib.ExitStack() as held:
            for number in range(1000):
                file = held.enter_context(open(self.folder / (f"Svc.{number}.log" if number else "Svc.log"), "w+b"))
                fcntl.fcntl(file, fcntl.F_OFD_SETLK, struct.pack("hhqqi4x", fcntl.F_RDLCK, os.SEEK_SET, DENIES_WRITE, 1, 0))
            server = self.server()
            self.assertEqual(self.call(server), "")
            self.assertEqual({path.stat().st_size for path in self.folder.iterdir()}, {0})
            self.assertEqual(len(list(self.folder.iterdir())), 1000)
            self.assertEqual(server.stop(), 0)
            self.assertIn("The log file can't be opened", server.errors())


class LogsInOddPlaces(LogCase):
    def test_paths_with_blanks_and_of_all_scripts(self):
        self.log = self.folder / "Ordner mit Leerzeichen" / "журнал ログ 😀.log"
        server = self.server(limit=2000)
        while not (archive := self.log.with_name(self.log.name + ".gz")).exists():
            self.call(server)
        content = subprocess.run(["gunzip", "-c", archive], capture_output=True, check=True).stdout
        self.assertIn("LOG: Initializing log file ...", content.decode())
        self.assertIn("[SoapEnter] GetOwnerName", content.decode())

    def test_relative_path_lies_in_the_current_folder(self):
        self.log = "bare.log"
        server = self.server()
        self.call(server)
        self.assertIn("[SoapEnter] GetOwnerName", (server.folder / "bare.log").read_text())

    def test_folder_in_the_place_of_the_log_leaves_the_server_without_one(self):
        self.log.mkdir()
        server = self.server()
        self.assertEqual(self.call(server), "")
        self.assertEqual(server.stop(), 0)
        self.assertIn("The log file can't be opened", server.errors())
        self.assertEqual(list(self.log.iterdir()), [])

    def test_limit_of_zero_lets_the_log_grow(self):
        self.log.write_bytes(b"x" * 20_000_000 + b"\r\n")
        server = self.server(limit=0)
        self.call(server)
        self.assertGreater(self.log.stat().st_size, 20_000_000)
        self.assertEqual([path.name for path in self.folder.iterdir()], ["Svc.log"])


class LogsTakenAway(LogCase):
    def until_it_logs_to(self, server, path, start=0):
        deadline = time.monotonic() + 20
        while not path.exists() or b"[SoapEnter] GetOwnerName" not in path.read_bytes()[start:]:
            self.assertLess(time.monotonic(), deadline, "the log does not come back")
            self.call(server)

    def test_removed_log_comes_back(self):
        server = self.server()
        self.log.unlink()
        self.until_it_logs_to(server, self.log)

    def test_removed_folder_comes_back(self):
        self.log = self.folder / "logs" / "deep" / "Svc.log"
        server = self.server(limit=20000)
        shutil.rmtree(self.folder / "logs")
        self.until_it_logs_to(server, self.log)
        while not self.log.with_name("Svc.log.gz").exists():
            self.call(server)

    def test_moved_log_is_left_and_another_in_its_place_is_gone_on_with(self):
        server = self.server()
        self.log.rename(self.folder / "moved")
        self.log.write_bytes(b"a line of somebody else\r\n")
        self.until_it_logs_to(server, self.log)
        self.assertTrue(self.log.read_bytes().startswith(b"a line of somebody else\r\n["))
        self.assertIn("LOG: Initializing log file ...", (self.folder / "moved").read_text())
        size = (self.folder / "moved").stat().st_size
        self.call(server)
        self.assertEqual((self.folder / "moved").stat().st_size, size)

    def test_log_that_is_cut_goes_on_at_its_new_end(self):
        server = self.server()
        self.call(server)
        os.truncate(self.log, 0)
        self.call(server)
        self.assertTrue(self.log.read_bytes().startswith(b"["))
        self.assertIn("[SoapExit] GetOwnerName", self.log.read_text())


class KilledRotations(LogCase):
    """The server dies while it makes an archive, at a later point each time, and loses nothing."""

    def numbers_in(self, contents):
        numbers = [int(number) for content in contents for number in re.findall(rb"line (\d+) ", content)]
        self.assertEqual(sorted(set(numbers)), list(range(self.lines)))
        return numbers

    def archives(self):
        """By the ordinary program; it fails at a broken one."""
        return [subprocess.run(["gunzip", "-c", path], capture_output=True, check=True).stdout for path in self.folder.glob("*.log.gz")]

    def size_of_part(self):
        try:
            return (self.folder / "Svc.log.gz.part").stat().st_size
        except FileNotFoundError:
            return None

    def wait_for_archive(self, server, size):
        """Until so much of it is written; none: until it takes its place."""
        deadline = time.monotonic() + 60

        def check():
            self.assertIsNone(server.process.poll(), server.errors())
            self.assertLess(time.monotonic(), deadline, "no archive is made")

        while (written := self.size_of_part()) is None or (size is not None and written < size):
            check()
        while size is None and self.size_of_part() is not None:
            check()

    def test_nothing_is_lost(self):
        self.lines = 150_000
        filling = b"".join(b"line %d of a log that is long enough to keep the packing busy: %d\r\n" % (number, number * 7919)
                           for number in range(self.lines))
        old = gzip.compress(b"an archive that was whole before")
        interrupted = 0
        for size in (0, 1, 100_000, 1_000_000, None):
            for path in self.folder.iterdir():
                path.unlink()
            self.log.write_bytes(filling)
            (self.folder / "Svc.log.gz").write_bytes(old)
            server = self.server(limit=1_000_000, start=False)
            server.launch()
            self.wait_for_archive(server, size)
            server.kill()
            interrupted += self.size_of_part() is not None
            self.numbers_in([*self.archives(), self.log.read_bytes()])
            server.start()
            self.numbers_in([*self.archives(), self.log.read_bytes()])
            self.assertIn(b"an archive that was whole before", self.archives())
            self.assertIsNone(self.size_of_part())
            server.close()
        self.assertGreater(interrupted, 0)


class Rotation(LogCase):
    """Calls write the entries: a look at the size comes with every thousandth."""

    def call_until(self, server, condition, failures=None):
        """Calls by one connection after another; a call may fail when `failures` is there to take its text."""
        for _ in range(400):
            client = server.client()
            for _ in range(20):
                try:
                    client.call("GetOwnerName")
                except CallFailed as failure:
                    if failures is None:
                        raise
                    failures.append(str(failure))
            client.close()
            if condition():
                return
        self.fail("the calls have come to nothing")

    def archives(self):
        return {path.name: path.read_bytes() for path in self.folder.glob("*.gz")}

    def check_lines(self):
        for path in [*self.folder.glob("*.gz"), self.log]:
            content = gzip.decompress(path.read_bytes()) if path.suffix == ".gz" else path.read_bytes()
            for line in content.decode().split("\r\n")[:-1]:
                self.assertRegex(line, LINE)
            self.assertTrue(not content or content.endswith(b"\r\n"), path)

    def test_full_logs_become_archives(self):
        server = self.server(limit=20000, archives=2)
        self.call_until(server, lambda: len(self.archives()) == 3)
        newest = self.archives()["Svc.log.gz"]
        self.call_until(server, lambda: self.archives().get("Svc.1.log.gz") == newest)
        self.assertEqual(set(self.archives()), {"Svc.log.gz", "Svc.1.log.gz", "Svc.2.log.gz"})
        self.check_lines()

    def test_log_that_is_full_at_the_start_becomes_an_archive(self):
        self.log.write_bytes(b"x" * 20000)
        self.server(limit=20000)
        self.assertEqual(gzip.decompress((self.folder / "Svc.log.gz").read_bytes()), b"x" * 20000)
        self.assertLess(self.log.stat().st_size, 20000)


class FullDisk(Rotation):
    def setUp(self):
        super().setUp()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", self.folder], capture_output=True, text=True)
        if mounted.returncode != 0:
            self.skipTest(f"a small file system can't be mounted here: {mounted.stderr.strip()}")
        self.addCleanup(subprocess.run, ["umount", self.folder], check=True)

    def fill(self):
        with open(self.folder / "filler", "ab", buffering=0) as filler:
            for size in (4096, 1):
                with contextlib.suppress(OSError):
                    while True:
                        filler.write(bytes(size))

    test_full_logs_become_archives = None
    test_log_that_is_full_at_the_start_becomes_an_archive = None

    def test_server_goes_on_and_no_archive_is_lost(self):
        server = self.server(limit=20000, archives=2)
        self.call_until(server, lambda: len(self.archives()) == 3)
        self.call_until(server, lambda: self.log.stat().st_size >= 20000)
        before = self.archives()
        log = self.log.read_bytes()
        self.fill()
        failures = []
        self.call_until(server, lambda: len(failures) >= 3, failures)
        for failure in failures:
            self.assertIn("There is not enough space on the disk.", failure)
            self.assertIn("Unable to validate log size limit.", failure)
        self.assertEqual(self.archives(), before)
        self.assertEqual(list(self.folder.glob("*.part")), [])
        self.assertTrue(self.log.read_bytes().startswith(log))
        self.assertIsNone(server.process.poll())
        (self.folder / "filler").unlink()
        self.call_until(server, lambda: self.archives().get("Svc.1.log.gz") == before["Svc.log.gz"])
        self.assertTrue(gzip.decompress(self.archives()["Svc.log.gz"]).startswith(log))
        self.check_lines()

    def test_server_starts_on_a_full_disk(self):
        self.fill()
        server = self.server()
        self.assertEqual(self.call(server), "")
        (self.folder / "filler").unlink()
        self.call(server)
        self.assertIn("[SoapEnter] GetOwnerName", self.log.read_text())
        self.check_lines()


if __name__ == "__main__":
    unittest.main()
