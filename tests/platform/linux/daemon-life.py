#!/usr/bin/python3 -B
"""The daemon's loop from its start to its end: signals, timer, service manager, idleness, buses.

usage: daemon-life.py DRIVER, run by with-logind in a network namespace of its own
"""
import os
import pathlib
import signal
import socket
import time

import clients
from buses import HELPER, LOGIND, STAND_IN_FOR_LOGIND, PrivateBus
from buses import announce, call, start_stand_in_for_logind
from clients import Client
from driven import DRIVER, NOWHERE, end_well, hold_lock, set_timer, start_loop
from expectations import PATIENCE, check, contains, equal
from laptop import FOLDER
from processes import NOBODY, Driven, as_user, environment, settled_switches, switches

DAEMON = 1  # another user that exists
SLOW = 4  # seconds


class ServiceManager:
    """Takes what a service tells its manager."""

    def __init__(self):
        self.path = f"{FOLDER}/notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        self.socket.settimeout(PATIENCE)

    def start_loop(self, **changes):
        return start_loop(env=environment(NOTIFY_SOCKET=self.path, **changes))

    def expect(self, *lines):
        equal(self.socket.recv(4096).decode().split("\n"), list(lines), "told the service manager")

    def close(self):
        self.socket.close()
        os.remove(self.path)


def service_manager():
    manager = ServiceManager()
    loop = manager.start_loop()
    manager.expect("READY=1", "STATUS=Idle")
    hold_lock(loop, 1)
    manager.expect("STATUS=Keeping the machine awake", "WATCHDOG=1", "WATCHDOG_USEC=180000000")
    # Every pass is a proof of life: where requests keep coming, no timer ever fires.
    for _ in range(3):
        hold_lock(loop, 1)
        manager.expect("WATCHDOG=1")
    set_timer(loop, 1)
    loop.expect("timer")
    manager.expect("WATCHDOG=1")
    hold_lock(loop, 0)
    manager.expect("STATUS=Idle", "WATCHDOG_USEC=0")
    set_timer(loop, 1)
    loop.expect("timer")
    end_well(loop)
    manager.expect("STOPPING=1", "STATUS=Stopping")  # and no proof of life before it
    loop.expect("terminate", "over")

    # A unit that wants a watchdog gets it fed all the time, without our asking.
    loop = manager.start_loop(WATCHDOG_USEC="400000")
    manager.expect("WATCHDOG=1")
    manager.expect("READY=1", "STATUS=Idle")
    for _ in range(3):
        manager.expect("WATCHDOG=1")
    hold_lock(loop, 1)
    told = manager.socket.recv(4096)
    while told == b"WATCHDOG=1":
        told = manager.socket.recv(4096)
    equal(told, b"STATUS=Keeping the machine awake", "no watchdog is asked for")
    end_well(loop)
    manager.close()

    # One that cannot be told is one line in the log.
    loop = manager.start_loop()
    contains(loop.next_error(), "nodod: cannot tell the service manager: ", "its line")
    hold_lock(loop, 1)
    end_well(loop)
    loop.expect("terminate", "over")
    equal(loop.next_error(), None, "it is one line")


def signals_and_timer():
    loop = start_loop()
    began = time.monotonic()
    set_timer(loop, 200)
    loop.expect("timer")
    check(time.monotonic() - began >= 0.2, "not before its time")
    set_timer(loop, 2000)
    began = time.monotonic()
    set_timer(loop, 3000)
    loop.expect("timer")
    check(time.monotonic() - began >= 3, "not when the timer that it replaced was due")
    set_timer(loop, 2000)
    set_timer(loop, -1)
    time.sleep(2.5)
    set_timer(loop, 0)  # whose request is the next line: the cancelled one never fired
    loop.expect("timer")
    set_timer(loop, 2**62)  # for ever
    clocks = set()
    for descriptor in pathlib.Path(f"/proc/{loop.pid}/fdinfo").iterdir():
        lines = descriptor.read_text(encoding="utf-8").splitlines()
        clocks.update(line.split()[1] for line in lines if line.startswith("clockid"))
    contains(clocks, str(time.CLOCK_BOOTTIME), "a timer counts time asleep")
    time.sleep(0.3)  # in which one that was due at once would have fired
    os.kill(loop.pid, signal.SIGHUP)
    loop.expect("hangup")
    equal(loop.end(signal.SIGINT), 0, "its end")
    loop.expect("terminate", "over", None)


