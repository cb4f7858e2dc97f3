"""The bus of a test: who is on it, how busctl asks them, and how to have one of one's own."""

import json
import os
import pathlib
import subprocess

from expectations import PATIENCE, equal, listens, skip, wait_until
from processes import Driven, as_user, environment, start

# Each is a name on the bus, an object and an interface.
BUS = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
HELPER = ("com.quintavel.nodo.helper", "/com/quintavel/nodo/helper", "com.quintavel.nodo.Helper1")
LOGIND = ("org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager")
POLKIT = "org.freedesktop.PolicyKit1"
STAND_IN_FOR_LOGIND = (*LOGIND[:2], "org.freedesktop.DBus.Mock")


def _busctl(arguments, bus):
    return ["busctl", "--json=short", f"--address={bus}" if bus else "--system", *arguments]


def busctl(*arguments, user=None, bus=None):
    """What comes of busctl on the system bus or another, as another user if wanted."""
    return subprocess.run(_busctl(arguments, bus), text=True, capture_output=True, check=False,
                          timeout=PATIENCE, **as_user(user))


def call(target, member, *arguments, **options):
    return busctl("call", "--", *target, member, *arguments, **options)


def start_call(target, member, *arguments, user=None):
    """The process of a call that is not waited for."""
    return start(*_busctl(["--timeout=30", "call", "--", *target, member, *arguments], None),
                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **as_user(user))


def monitor(rule):
    """A process that says each message of the system bus that fits the rule, as JSON."""
    listener = Driven(*_busctl(["monitor", "--match", rule], None))
    listener.next_error("it listens")
    return listener


def reply_of(result):
    equal(result.returncode, 0, f"the call's exit status ({result.stderr})")
    data = json.loads(result.stdout)["data"]
    return data[0] if len(data) == 1 else data


def process_of(name, **options):
    """Who has a name on the bus; nothing if nobody has."""
    result = call(BUS, "GetConnectionUnixProcessID", "s", name, **options)
    return None if result.returncode else reply_of(result)


def start_polkitd():
    """The real one, in its system's place."""
    polkitd = "/usr/lib/polkit-1/polkitd"
    if not os.path.exists(polkitd):
        skip("polkitd is not installed")
    process = start(polkitd, "--no-debug", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(lambda: process_of(POLKIT) == process.pid, "polkitd is there", PATIENCE)
    return process


def start_stand_in_for_logind(bus=None):
    logind = start("/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind",
                   stdout=subprocess.DEVNULL,
                   env=environment(**({"DBUS_SYSTEM_BUS_ADDRESS": bus} if bus else {})))
    wait_until(lambda: process_of(LOGIND[0], bus=bus) == logind.pid, "the stand-in is there",
               PATIENCE)
    return logind


def announce(interface, signal, *arguments, bus=None):
    """Lets the stand-in for logind send a signal."""
    sent = call(STAND_IN_FOR_LOGIND, "EmitSignal", "sssav", interface, signal, *arguments, bus=bus)
    equal(sent.returncode, 0, f"the exit status of announcing {signal} ({sent.stderr})")


class PrivateBus:
    """A bus on which everybody may do everything, with its files in a folder."""

    def __init__(self, folder, user=None):
        self.user = user
        self.config = pathlib.Path(folder) / "bus.conf"
        self.path = f"{folder}/bus"
        self.address = f"unix:path={self.path}"
        self._configure()
        self.start()

    def limit(self, **limits):
        """While it runs, to these and no others."""
        self._configure(**limits)
        equal(call(BUS, "ReloadConfig", bus=self.address).returncode, 0, "the new limits")

    def _configure(self, **limits):
        template = pathlib.Path(__file__).with_name("bus.conf.in").read_text(encoding="utf-8")
        rows = [f'  <limit name="{name}">{value}</limit>\n' for name, value in limits.items()]
        self.config.write_text(template.replace("@SOCKET@", self.path)
                               .replace("</busconfig>", "".join(rows) + "</busconfig>"),
                               encoding="utf-8")

    def start(self):
        self.process = start("dbus-daemon", f"--config-file={self.config}", "--nofork",
                             "--nopidfile", stderr=subprocess.DEVNULL, **as_user(self.user))
        wait_until(lambda: listens(self.path), "the bus listens", PATIENCE)

    def kill(self):
        self.process.kill()
        self.process.wait()
        pathlib.Path(self.path).unlink(missing_ok=True)
