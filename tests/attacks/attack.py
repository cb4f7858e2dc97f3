"""What every attack has: its size, its seed, the daemon, and the lock as the machine itself says.

Whether the machine has logind or is a stand-in of a Mac, an attack need not know. What it draws by
lot follows from the seed; how the processes' turns fall does not.
"""

import argparse
import calendar
import os
import pathlib
import random
import sys
import time

import dbus

from clients import connect
from daemon_world import Daemon, Logind
from expectations import PATIENCE, check, wait_until
from laptop import FOLDER, Network, PowerSupplies
from mac_world import MARK, MacDaemon

IS_MAC = "NODO_E2E_MAC" in os.environ
LONGEST = 720 * 60  # seconds, of a timer


class World:
    """A machine with a daemon, its disk, and its sleep lock."""

    def __init__(self, build):
        programs = pathlib.Path(build) / "programs"
        nodod = programs / "nodod/nodod"
        self.tally = pathlib.Path(build) / "tests/e2e/libnodo_heap_tally.so"
        self.civil_clock = pathlib.Path(build) / "tests/attacks/libnodo_civil_clock.so"
        bus = connect()
        if IS_MAC:
            self.daemon = MacDaemon(nodod, programs / "nodoctl/nodoctl", bus)
            self.daemon.renew()
        else:
            Network()
            PowerSupplies()
            self.daemon = Daemon(nodod, bus)
            self.logind = Logind(bus)

    def lock_is_on(self):
        if IS_MAC:
            return self.daemon.mac.sleep_is_disabled()
        return bool(self.logind.locks())

    def await_lock(self, stands, what, limit=PATIENCE):
        wait_until(lambda: self.lock_is_on() == stands,
                   f"the lock is {'on' if stands else 'off'} {what}", limit)

    def await_end_of_the_killed(self):
        """What a lock leaves of a process that is gone."""
        if IS_MAC:
            check(MARK.exists() or not self.lock_is_on(), "a lock that stays has its mark")
        else:
            self.await_lock(False, "when its daemon was killed")

    def start(self):
        """Its first pass is done then."""
        self.daemon.spawn()
        self.await_serving()
        self.daemon.call("Status")

    def await_serving(self):
        wait_until(self.daemon.is_serving, "nodod takes its name", PATIENCE)

    def has_ended(self):
        return not self.daemon.process or self.daemon.process.poll() is not None

    def reconnect(self):
        """To a bus and a logind that are others by now."""
        self.daemon.bus = connect()
        self.logind = Logind(self.daemon.bus)


def ask(daemon, method, signature="", arguments=()):
    """The status that is answered, and nothing; or nothing, and why."""
    try:
        reply = daemon.call(method, signature, arguments)
    except dbus.DBusException as error:
        return None, error.get_dbus_name()
    if "error" in reply:
        return None, reply["error"]
    return reply.get("status") or reply["run"]["status"], None


def seconds_of(text):
    """Since 1970, of a date in the state; nothing of none."""
    return None if text is None else calendar.timegm(
        time.strptime(text, "%Y-%m-%dT%H:%M:%SZ"))


def small_disk(size="4m", inodes=256):
    """A disk of the attack's own, which can be filled."""
    disk = FOLDER / "disk"
    disk.mkdir()
    check(os.system(f"mount -t tmpfs -o size={size},nr_inodes={inodes} tmpfs {disk}") == 0,
          "a disk in memory")
    return disk


def fill(disk):
    """Until not a byte more can be written there."""
    with open(disk / "fill", "wb", buffering=0) as file:
        try:
            while file.write(bytes(4096)):
                pass
        except OSError:
            return


def main(attack):
    """Runs `attack(world, is_full)`, which returns what is told of it, as a text each. The argument
    is the build."""
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--full", action="store_true")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    options = parser.parse_args()
    name = pathlib.Path(sys.argv[0]).stem + ("-mac" if IS_MAC else "")
    random.seed(options.seed)
    began = time.monotonic()
    world = World(options.build)
    try:
        told = attack(world, options.full)
    except Exception as error:
        print(f"{name} (seed {options.seed}): FAILED: {error!r}\nnodod said at last:\n"
              f"{world.daemon.log()[-2000:]}", file=sys.stderr)
        raise
    print(f"{name} (seed {options.seed}): {', '.join(told)}; {time.monotonic() - began:.0f} s",
          flush=True)
