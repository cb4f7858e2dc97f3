#!/usr/bin/python3 -B
"""What wakes the daemon's loop: routes, power supplies, the lid, the end of a sleep; and what does not.

usage: machine-news.py DRIVER, run by with-logind in a network namespace of its own
"""
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time

from driven import HELPER, LOGIND, PATIENCE, Driven, busctl, call, reply_of
from expectations import check, equal, skip, wait_until

driver = sys.argv[1]
folder = os.environ["NODO_E2E_DIR"]
data = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../data/lid")


def ip(*arguments):
    subprocess.run(["ip", *arguments], check=True)


def expect_next_is_a_request(loop):
    """Nothing else has come before: what was sent earlier has been looked at by then."""
    call(HELPER, "Reconcile")
    loop.expect("request reconcile")


def settle(loop):
    """Waits until the loop has dealt with all that the kernel sent so far: its timer for that
    lasts a tenth of a second, one set now for three fires after it."""
    reply_of(call(HELPER, "EnableManualV2", "xba{sv}", "300", "true", "1", "name", "s", "timer"))
    loop.expect("request enableManualV2 300 extend 'timer' - -", "timer")


def lost_route_messages(pid):
    with open("/proc/net/netlink", encoding="utf-8") as table:
        rows = [line.split() for line in table][1:]
    return sum(int(row[8]) for row in rows if row[1] == "0" and row[2] == str(pid))


def routes(loop):
    if subprocess.run(["ip", "link", "add", "net0", "type", "veth", "peer", "name", "net1"],
                      check=False).returncode:
        skip("this kernel has no pairs of network devices")
    for name in ("net0", "net1"):  # whose own addresses would be announced at any later time
        ip("link", "set", name, "addrgenmode", "none")
    ip("link", "set", "net1", "up")
    ip("address", "add", "192.0.2.2/24", "dev", "net0")
    ip("link", "set", "net0", "up")
    ip("route", "add", "198.51.100.0/24", "via", "192.0.2.1")
    settle(loop)  # links, addresses and other routes are no news
    ip("route", "add", "default", "via", "192.0.2.1")
    loop.expect("changed route")
    ip("route", "add", "default", "via", "192.0.2.3", "metric", "7")
    ip("route", "del", "default", "via", "192.0.2.3")
    settle(loop)  # one is as good as two
    ip("link", "set", "net0", "down")  # takes the route along without a word about it
    loop.expect("changed route")
    ip("link", "set", "net0", "up")
    settle(loop)
    ip("-6", "address", "add", "2001:db8::2/64", "dev", "net0", "nodad")
    settle(loop)  # the address is no news, and what comes next is the route's own
    ip("-6", "route", "add", "default", "via", "2001:db8::1")
    loop.expect("changed route")
    ip("link", "del", "net0")
    loop.expect("changed route")
    ip("link", "add", "net0", "type", "veth", "peer", "name", "net1")
    ip("address", "add", "192.0.2.2/24", "dev", "net0")
    ip("link", "set", "net1", "up")
    ip("link", "set", "net0", "up")
    # A burst that the socket has no room for: what got lost may have been the news.
    os.kill(loop.pid, signal.SIGSTOP)
    batch = "".join(f"route add 198.18.{i // 256}.{i % 256} via 192.0.2.1\n" for i in range(4000))
    subprocess.run(["ip", "-batch", "-"], input=batch, text=True, check=True)
    ip("route", "add", "default", "via", "192.0.2.1")
    check(lost_route_messages(loop.pid) > 0, "messages were lost")
    os.kill(loop.pid, signal.SIGCONT)
    loop.expect("changed route")
    settle(loop)
    ip("link", "del", "net0")
    loop.expect("changed route")


