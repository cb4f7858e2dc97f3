#!/usr/bin/python3 -B
"""Without a lock the daemon sleeps without a single wake-up, and it is always a single thread.

usage: daemon-idle.py NODOD
"""

import pathlib
import time

from buses import LOGIND, process_of
from daemon_world import main
from expectations import equal
from laptop import Network, PowerSupplies
from processes import number_in, settled_switches, switches

SECONDS = 20


def threads(pid):
    return len(list(pathlib.Path(f"/proc/{pid}/task").iterdir()))


def pss(pid):
    return number_in(f"/proc/{pid}/smaps_rollup", "Pss")


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
    print(f"Pss: nodod {pss(daemon.process.pid)} KiB, "
          f"systemd-logind {pss(process_of(LOGIND[0]))} KiB")


main(test)
