"""What the scripts share that drive nodo_daemon_driver: processes whose lines are awaited."""
import atexit
import json
import os
import queue
import signal
import subprocess
import threading
import time

from expectations import equal

LOGIND = ("org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager")
HELPER = ("com.quintavel.nodo.helper", "/com/quintavel/nodo/helper", "com.quintavel.nodo.Helper1")
PATIENCE = 20  # seconds, for machines that have much else to do


class Driven:
    """A process whose lines of standard output and standard error are taken one by one. It ends with
    the script at the latest, also with one that fails."""

    def __init__(self, *command, **options):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            text=True, bufsize=1, **options)
        atexit.register(self.process.kill)
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

    def ask(self, command):
        self.process.stdin.write(command + "\n")
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

    def switches(self):
        with open(f"/proc/{self.pid}/status", encoding="utf-8") as status:
            for line in status:
                if line.startswith("voluntary_ctxt_switches"):
                    return int(line.split()[1])
        raise AssertionError("the kernel counts no context switches")


def busctl(*arguments, user=None, bus=None):
    """Runs busctl, as another user if wanted; returns what it printed."""
    command = ["busctl", "--json=short"]
    command += ["--address=" + bus] if bus else ["--system"]
    options = {"user": user, "group": user, "extra_groups": []} if user else {}
    return subprocess.run(command + list(arguments), text=True, capture_output=True, check=False,
                          timeout=PATIENCE, **options)


def call(target, member, *arguments, **options):
    return busctl("call", "--", *target, member, *arguments, **options)


def reply_of(result):
    equal(result.returncode, 0, f"the call's exit status ({result.stderr})")
    data = json.loads(result.stdout)["data"]
    return data[0] if len(data) == 1 else data


def inhibitors():
    return reply_of(call(LOGIND, "ListInhibitors"))


def our_locks(pid):
    return [i for i in inhibitors() if i[1] == "nodo" and i[5] == pid]