def hash_of(text):
    """MurmurHash2 as udev's receivers filter by it."""
    data_left, value = text.encode(), len(text)
    mask = 0xFFFFFFFF
    while len(data_left) >= 4:
        k = struct.unpack("<I", data_left[:4])[0] * 0x5BD1E995 & mask
        value = (value * 0x5BD1E995 & mask) ^ ((k ^ k >> 24) * 0x5BD1E995 & mask)
        data_left = data_left[4:]
    if data_left:
        value ^= int.from_bytes(data_left, "little")
        value = value * 0x5BD1E995 & mask
    value = (value ^ value >> 13) * 0x5BD1E995 & mask
    return value ^ value >> 15


def udev_says(action, subsystem, path):
    """Sends what udev would to its listeners, of whom there are none outside this namespace."""
    properties = "".join(f"{key}={value}\0" for key, value in (
        ("ACTION", action), ("DEVPATH", path), ("SUBSYSTEM", subsystem), ("SEQNUM", 7))).encode()
    header = struct.pack("=8s", b"libudev") + struct.pack(">I", 0xFEEDCAFE) + struct.pack(
        "=III", 40, 40, len(properties)) + struct.pack(">I", hash_of(subsystem)) + bytes(12)
    udev = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 15)
    udev.bind((0, 0))
    udev.sendto(header + properties, (0, 2))
    udev.close()


def supply(name, **attributes):
    os.makedirs(f"{folder}/supplies/{name}", exist_ok=True)
    for key, value in attributes.items():
        with open(f"{folder}/supplies/{name}/{key}", "w", encoding="utf-8") as file:
            file.write(f"{value}\n")


def battery_says(loop, **attributes):
    supply("BAT0", **attributes)
    udev_says("change", "power_supply", "/devices/fake/power_supply/BAT0")


def power_supplies(loop):
    battery_says(loop, voltage_now=11000000)
    udev_says("change", "block", "/devices/fake/block/sda")
    settle(loop)
    battery_says(loop, capacity=39)
    loop.expect("changed power supply")
    supply("AC", online=1)
    udev_says("change", "power_supply", "/devices/fake/power_supply/AC")
    loop.expect("changed power supply")
    settle(loop)
    # A driver that does not fall silent must not keep the news of an empty battery back.
    supply("BAT0", capacity=2)
    silence = time.monotonic() + PATIENCE
    while loop.lines.empty() and time.monotonic() < silence:
        udev_says("change", "power_supply", "/devices/fake/power_supply/BAT0")
        time.sleep(0.01)
    check(not loop.lines.empty(), "the news comes while the messages go on")
    loop.expect("changed power supply")
    settle(loop)


def sleep_and_resume(loop):
    # The service manager's stand-in says at once that the sleep is over.
    equal(call(LOGIND, "Suspend", "b", "false").returncode, 0, "suspending")
    loop.expect("changed resume")
    settle(loop)


def what_logind_announces(loop):
    """logind announces each inhibitor; the lid it does not announce, but may some day."""
    inhibitor = Driven(driver, "lock")
    inhibitor.ask("take")
    inhibitor.end()
    settle(loop)
    bus = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
    os.kill(reply_of(call(bus, "GetConnectionUnixProcessID", "s", LOGIND[0])), signal.SIGKILL)
    wait_until(lambda: call(bus, "GetNameOwner", "s", LOGIND[0]).returncode, "logind is gone",
               PATIENCE)
    stand_in = subprocess.Popen(
        ["/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"],
        stdout=subprocess.DEVNULL)
    wait_until(lambda: call(bus, "GetNameOwner", "s", LOGIND[0]).returncode == 0,
               "its stand-in is there", PATIENCE)

    def announce(interface, *signal_and_arguments):
        sent = busctl("call", "--", LOGIND[0], LOGIND[1], "org.freedesktop.DBus.Mock",
                      "EmitSignal", "sssav", interface, *signal_and_arguments)
        equal(sent.returncode, 0, "the signal is sent " + sent.stderr)

    properties = "org.freedesktop.DBus.Properties"
    announce(LOGIND[2], "PrepareForSleep", "b", "1", "b", "true")
    announce(properties, "PropertiesChanged", "sa{sv}as", "3", "s", LOGIND[2], "a{sv}", "1",
             "IdleHint", "b", "true", "as", "0")
    settle(loop)  # neither of these is news
    os.kill(loop.pid, signal.SIGSTOP)  # so that both are there when it looks
    announce(LOGIND[2], "PrepareForSleep", "b", "1", "b", "false")
    announce(properties, "PropertiesChanged", "sa{sv}as", "3", "s", LOGIND[2], "a{sv}", "1",
             "LidClosed", "b", "true", "as", "0")
    os.kill(loop.pid, signal.SIGCONT)
    loop.expect("changed resume, lid")
    announce(properties, "PropertiesChanged", "sa{sv}as", "3", "s", LOGIND[2], "a{sv}", "0", "as",
             "2", "IdleHint", "LidClosed")
    loop.expect("changed lid")
    stand_in.terminate()
    stand_in.wait()


