#!/usr/bin/python3 -B
"""What wakes the daemon's loop: routes, power supplies, the lid, the end of a sleep; and what does
not.

usage: machine-news.py DRIVER, run by with-logind in a network namespace of its own
"""
import os
import pathlib
import shutil
import signal
import subprocess
import time

import clients
from buses import BUS, HELPER, LOGIND
from buses import announce, call, process_of, reply_of, start_stand_in_for_logind
from clients import Client
from driven import DRIVER, end_well, request_by_name, set_timer, start_loop
from expectations import PATIENCE, check, equal, skip, wait_until
from laptop import PowerSupplies, run, udev_says_changed
from processes import Driven, environment

DATA = pathlib.Path(__file__).resolve().parents[2] / "data/lid"


def expect_next_is_a_request(loop):
    """Nothing else has come before: what was sent earlier has been looked at by then."""
    call(HELPER, "Reconcile")
    loop.expect("request reconcile")


def settle(loop):
    """Waits until the loop has dealt with all that the kernel sent so far: its timer for that
    lasts a tenth of a second, one set now for three fires after it."""
    set_timer(loop, 300)
    loop.expect("timer")


def lost_route_messages(pid):
    with open("/proc/net/netlink", encoding="utf-8") as table:
        rows = [line.split() for line in table][1:]
    return sum(int(row[8]) for row in rows if row[1] == "0" and row[2] == str(pid))


def routes(loop):
    if subprocess.run(["ip", "link", "add", "net0", "type", "veth", "peer", "name", "net1"],
                      check=False).returncode:
        skip("this kernel has no pairs of network devices")
    for name in ("net0", "net1"):  # whose own addresses would be announced at any later time
        run("ip", "link", "set", name, "addrgenmode", "none")
    run("ip", "link", "set", "net1", "up")
    run("ip", "address", "add", "192.0.2.2/24", "dev", "net0")
    run("ip", "link", "set", "net0", "up")
    run("ip", "route", "add", "198.51.100.0/24", "via", "192.0.2.1")
    settle(loop)  # links, addresses and other routes are no news
    run("ip", "route", "add", "default", "via", "192.0.2.1")
    loop.expect("changed route")
    run("ip", "route", "add", "default", "via", "192.0.2.3", "metric", "7")
    run("ip", "route", "del", "default", "via", "192.0.2.3")
    settle(loop)  # one is as good as two
    run("ip", "link", "set", "net0", "down")  # takes the route along without a word about it
    loop.expect("changed route")
    run("ip", "link", "set", "net0", "up")
    settle(loop)
    run("ip", "-6", "address", "add", "2001:db8::2/64", "dev", "net0", "nodad")
    settle(loop)  # the address is no news, and what comes next is the route's own
    run("ip", "-6", "route", "add", "default", "via", "2001:db8::1")
    loop.expect("changed route")
    run("ip", "link", "del", "net0")
    loop.expect("changed route")
    run("ip", "link", "add", "net0", "type", "veth", "peer", "name", "net1")
    run("ip", "address", "add", "192.0.2.2/24", "dev", "net0")
    run("ip", "link", "set", "net1", "up")
    run("ip", "link", "set", "net0", "up")
    # A burst that the socket has no room for: what got lost may have been the news.
    os.kill(loop.pid, signal.SIGSTOP)
    batch = "".join(f"route add 198.18.{i // 256}.{i % 256} via 192.0.2.1\n" for i in range(4000))
    subprocess.run(["ip", "-batch", "-"], input=batch, text=True, check=True)
    run("ip", "route", "add", "default", "via", "192.0.2.1")
    check(lost_route_messages(loop.pid) > 0, "messages were lost")
    os.kill(loop.pid, signal.SIGCONT)
    loop.expect("changed route")
    settle(loop)
    run("ip", "link", "del", "net0")
    loop.expect("changed route")


def power_supplies(loop, supplies):
    supplies.say("BAT0", voltage_now=11000000)
    udev_says_changed("block", "sda")
    settle(loop)
    supplies.say("BAT0", capacity=39)
    loop.expect("changed power supply")
    supplies.say("AC", online=1)
    loop.expect("changed power supply")
    settle(loop)
    # A driver that does not fall silent must not keep the news of an empty battery back.
    supplies.write("BAT0", capacity=2)
    silence = time.monotonic() + PATIENCE
    while loop.lines.empty() and time.monotonic() < silence:
        supplies.say("BAT0")
        time.sleep(0.01)
    check(not loop.lines.empty(), "the news comes while the messages go on")
    loop.expect("changed power supply")
    settle(loop)


def news_are_what_the_last_pass_has_not_seen(loop, supplies):
    supplies.write("AC", online=0)
    call(HELPER, "Reconcile")
    loop.expect("request reconcile")
    supplies.say("AC", online=1)  # as it was when there was news last
    loop.expect("changed power supply")
    supplies.say("AC")
    settle(loop)
    request_by_name(loop, "failing pass", 0)
    supplies.say("AC")
    loop.expect("changed power supply")  # what nobody has seen is news
    supplies.say("AC")
    settle(loop)


def sleep_and_resume(loop):
    # The service manager's stand-in says at once that the sleep is over.
    equal(call(LOGIND, "Suspend", "b", "false").returncode, 0, "suspending")
    loop.expect("changed resume")
    settle(loop)


def what_logind_announces(loop):
    """logind announces each inhibitor; the lid it does not announce, but may some day."""
    inhibitor = Driven(DRIVER, "lock")
    inhibitor.ask("take")
    inhibitor.end()
    settle(loop)
    os.kill(process_of(LOGIND[0]), signal.SIGKILL)
    wait_until(lambda: process_of(LOGIND[0]) is None, "logind is gone", PATIENCE)
    stand_in = start_stand_in_for_logind()
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


def what_others_say_in_its_name(loop):
    pretender = Client(clients.pretend_to_be_logind, reply_of(call(BUS, "GetNameOwner", "s",
                                                                   HELPER[0])))
    pretender.expect("done")
    settle(loop)
    pretender.end()


def start_with_lid(events="lid.ev"):
    # A sanitizer would rather be loaded before umockdev.
    options = "verify_asan_link_order=0:" + os.environ.get("ASAN_OPTIONS", "")
    loop = Driven("umockdev-run", "-d", DATA / "lid.umockdev", "-e",
                  f"/dev/input/event0={DATA / events}", "--", DRIVER, "loop", "system",
                  env=environment(ASAN_OPTIONS=options))
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
    variables = pathlib.Path(f"/proc/{loop}/environ").read_text(encoding="utf-8").split("\0")
    devices = dict(variable.split("=", 1) for variable in variables[:-1])["UMOCKDEV_DIR"]

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


def main():
    for program in ("ip", "umockdev-run"):
        if not shutil.which(program):
            skip(program + " is not installed")
    # Without it udev's listeners take it that there is no udev.
    pathlib.Path("/run/udev/control").touch()
    supplies = PowerSupplies(online=0, status="Discharging", capacity=40)
    loop = start_loop()
    routes(loop)
    power_supplies(loop, supplies)
    news_are_what_the_last_pass_has_not_seen(loop, supplies)
    sleep_and_resume(loop)
    what_logind_announces(loop)
    what_others_say_in_its_name(loop)
    expect_next_is_a_request(loop)
    end_well(loop)
    loop.expect("terminate", "over")
    lid()
    a_lid_whose_news_got_lost()
    a_lid_that_goes_away()


main()
