"""A laptop for the real nodod: what the daemon-* scripts share.

The bus and logind come from with-logind. On top of that a script gets a network of its own, in which
the laptop's default route can come and go, and power supplies of its own, whose changes are announced
as udev does. Waiting is always for a condition, and bounded.
"""

import json
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import time

import dbus
import dbus.bus

from expectations import check, skip, wait_until

NAME = "com.quintavel.nodo.helper"
OBJECT = "/com/quintavel/nodo/helper"
INTERFACE = "com.quintavel.nodo.Helper1"
NOBODY = 65534

folder = pathlib.Path(os.environ["NODO_E2E_DIR"])
address = os.environ["DBUS_SYSTEM_BUS_ADDRESS"]


def enter():
    """Begins again in namespaces of this script's own, unless that was done."""
    if "NODO_E2E_INSIDE" in os.environ:
        return
    os.environ["NODO_E2E_INSIDE"] = "yes"
    os.environ.pop("LD_PRELOAD", None)  # umockdev's devices are for logind alone
    command = ["unshare", "--net", "--mount", "--propagation", "private", "/usr/bin/python3", "-B"]
    os.execvp("unshare", command + sys.argv)


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


# ---- the laptop


class Network:
    """A network whose default route can come and go."""

    def __init__(self):
        made = subprocess.run(
            ["ip", "link", "add", "uplink", "type", "veth", "peer", "name", "router"],
            capture_output=True, check=False)
        if made.returncode != 0:
            skip("this machine offers no virtual network links")
        for end in ["uplink", "router"]:
            # No addresses that come by themselves, seconds later.
            run("ip", "link", "set", end, "addrgenmode", "none")
        run("ip", "link", "set", "router", "up")
        self.connect()

    def connect(self):
        run("ip", "link", "set", "uplink", "up")
        run("ip", "addr", "replace", "192.0.2.2/24", "dev", "uplink")
        run("ip", "route", "replace", "default", "via", "192.0.2.1", "dev", "uplink")

    def unplug(self):
        """The link goes down, and the kernel drops its routes without a message about them."""
        run("ip", "link", "set", "uplink", "down")


def hash_of(text):
    """The hash by which listeners to udev are filtered (MurmurHash2, seed 0)."""
    factor, mask = 0x5BD1E995, 0xFFFFFFFF
    data = text.encode()
    value = len(data)
    while len(data) >= 4:
        word = struct.unpack("<I", data[:4])[0] * factor & mask
        word = (word ^ word >> 24) * factor & mask
        value = (value * factor & mask) ^ word
        data = data[4:]
    if data:
        value = (value ^ int.from_bytes(data, "little")) * factor & mask
    value = (value ^ value >> 13) * factor & mask
    return value ^ value >> 15


class PowerSupplies:
    """A mains adapter and a battery in /sys, and udev's word of their changes."""

    def __init__(self):
        self.sequence = 0
        self.supplies = folder / f"power_supply.{os.getpid()}"
        self.write("AC", type="Mains", online=1)
        self.write("BAT0", type="Battery", present=1, status="Full", energy_now=40000000,
                   energy_full=50000000, capacity=80)
        if not os.path.isdir("/sys/class/power_supply"):
            skip("this machine's /sys knows no power supplies")
        run("mount", "--bind", self.supplies, "/sys/class/power_supply")

    def write(self, supply, **attributes):
        (self.supplies / supply).mkdir(parents=True, exist_ok=True)
        for name, value in attributes.items():
            (self.supplies / supply / name).write_text(f"{value}\n", encoding="ascii")

    def on_battery(self, percent):
        self.write("AC", online=0)
        self.write("BAT0", status="Discharging", energy_now=500000 * percent, capacity=percent)
        self.announce("AC")

    def on_mains(self):
        self.write("AC", online=1)
        self.announce("AC")

    def announce(self, supply):
        self.sequence += 1
        properties = "\0".join([
            "ACTION=change", f"DEVPATH=/devices/platform/power_supply/{supply}",
            "SUBSYSTEM=power_supply", f"SEQNUM={self.sequence}", ""]).encode()
        header = struct.pack("=8s8I", b"libudev", socket.htonl(0xFEEDCAFE), 40, 40,
                             len(properties), socket.htonl(hash_of("power_supply")), 0, 0, 0)
        with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 15) as udev:
            udev.bind((0, 0))
            udev.sendto(header + properties, (0, 2))


class Logind:
    """The real logind, and the stand-in for the service manager that it asks."""

    def __init__(self, bus):
        self.manager = dbus.Interface(
            bus.get_object("org.freedesktop.login1", "/org/freedesktop/login1"),
            "org.freedesktop.login1.Manager")
        self.properties = dbus.Interface(self.manager, "org.freedesktop.DBus.Properties")
        self.service_manager = dbus.Interface(
            bus.get_object("org.freedesktop.systemd1", "/org/freedesktop/systemd1"),
            "org.freedesktop.DBus.Mock")

    def locks(self):
        """The processes that hold a lock of nodo's."""
        return [int(pid) for what, who, why, mode, uid, pid in self.manager.ListInhibitors()
                if who == "nodo" and mode == "block"
                and set(what.split(":")) == {"sleep", "idle", "handle-lid-switch"}]

    def is_lid_closed(self):
        return bool(self.properties.Get("org.freedesktop.login1.Manager", "LidClosed"))

    def started_units(self):
        return [str(arguments[0])
                for when, arguments in self.service_manager.GetMethodCalls("StartUnit")]


# ---- the daemon


class Daemon:
    """A nodod on the private bus, with a state folder of its own."""

    def __init__(self, program, bus):
        self.program = program
        self.bus = bus
        self.state_folder = folder / f"state.{os.getpid()}"
        self.log_file = folder / f"nodod.{os.getpid()}.log"
        self.environment = {}  # beside this script's own
        self.process = None

    def start(self, *options):
        self.spawn(*options)
        wait_until(self.is_serving, "nodod takes its name")

    def spawn(self, *options):
        with open(self.log_file, "ab") as log:
            self.process = subprocess.Popen(
                [self.program, "--bus", "system", "--power", "logind", "--state-dir",
                 self.state_folder, *options], stdout=log, stderr=log,
                env={**os.environ, **self.environment})

    def is_serving(self):
        check(self.process.poll() is None, "nodod ended by itself")
        try:
            owner = self.bus.get_name_owner(NAME)
            return self.bus.call_blocking(
                "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "GetConnectionUnixProcessID", "s", (owner,)) == self.process.pid
        except dbus.DBusException:
            return False

    def terminate(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(10)

    def kill(self):
        self.process.kill()
        self.process.wait(10)

    def end(self):
        if self.process is not None and self.process.poll() is None:
            self.kill()

    def log(self):
        return self.log_file.read_text(encoding="utf-8") if self.log_file.exists() else ""

    def call(self, method, signature="", *arguments):
        """The reply's envelope."""
        return json.loads(self.bus.call_blocking(NAME, OBJECT, INTERFACE, method, signature,
                                                 arguments, timeout=10))

    def status(self):
        return self.call("Status")["status"]

    def manual(self, minutes):
        return self.call("EnableManual", "x", minutes)["status"]

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
    """Runs `test(daemon, logind)` on a laptop of its own. The daemon is the first argument."""
    enter()
    bus = dbus.bus.BusConnection(address)
    daemon = Daemon(sys.argv[1], bus)
    try:
        test(daemon, Logind(bus))
    except AssertionError as error:
        print(f"FAILED: {error}\nnodod said at last:\n{daemon.log()[-2000:]}", file=sys.stderr)
        sys.exit(1)
    finally:
        daemon.end()