def idleness():
    loop = start_loop()
    hold_lock(loop, 0)
    set_timer(loop, 200)
    loop.expect("timer")
    before = settled_switches(loop.pid)
    time.sleep(3)  # a measurement of quiet takes its time
    equal(switches(loop.pid) - before, 0, "wake-ups of an idle loop")
    end_well(loop)


def private_bus(name, user=0):
    own = FOLDER / name
    own.mkdir()
    os.chown(own, user, -1)
    return PrivateBus(own, user)


def on_bus(bus):
    """What makes a process take it for the system's."""
    return {"env": environment(DBUS_SYSTEM_BUS_ADDRESS=bus.address)}


def start_logind(bus):
    """A stand-in for it."""
    stand_in = start_stand_in_for_logind(bus.address)
    added = call(STAND_IN_FOR_LOGIND, "AddProperty", "ssv", LOGIND[2], "BlockInhibited", "s", "",
                 bus=bus.address)
    equal(added.returncode, 0, "it knows what is inhibited " + added.stderr)
    return stand_in


def no_descriptors_come_in(bus):
    """Not where the daemon only listens either: whoever may send could use up all that it may
    have."""
    lender = Client(clients.lend_to_the_only_other, user=0, **on_bus(bus))
    contains(lender.next_line(), "org.freedesktop.DBus.Error.NotSupported", "the answer")
    lender.end()


def buses_that_go():
    own, system = private_bus("own"), private_bus("system")
    loop = start_loop(own.address, **on_bus(system))
    no_descriptors_come_in(system)
    system.kill()
    equal(loop.next_error(), "nodod: no news from logind: the system bus has gone",
          "the system bus is missed")

    def a_timer_fires():
        set_timer(loop, 1, bus=own.address)
        loop.expect("timer")

    a_timer_fires()  # it looks for the bus and does not find it, without another line
    system.start()
    a_timer_fires()  # now it does
    start_logind(system)
    announce(LOGIND[2], "PrepareForSleep", "b", "1", "b", "false", bus=system.address)
    loop.expect("changed resume")
    own.kill()
    equal(loop.process.wait(timeout=PATIENCE), 1, "without its own bus it ends")
    equal(loop.next_error(), f"driver: the bus at {own.address} has gone", "and says why")
    system.kill()

    gone = Driven(DRIVER, "loop", own.address)
    contains(gone.next_error(), "cannot connect to the bus at ", "no bus at all")
    equal(gone.process.wait(timeout=PATIENCE), 1, "no bus at all")
    for name in ("system", "session"):
        gone = Driven(DRIVER, "loop", name, env=environment(DBUS_SYSTEM_BUS_ADDRESS=NOWHERE,
                                                            DBUS_SESSION_BUS_ADDRESS=NOWHERE))
        contains(gone.next_error(), f"cannot connect to the {name} bus", "no such bus")
    gone = Driven(DRIVER, "loop", env={"PATH": os.environ["PATH"],
                                       "DBUS_SYSTEM_BUS_ADDRESS": NOWHERE})
    line = gone.next_error()
    contains(line, "cannot connect to the system bus: ", "no bus of either kind")
    contains(line, ", and there is no session bus for this user", "no bus of either kind")


def a_lock_on_a_bus_that_comes_back():
    bus = private_bus("restarted")
    start_logind(bus)
    lock = Driven(DRIVER, "lock", **on_bus(bus))
    equal(lock.ask("held"), "no", "held at first")
    bus.kill()
    equal(lock.ask("held"), "unknown", "held without a bus")
    bus.start()
    start_logind(bus)
    equal(lock.ask("held"), "no", "held by the logind on the next bus")
    lock.end()
    bus.kill()


