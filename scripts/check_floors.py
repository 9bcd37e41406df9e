#!/usr/bin/env python3
"""Holds the sources against the rules of the house: floors, operating system headers, direct clocks, file length.

Prints one line for each breach and exits 1 when there is any.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MAX_LINES = 800

# Ground first. A folder may include from its own floor's folder and from those named here.
CORE = ["platform", "foundation", "changer", "drive", "records", "command", "host"]
ALLOWED = {name: set(CORE[: index + 1]) for index, name in enumerate(CORE)}
IMPLEMENTATIONS = {
    "platform/device_stack": {"platform", "foundation", "platform/device_stack"},
    "platform/virtual_library": {"platform", "foundation", "platform/device_stack", "platform/virtual_library"},
    "platform/testing": {"platform", "foundation", "platform/device_stack", "platform/testing"},
    "platform/linux/rpc": {"platform", "foundation", "platform/linux/rpc"},
    "platform/linux/scsi": {"platform", "foundation", "platform/device_stack", "platform/linux/scsi"},
    "platform/linux": {"platform", "foundation", "platform/device_stack", "platform/virtual_library",
                       "platform/linux", "platform/linux/rpc", "platform/linux/scsi"},
    "console": {"platform", "foundation", "console", "platform/linux", "platform/linux/rpc"},
    "programs": None,  # the entry names whatever it installs
}

# Headers of an operating system: only below platform/ (the Linux ones below platform/linux) and in the programs.
OS_HEADERS = re.compile(
    r"^(windows|winsock2?|ws2tcpip|rpc\w*|ntdd\w*|setupapi|cfgmgr32|dbghelp|shlobj|lm|unistd|fcntl|pthread|dlfcn|poll|"
    r"signal|syslog|termios|dirent|pwd|grp|netdb|sys/.*|linux/.*|scsi/.*|arpa/.*|netinet/.*|net/.*|iscsi/.*|systemd/.*)\.h$")
OS_CONDITIONS = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*\b(_WIN32|_WIN64|WIN32|__linux__|__unix__|__MINGW\w*)\b")
DIRECT_CALLS = re.compile(
    r"std::this_thread::sleep|boost::this_thread::sleep|\b(usleep|nanosleep|Sleep|SleepEx|GetTickCount)\s*\(|"
    # A name in front of the function's own, other than a keyword, makes it a declaration of something of that name.
    r"(?:^|[^\w\s:.>]|\b(?:return|else|do|case|throw|co_return)\b)\s*(?:::\s*)?(sleep|time|rand|srand|clock)\s*\(|"
    r"std::(time|rand|srand|clock)\s*\(|"
    r"(system_clock|steady_clock|high_resolution_clock)::now|std::random_device|microsec_clock|second_clock")
XML_PARSER = re.compile(r"^tinyxml\.h$")


def unit_of(path):
    """The folder that counts as a floor for a path relative to src."""
    best = ""
    for name in list(ALLOWED) + list(IMPLEMENTATIONS):
        if (path == name or path.startswith(name + "/")) and len(name) > len(best):
            best = name
    return best


def allowed_for(unit):
    return ALLOWED[unit] if unit in ALLOWED else IMPLEMENTATIONS[unit]


def without_comments(text):
    text = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group(0).count("\n"), text, flags=re.S)
    text = re.sub(r'"(\\.|[^"\\\n])*"', '""', text)
    return re.sub(r"//[^\n]*", "", text)


def check_source(path, breaches):
    relative = path.relative_to(ROOT / "src").as_posix()
    unit = unit_of(relative)
    if not unit:
        breaches.append(f"src/{relative}: lies on no floor")
        return
    text = path.read_text(encoding="utf-8")
    allowed = allowed_for(unit)
    native = relative.startswith(("platform/linux/", "platform/windows/", "programs/", "console/"))
    for number, line in enumerate(text.splitlines(), 1):
        include = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
        if include:
            header = include.group(2)
            if include.group(1) == '"':
                target = unit_of(header)
                if not target:
                    breaches.append(f"src/{relative}:{number}: {header} is not named from src/")
                elif allowed is not None and target not in allowed:
                    breaches.append(f"src/{relative}:{number}: {unit} must not include {header}")
            elif not native and OS_HEADERS.match(header):
                breaches.append(f"src/{relative}:{number}: operating system header {header}")
            elif XML_PARSER.match(header) and not relative.startswith("foundation/winxml/"):
                breaches.append(f"src/{relative}:{number}: the XML parser is used behind winxml only")
        elif not native and OS_CONDITIONS.match(line):
            breaches.append(f"src/{relative}:{number}: operating system condition outside platform/")
    if not native and unit != "platform":
        for number, line in enumerate(without_comments(text).splitlines(), 1):
            if DIRECT_CALLS.search(line):
                breaches.append(f"src/{relative}:{number}: direct clock, sleep or random call")


def tracked_files():
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    return [ROOT / name for name in listed if name and (ROOT / name).is_file()]


def main():
    breaches = []
    files = tracked_files()
    for path in files:
        if path.suffix not in (".cpp", ".h", ".py", ".sh"):
            continue
        if path.suffix in (".cpp", ".h") and (ROOT / "src") in path.parents:
            check_source(path, breaches)
        lines = path.read_text(encoding="utf-8").count("\n")
        if lines > MAX_LINES:
            breaches.append(f"{path.relative_to(ROOT)}: {lines} lines, {MAX_LINES} at most")
    for folder in sorted({p.parent for p in files if (ROOT / "src") in p.parents and p.suffix in (".cpp", ".h")}):
        unit = unit_of(folder.relative_to(ROOT / "src").as_posix())
        if unit and not (ROOT / "src" / unit / "README.md").is_file():
            breaches.append(f"src/{unit}: has no README.md")
    for breach in sorted(set(breaches)):
        print(breach)
    print(f"floors: {len(set(breaches))} breaches in {len(files)} files")
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
