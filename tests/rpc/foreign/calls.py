"""What the callers share: how they are called, what they send, and what they print.

    NAME_caller.py PORT USER PASSWORD HOST MECHANISM:LEVEL...

HOST is the host of the service in Kerberos. Each wish is a connection of its own, with calls of several sizes, whose bytes come back
in reverse order behind a line about the caller. Prints for each a line "MECHANISM:LEVEL ANSWER", where ANSWER is that line, or "refused"
and why. Never waits longer than two minutes.
"""

import signal
import sys

SIZES = (100, 0, 16, 20001, 7)


def answer_of(call):
    """The line about the caller. `call` takes the number of the call and its bytes, and gives the answer's."""
    lines = set()
    for number, size in enumerate(SIZES):
        stub = bytes(index % 251 for index in range(size))
        line, _, rest = call(number, stub).partition(b"\n")
        if rest[::-1][: len(stub)] != stub:  # a verification trailer may have come behind it
            return "spoilt"
        lines.add(line.decode())
    return " | ".join(sorted(lines))


def make(connection):
    """`connection` takes port, user, password, host, mechanism and level, makes the calls, and gives the answer."""
    signal.alarm(120)
    port, user, password, host = sys.argv[1:5]
    for wish in sys.argv[5:]:
        mechanism, level = wish.split(":")
        try:
            answer = connection(port, user, password, host, mechanism, int(level))
        except Exception as error:  # whatever it is, it is the answer
            answer = "refused %s: %s" % (type(error).__name__, " ".join(str(error).split()))
        print(wish, answer, flush=True)
