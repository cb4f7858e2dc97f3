"""A laptop made of files and a network of its own, for what with-logind and 'unshare --net' run.

Its default route can come and go, and its power supplies change, which is announced as udev does.
Its heat and its firmware's profile change, of which nobody tells.
"""

import os
import pathlib
import socket
import struct
import subprocess

from expectations import skip

FOLDER = pathlib.Path(os.environ["NODO_E2E_DIR"])


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


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


def udev_says_changed(subsystem, device):
    """To the listeners in this network, of whom there are none but the daemon's."""
    properties = "\0".join(["ACTION=change", f"DEVPATH=/devices/platform/{subsystem}/{device}",
                            f"SUBSYSTEM={subsystem}", "SEQNUM=7", ""]).encode()
    header = struct.pack("=8s8I", b"libudev", socket.htonl(0xFEEDCAFE), 40, 40, len(properties),
                         socket.htonl(hash_of(subsystem)), 0, 0, 0)
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 15) as udev:
        udev.bind((0, 0))
        udev.sendto(header + properties, (0, 2))


def write(device, **attributes):
    """The files of a device below /sys."""
    device.mkdir(parents=True, exist_ok=True)
    for name, value in attributes.items():
        (device / name).write_text(f"{value}\n", encoding="ascii")


class PowerSupplies:
    """A mains adapter and a battery in /sys, and udev's word of their changes."""

    FULL = {"status": "Full", "energy_now": 40000000, "energy_full": 50000000, "capacity": 80}

    def __init__(self, online=1, **battery):
        self.supplies = FOLDER / f"power_supply.{os.getpid()}"
        self.write("AC", type="Mains", online=online)
        self.write("BAT0", type="Battery", present=1, **(battery or self.FULL))
        if not os.path.isdir("/sys/class/power_supply"):
            skip("this machine's /sys knows no power supplies")
        run("mount", "--bind", self.supplies, "/sys/class/power_supply")

    def write(self, supply, **attributes):
        write(self.supplies / supply, **attributes)

    def say(self, supply, **attributes):
        """Changes them, and has it announced."""
        self.write(supply, **attributes)
        udev_says_changed("power_supply", supply)

    def on_battery(self, percent):
        self.write("BAT0", status="Discharging", energy_now=500000 * percent, capacity=percent)
        self.say("AC", online=0)

    def on_mains(self):
        self.say("AC", online=1)


class Firmware:
    """A thermal zone in /sys, at whose 100 °C the machine would switch itself off, and the profile
    that the firmware runs by."""

    def __init__(self):
        if not os.path.isdir("/sys/class/thermal"):
            skip("this machine's /sys knows no thermal zones")
        self.classes = FOLDER / f"thermal.{os.getpid()}"
        self.tables = FOLDER / f"firmware.{os.getpid()}"
        write(self.classes / "thermal_zone0", type="acpitz", trip_point_0_type="critical",
              trip_point_0_temp=100000)
        self.cool()
        self.profile("balanced")
        run("mount", "--bind", self.classes, "/sys/class/thermal")
        run("mount", "--bind", self.tables, "/sys/firmware")

    def heat(self, celsius):
        write(self.classes / "thermal_zone0", temp=celsius * 1000)

    def cool(self):
        self.heat(45)

    def profile(self, name):
        write(self.tables / "acpi", platform_profile=name)