def start_with_lid(events="lid.ev"):
    loop = Driven("umockdev-run", "-d", data + "/lid.umockdev", "-e",
                  "/dev/input/event0=" + data + "/" + events, "--", driver, "loop", "system",
                  # A sanitizer would rather be loaded before it.
                  env={**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0:" +
                       os.environ.get("ASAN_OPTIONS", "")})
    loop.expect("serving")
    return loop


def lid():
    loop = start_with_lid()
    loop.expect("changed lid")
    loop.expect("changed lid")
    expect_next_is_a_request(loop)
    equal(loop.errors.qsize(), 0, "the keyboard, which could not be opened, is left alone")
    equal(loop.end(), 0, "the end of both")
    loop.expect("terminate", "over")


def a_lid_whose_news_got_lost():
    """What the kernel dropped may have been the lid's."""
    loop = start_with_lid("dropped.ev")
    loop.expect("changed lid")
    equal(loop.end(), 0, "the end of both")
    loop.expect("terminate", "over")


def a_lid_that_goes_away():
    """One that is kept would wake the loop for ever."""
    machine = start_with_lid()
    with open(f"/proc/{machine.pid}/task/{machine.pid}/children", encoding="ascii") as children:
        loop = int(children.read())
    with open(f"/proc/{loop}/environ", encoding="utf-8") as environment:
        devices, = [variable[len("UMOCKDEV_DIR="):] for variable in environment.read().split("\0")
                    if variable.startswith("UMOCKDEV_DIR=")]

    def listens_to_the_lid():
        files = f"/proc/{loop}/fd/"
        return any(os.path.realpath(files + file).startswith("/dev/pts/")
                   for file in os.listdir(files))

    check(listens_to_the_lid(), "the lid's device is open")
    machine.end(signal.SIGKILL)
    shutil.rmtree(devices)
    wait_until(lambda: not listens_to_the_lid(), "the device is let go of", PATIENCE)
    os.kill(loop, signal.SIGTERM)
    while machine.next_line("the end") != "over":
        pass


for program in ("ip", "umockdev-run"):
    if not shutil.which(program):
        skip(program + " is not installed")
with open("/run/udev/control", "w", encoding="utf-8"):
    pass  # without it udev's listeners take it that there is no udev
supply("BAT0", type="Battery", present=1, status="Discharging", capacity=40)
supply("AC", type="Mains", online=0)
os.makedirs("/sys/class/power_supply", exist_ok=True)
subprocess.run(["mount", "--bind", folder + "/supplies", "/sys/class/power_supply"], check=True)

loop = Driven(driver, "loop", "system")
loop.expect("serving")
routes(loop)
power_supplies(loop)
sleep_and_resume(loop)
what_logind_announces(loop)
expect_next_is_a_request(loop)
equal(loop.end(), 0, "its end")
loop.expect("terminate", "over")
lid()
a_lid_whose_news_got_lost()
a_lid_that_goes_away()
