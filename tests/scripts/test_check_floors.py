#!/usr/bin/env python3
"""The checker of the floors tells calls from declarations, and its rules from each other."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts"))
import check_floors


def is_direct_call(line):
    return check_floors.DIRECT_CALLS.search(check_floors.without_comments(line)) is not None


class DirectCalls(unittest.TestCase):
    def test_finds_calls(self):
        for line in ("time(nullptr);", "    x = time(nullptr);", "return time(nullptr);", "if (rand() % 2)", "f(::time(nullptr))",
                     "const auto now = ::clock();", "std::time(nullptr)", "Sleep(5);", "std::this_thread::sleep_for(1s);",
                     "auto t = std::chrono::steady_clock::now();", "std::random_device seed;", "else sleep(1);"):
            self.assertTrue(is_direct_call(line), line)

    def test_passes_what_bears_such_a_name_only(self):
        for line in ("virtual void sleep(std::int64_t milliseconds) = 0;", "std::int64_t time(const char* name) const {",
                     "system().clock->sleep(5);", "faults::slow_robot(of.time(\"milliseconds\"))", "const local_time time(5);",
                     "// sleep(5) would block", "/* time(nullptr) */", "log(\"time(nullptr)\");", "runtime(5);",
                     "void virtual_clock::sleep(std::int64_t milliseconds) {"):
            self.assertFalse(is_direct_call(line), line)


class OperatingSystem(unittest.TestCase):
    def test_knows_its_headers(self):
        for header in ("windows.h", "unistd.h", "sys/socket.h", "linux/fs.h", "iscsi/iscsi.h"):
            self.assertTrue(check_floors.OS_HEADERS.match(header), header)
        for header in ("tinyxml.h", "zlib.h", "platform/windows_version.h"):
            self.assertFalse(check_floors.OS_HEADERS.match(header), header)

    def test_knows_its_conditions(self):
        self.assertTrue(check_floors.OS_CONDITIONS.match("#if defined(_WIN32)"))
        self.assertTrue(check_floors.OS_CONDITIONS.match("  # ifdef __linux__"))
        self.assertFalse(check_floors.OS_CONDITIONS.match("#ifdef NDEBUG"))


class Floors(unittest.TestCase):
    def test_takes_the_longest_folder(self):
        self.assertEqual(check_floors.unit_of("platform/linux/rpc/call.cpp"), "platform/linux/rpc")
        self.assertEqual(check_floors.unit_of("platform/system.h"), "platform")
        self.assertEqual(check_floors.unit_of("elsewhere/a.h"), "")

    def test_allows_downward_only(self):
        self.assertIn("foundation", check_floors.allowed_for("changer"))
        self.assertNotIn("drive", check_floors.allowed_for("changer"))


if __name__ == "__main__":
    unittest.main()