def a_bus_and_a_logind_that_are_slow_to_start():
    """They are neither gone nor absent."""
    bus = private_bus("slow")
    logind = start_logind(bus)
    for slow in (bus.process, logind):
        slow.send_signal(signal.SIGSTOP)
        waiting = [Driven(DRIVER, "choose", "auto", **on_bus(bus))]
        if slow is bus.process:
            waiting.append(Driven(DRIVER, "loop", **on_bus(bus)))
        time.sleep(SLOW)
        slow.send_signal(signal.SIGCONT)
        waiting[0].expect("real")
        for loop in waiting[1:]:
            loop.expect("serving")
            end_well(loop)
    bus.kill()


def a_bus_that_does_not_let_it_listen():
    bus = private_bus("full")
    start_logind(bus)
    bus.limit(max_match_rules_per_connection=0)
    loop = start_loop(**on_bus(bus))
    contains(loop.next_error(), "nodod: no news from logind: ", "its line")

    def a_timer_fires():
        set_timer(loop, 1, bus=bus.address)
        loop.expect("timer")

    a_timer_fires()  # it tries again, without another line
    bus.limit()
    a_timer_fires()
    a_timer_fires()  # whose request came behind the rules
    announce(LOGIND[2], "PrepareForSleep", "b", "1", "b", "false", bus=bus.address)
    loop.expect("changed resume")
    equal(loop.errors.qsize(), 0, "further lines")
    end_well(loop)
    bus.kill()


def a_bus_that_hangs():
    bus = private_bus("hung")
    bus.process.send_signal(signal.SIGSTOP)
    hung = [Driven(DRIVER, "loop", bus.address), Driven(DRIVER, "loop", **on_bus(bus)),
            Driven(DRIVER, "choose", "auto", **on_bus(bus))]
    for one in hung:
        equal(one.process.wait(timeout=3 * PATIENCE), 1, "the end, to be started again")
        contains(one.next_error(), "it does not answer", "a hung bus")
    bus.process.send_signal(signal.SIGCONT)
    bus.kill()


def refusal(bus, user, member="Stop"):
    return call(HELPER, member, bus=bus.address, user=user).returncode != 0


def users_and_their_buses():
    # A person's own bus, found by itself where there is no system bus.
    own = private_bus("nobodys", NOBODY)
    loop = Driven(DRIVER, "loop", **as_user(NOBODY),
                  env=environment(DBUS_SYSTEM_BUS_ADDRESS=NOWHERE,
                                  DBUS_SESSION_BUS_ADDRESS=own.address))
    loop.expect("serving")
    contains(loop.next_error(), "no news from logind: ", "nobody tells of a sleep there")
    equal(refusal(own, NOBODY), False, "its own user")
    equal(refusal(own, 0), False, "root")
    loop.expect("request stop", "request stop")
    equal(refusal(own, DAEMON), True, "another user")
    contains(loop.next_error(),
             f"(uid {DAEMON}): on this bus only its own user and root may do this", "the line")
    equal(refusal(own, DAEMON, "Status"), False, "another user looks")
    loop.expect("request status")
    end_well(loop)
    own.kill()

    # On somebody else's bus the daemon's user is one among others.
    shared = private_bus("roots")
    loop = start_loop(shared.address, **as_user(NOBODY))
    equal(refusal(shared, NOBODY), True, "the daemon's user")
    contains(loop.next_error(), f"(uid {NOBODY}): polkit cannot be asked: ", "the line")
    end_well(loop)
    shared.kill()


def main():
    signals_and_timer()
    service_manager()
    idleness()
    buses_that_go()
    a_lock_on_a_bus_that_comes_back()
    a_bus_and_a_logind_that_are_slow_to_start()
    a_bus_that_does_not_let_it_listen()
    a_bus_that_hangs()
    users_and_their_buses()


main()
