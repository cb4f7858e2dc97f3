#!/usr/bin/python3 -B
"""Without a lock the daemon sleeps without a single wake-up, and with one too it is a single thread. Run by
with-logind.

usage: daemon-idle.py NODOD
"""

import pathlib
import time

from daemon_world import Network, PowerSupplies, main
from expectations import equal

SECONDS = 20


def switches(pid):
    """How often its threads gave up the processor and were woken again."""
    total = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        for line in status.read_text(encoding="ascii").splitlines():
            if line.startswith("voluntary_ctxt_switches:"):
                total += int(line.split()[1])
    return total


def threads(pid):
    return len(list(pathlib.Path(f"/proc/{pid}/task").iterdir()))


def settled_switches(pid):
    """Their number once it no longer changes from one look to the next."""
    before = None
    for _ in range(100):
        now = switches(pid)
        if now == before:
            return now
        before = now
        time.sleep(0.2)
    raise AssertionError("the daemon never came to rest")


def pss(pid):
    for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii").splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1])
    raise AssertionError("no Pss")


def test(daemon, logind):
    Network()
    PowerSupplies()
    daemon.start()
    daemon.manual(20)
    equal(logind.locks(), [daemon.process.pid], "the lock")
    equal(threads(daemon.process.pid), 1, "threads with a lock")
    daemon.stop()
    equal(logind.locks(), [], "no lock")
    before = settled_switches(daemon.process.pid)
    time.sleep(SECONDS)  # a measurement of quiet takes its time
    equal(switches(daemon.process.pid) - before, 0, f"wake-ups in {SECONDS} s")
    equal(threads(daemon.process.pid), 1, "threads without a lock")
    logind_pid = daemon.bus.call_blocking(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetConnectionUnixProcessID", "s", ("org.freedesktop.login1",))
    print(f"Pss: nodod {pss(daemon.process.pid)} KiB, systemd-logind {pss(logind_pid)} KiB")


main(test)
