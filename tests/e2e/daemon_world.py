"""The real nodod beside the real logind: what the daemon-* scripts share.

They run by with-logind and 'unshare --net'. Waiting is always for a condition, and bounded.
"""

import json
import os
import signal
import subprocess
import sys
import time

import dbus

from buses import BUS, HELPER, LOGIND
from clients import connect
from expectations import check, wait_until
from laptop import FOLDER
from processes import environment, start


class Logind:
    """The real logind, and the stand-in for the service manager that it asks."""

    def __init__(self, bus):
        self.bus = bus
        self.manager = dbus.Interface(bus.get_object(*LOGIND[:2]), LOGIND[2])
        self.properties = dbus.Interface(self.manager, "org.freedesktop.DBus.Properties")
        self.service_manager = dbus.Interface(
            bus.get_object("org.freedesktop.systemd1", "/org/freedesktop/systemd1"),
            "org.freedesktop.DBus.Mock")
        self.held = []

    def locks(self):
        """The processes that hold a lock of nodo's, each once: one that is taken anew stands for
        a moment beside the one before it."""
        return sorted({pid for pid, what, why in self.inhibitors()
                       if {"sleep", "handle-lid-switch"} <= set(what.split(":"))})

    def inhibitors(self):
        """The holder, the kinds and the reason of all that bears nodo's name and blocks."""
        return [(int(pid), str(what), str(why))
                for what, who, why, mode, uid, pid in self.manager.ListInhibitors()
                if who == "nodo" and mode == "block"]

    def create_session(self):
        """A person's session at a desktop, as a display manager makes it; its object's path."""
        leader = start("/bin/cat", stdin=subprocess.PIPE)
        _, path, _, alive, *_ = self.manager.CreateSession(
            0, leader.pid, "display-manager", "x11", "user", "", "", 0, "", "", False, "", "",
            dbus.Array([], signature="(sv)"))
        self.held.append(alive)
        return str(path)

    def set_idle(self, session):
        desktop = dbus.Interface(self.bus.get_object(LOGIND[0], session),
                                 "org.freedesktop.login1.Session")
        desktop.SetIdleHint(True)

    def property(self, name):
        return self.properties.Get(LOGIND[2], name)

    def started_units(self):
        return [str(arguments[0])
                for when, arguments in self.service_manager.GetMethodCalls("StartUnit")]


class Daemon:
    """A nodod on the private bus, with a state folder of its own."""

    def __init__(self, program, bus):
        self.program = program
        self.power = "logind"
        self.bus = bus
        self.state_folder = FOLDER / f"state.{os.getpid()}"
        self.log_file = FOLDER / f"nodod.{os.getpid()}.log"
        self.environment = environment()
        self.process = None

    def start(self, *options):
        self.spawn(*options)
        wait_until(self.is_serving, "nodod takes its name")

    def spawn(self, *options):
        with open(self.log_file, "ab") as log:
            self.process = start(*self.command(), *options, stdout=log, stderr=log,
                                 env=self.environment)

    def command(self):
        return [self.program, "--bus", "system", "--power", self.power, "--state-dir",
                self.state_folder]

    def is_serving(self):
        check(self.process.poll() is None, "nodod ended by itself")
        try:
            return self.bus.call_blocking(*BUS, "GetConnectionUnixProcessID", "s",
                                          HELPER[:1]) == self.process.pid
        except dbus.DBusException:
            return False

    def terminate(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(10)

    def kill(self):
        self.process.kill()
        self.process.wait(10)

    def log(self):
        return self.log_file.read_text(encoding="utf-8") if self.log_file.exists() else ""

    def call(self, method, signature="", arguments=()):
        """The reply's envelope."""
        return json.loads(self.bus.call_blocking(*HELPER, method, signature, arguments,
                                                 timeout=10))

    def status(self):
        return self.call("Status")["status"]

    def manual(self, minutes):
        return self.call("EnableManual", "x", (minutes,))["status"]

    def stop(self):
        return self.call("Stop")["status"]

    # ---- what is on disk

    def state(self):
        return json.loads((self.state_folder / "state.json").read_text(encoding="utf-8"))

    def put_timer(self, seconds, **fields):
        """A state as an earlier daemon left it, whose timer ends then."""
        now = time.time()
        state = {"manualUntil": date(now + seconds), "ownsSleepDisable": False,
                 "createdAt": date(now), "updatedAt": date(now), **fields}
        self.state_folder.mkdir(exist_ok=True)
        (self.state_folder / "state.json").write_text(json.dumps(state), encoding="utf-8")

    def audits(self):
        return [audit["reason"] for audit in self.state().get("powerOperationHistory", [])]


def date(seconds):
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds))


def main(test):
    """Runs `test(daemon, logind)`. The daemon is the first argument."""
    bus = connect()
    daemon = Daemon(sys.argv[1], bus)
    try:
        test(daemon, Logind(bus))
    except AssertionError as error:
        print(f"FAILED: {error}\nnodod said at last:\n{daemon.log()[-2000:]}", file=sys.stderr)
        sys.exit(1)
