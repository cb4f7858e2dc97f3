"""The processes of a test, which end with it at the latest; what they say, and what they use."""

import atexit
import os
import pathlib
import pwd
import queue
import signal
import subprocess
import threading
import time

from expectations import PATIENCE, equal

NOBODY = 65534  # one who exists, as a bus wants it


def start(*command, **options):
    """Starts a process that ends with this script at the latest, also with one that fails."""
    # pylint: disable-next=consider-using-with  # it outlives this function
    process = subprocess.Popen(command, **options)
    atexit.register(process.kill)
    return process


def as_user(user):
    """The options of a process that is another user's, in the groups that a login gives, or one's
    own for none."""
    if user is None:
        return {}
    known = pwd.getpwuid(user)
    return {"user": user, "group": known.pw_gid,
            "extra_groups": os.getgrouplist(known.pw_name, known.pw_gid)}


def environment(**changes):
    """This script's environment, changed so."""
    return {**os.environ, **changes}


class Driven:
    """A process whose lines of standard output and standard error are taken one by one."""

    def __init__(self, *command, **options):
        self.process = start(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True, bufsize=1, **options)
        self.pid = self.process.pid
        self.lines = self._read(self.process.stdout)
        self.errors = self._read(self.process.stderr)

    @staticmethod
    def _read(stream):
        lines = queue.Queue()

        def pump():
            for line in stream:
                lines.put(line.rstrip("\n"))
            lines.put(None)

        threading.Thread(target=pump, daemon=True).start()
        return lines

    @staticmethod
    def _next(lines, what):
        try:
            return lines.get(timeout=PATIENCE)
        except queue.Empty:
            raise AssertionError(f"no line came: {what}") from None

    def next_line(self, what="output"):
        return self._next(self.lines, what)

    def next_error(self, what="error"):
        return self._next(self.errors, what)

    def expect(self, *expected):
        for line in expected:
            equal(self.next_line(line), line, "the next line")

    def tell(self, line):
        self.process.stdin.write(line + "\n")

    def ask(self, command):
        self.tell(command)
        return self.next_line("the answer to " + command)

    def end(self, with_signal=signal.SIGTERM):
        self.process.send_signal(with_signal)
        return self.process.wait(timeout=PATIENCE)

    def descriptors(self):
        """How many it keeps open: it may just now have one more, to ask the bus who somebody is."""
        counts = []
        for _ in range(20):
            counts.append(len(os.listdir(f"/proc/{self.pid}/fd")))
            time.sleep(0.005)
        return min(counts)


def number_in(file, key):
    """What a file of /proc gives for a key, as in 'VmHWM:   1234 kB'."""
    for line in pathlib.Path(file).read_text(encoding="utf-8").splitlines():
        if line.startswith(f"{key}:"):
            return int(line.split()[1])
    raise AssertionError(f"{file} has no {key}")


def switches(pid):
    """How often a process's threads gave up the processor and were woken again."""
    return sum(number_in(status, "voluntary_ctxt_switches")
               for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"))


def settled_switches(pid):
    """Their number once it no longer changes from one look to the next."""
    before = None
    for _ in range(100):
        now = switches(pid)
        if now == before:
            return now
        before = now
        time.sleep(0.5)
    raise AssertionError("the process never came to rest")
