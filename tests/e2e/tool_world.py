"""A message bus, a daemon and terminals of a test's own, for tests of the tool's real program."""

import atexit
import contextlib
import fcntl
import json
import os
import pathlib
import pty
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

from buses import PrivateBus
from expectations import check, skip, wait_until
from processes import start

PATIENCE = 30  # seconds for what must happen at all


class World:
    """Everything lies in a folder that is gone afterwards, and every process of it is ended."""

    def __init__(self, nodoctl, nodod):
        for program in ["dbus-daemon", "busctl"]:
            if shutil.which(program) is None:
                skip(f"{program} is not installed")
        self.nodoctl = nodoctl
        self.nodod = nodod
        # In memory if possible, so that nobody measures how long a disk takes to sync.
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK | os.X_OK) else None
        self.folder = tempfile.mkdtemp(prefix="nodo-tool-", dir=memory)
        self.processes = []
        pathlib.Path(self.folder, "log").touch()
        atexit.register(self.end)
        self.bus = PrivateBus(self.folder)
        self.processes.append(self.bus.process)
        self.address = self.bus.address
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": self.folder,
            "NODO_HOOK_LOG": f"{self.folder}/hook.log",
            "DBUS_SYSTEM_BUS_ADDRESS": self.address,
            "TERM": "xterm",
            "LANG": "C.UTF-8",
            **{key: value for key, value in os.environ.items() if "SAN_OPTIONS" in key},
        }

    def start(self, command, **options):
        with open(f"{self.folder}/log", "ab") as log:
            process = start(*command, env=self.environment, stdin=subprocess.DEVNULL, stderr=log,
                            **options)
        self.processes.append(process)
        return process

    def start_daemon(self):
        daemon = self.start(
            [self.nodod, "--bus", self.address, "--state-dir", f"{self.folder}/daemon"]
            + ["--power", "simulated"]
        )
        wait_until(lambda: self.run("status").stderr == "", "the daemon answers")
        return daemon

    def run(self, *arguments, **options):
        return subprocess.run(
            [self.nodoctl, *arguments],
            check=False,
            **{
                "env": self.environment,
                "stdin": subprocess.DEVNULL,
                "capture_output": True,
                "text": True,
                "timeout": PATIENCE,
                **options,
            },
        )

    def status(self):
        return json.loads(self.run("status", "--json").stdout)

    def end(self):
        for process in self.processes:
            with contextlib.suppress(ProcessLookupError):
                process.send_signal(signal.SIGCONT)
                process.kill()
            process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)


class Terminal:
    """A terminal on which a program is the one that keys go to, as in a window of its own."""

    def __init__(self, environment, command, columns=80, rows=24):
        self.output = b""
        self.usage = None  # of the processor, once it has ended
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
            os.execvpe(command[0], command, environment)

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def press(self, keys):
        os.write(self.master, keys)

    def read(self, seconds):
        """Takes in what comes within that time; false once the terminal has ended."""
        if not select.select([self.master], [], [], seconds)[0]:
            return True
        try:
            data = os.read(self.master, 65536)
        except OSError:  # nobody holds its other end
            data = b""
        self.output += data
        return data != b""

    def expect(self, text, count=1):
        end = time.monotonic() + PATIENCE
        while self.output.count(text) < count:
            check(time.monotonic() < end and self.read(0.1), f"never: {text!r} in {self.output!r}")

    def echoes(self):
        return bool(termios.tcgetattr(self.master)[3] & termios.ECHO)

    def finish(self):
        """Reads to the end and gives the exit status, negative for a signal."""
        end = time.monotonic() + PATIENCE
        while self.read(0.1):
            check(time.monotonic() < end, f"never ends: {self.output!r}")
        _, status, self.usage = os.wait4(self.pid, 0)
        return os.waitstatus_to_exitcode(status)


def main(*tests):
    """Runs tests, each in a world of its own.

    usage: SCRIPT NODOCTL NODOD
    """
    for test in tests:
        world = World(*sys.argv[1:3])
        try:
            test(world)
        except BaseException:
            with open(f"{world.folder}/log", encoding="utf-8", errors="replace") as log:
                print(f"--- {test.__name__}\n{log.read()}---", file=sys.stderr)
            raise
        finally:
            world.end()
        print(f"ok: {test.__name__}")
