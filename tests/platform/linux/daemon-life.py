#!/usr/bin/python3 -B
"""The daemon's loop from its start to its end: signals, timer, service manager, idleness, buses.

usage: daemon-life.py DRIVER, run by with-logind in a network namespace of its own
"""
import atexit
import os
import signal
import socket
import subprocess
import sys
import time

from driven import HELPER, LOGIND, PATIENCE, Driven, busctl, call, reply_of
from expectations import check, contains, equal, listens, wait_until

driver = sys.argv[1]
folder = os.environ["NODO_E2E_DIR"]
NOBODY, DAEMON = 65534, 1  # users that exist


def set_timer(loop, milliseconds):
    reply_of(call(HELPER, "EnableManualV2", "xba{sv}", str(milliseconds), "true", "1", "name", "s",
                  "timer"))
    loop.expect(f"request enableManualV2 {milliseconds} extend 'timer' - -")


def hold_lock(loop, held):
    reply_of(call(HELPER, "EnableManualV2", "xba{sv}", str(held), "true", "1", "name", "s",
                  "lock"))
    loop.expect(f"request enableManualV2 {held} extend 'lock' - -")


class ServiceManager:
    """Takes what a service tells its manager."""

    def __init__(self):
        self.path = folder + "/notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        self.socket.settimeout(PATIENCE)

    def start(self, **environment):
        return Driven(driver, "loop", "system",
                      env={**os.environ, "NOTIFY_SOCKET": self.path, **environment})

    def expect(self, *lines):
        equal(self.socket.recv(4096).decode().split("\n"), list(lines), "told the service manager")

    def close(self):
        self.socket.close()
        os.remove(self.path)


def service_manager():
    manager = ServiceManager()
    loop = manager.start()
    loop.expect("serving")
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
    equal(loop.end(), 0, "its end")
    manager.expect("STOPPING=1", "STATUS=Stopping")  # and no proof of life before it
    loop.expect("terminate", "over")

    # A unit that wants a watchdog gets it fed all the time, without our asking.
    loop = manager.start(WATCHDOG_USEC="400000")
    loop.expect("serving")
    manager.expect("WATCHDOG=1")
    manager.expect("READY=1", "STATUS=Idle")
    for _ in range(3):
        manager.expect("WATCHDOG=1")
    hold_lock(loop, 1)
    told = manager.socket.recv(4096)
    while told == b"WATCHDOG=1":
        told = manager.socket.recv(4096)
    equal(told, b"STATUS=Keeping the machine awake", "no watchdog is asked for")
    equal(loop.end(), 0, "its end")
    manager.close()

    # One that cannot be told is one line in the log.
    loop = Driven(driver, "loop", "system", env={**os.environ, "NOTIFY_SOCKET": manager.path})
    loop.expect("serving")
    contains(loop.next_error(), "nodod: cannot tell the service manager: ", "its line")
    hold_lock(loop, 1)
    equal(loop.end(), 0, "its end")
    loop.expect("terminate", "over")
    equal(loop.next_error(), None, "it is one line")


def signals_and_timer():
    loop = Driven(driver, "loop", "system")
    loop.expect("serving")
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
    for descriptor in os.listdir(f"/proc/{loop.pid}/fdinfo"):
        with open(f"/proc/{loop.pid}/fdinfo/{descriptor}", encoding="utf-8") as info:
            clocks.update(line.split()[1] for line in info if line.startswith("clockid"))
    contains(clocks, str(time.CLOCK_BOOTTIME), "a timer counts time asleep")
    time.sleep(0.3)  # in which one that was due at once would have fired
    equal(loop.end(signal.SIGINT), 0, "its end")
    loop.expect("terminate", "over", None)


def idleness():
    loop = Driven(driver, "loop", "system")
    loop.expect("serving")
    hold_lock(loop, 0)
    set_timer(loop, 200)
    loop.expect("timer")
    before = -1
    while before != loop.switches():  # its last steps
        before = loop.switches()
        time.sleep(0.5)
    time.sleep(float(os.environ.get("NODO_IDLE_SECONDS", "3")))
    equal(loop.switches() - before, 0, "wake-ups of an idle loop")
    equal(loop.end(), 0, "its end")


class PrivateBus:
    def __init__(self, name, user=0):
        self.folder = f"{folder}/{name}"
        os.makedirs(self.folder, exist_ok=True)
        os.chown(self.folder, user, -1)
        self.path = self.folder + "/bus"
        self.address = "unix:path=" + self.path
        self.user = user
        self.start()

    def start(self):
        with open(folder + "/bus.conf", encoding="utf-8") as file:
            config = file.read().replace(folder + "/bus", self.path)
        with open(self.folder + "/conf", "w", encoding="utf-8") as file:
            file.write(config)
        self.process = subprocess.Popen(
            ["dbus-daemon", "--config-file=" + self.folder + "/conf", "--nofork", "--nopidfile"],
            stderr=subprocess.DEVNULL, user=self.user, group=self.user, extra_groups=[])
        atexit.register(self.process.kill)
        wait_until(lambda: listens(self.path), "the bus listens", PATIENCE)

    def kill(self):
        self.process.kill()
        self.process.wait()
        if os.path.exists(self.path):
            os.remove(self.path)


def start_logind(bus):
    """A stand-in for it."""
    stand_in = Driven("/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind",
                      env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address})
    owner = ["call", "--", "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
             "GetNameOwner", "s", LOGIND[0]]
    wait_until(lambda: busctl(*owner, bus=bus.address).returncode == 0, "a logind is there",
               PATIENCE)
    added = busctl("call", "--", LOGIND[0], LOGIND[1], "org.freedesktop.DBus.Mock", "AddProperty",
                   "ssv", LOGIND[2], "BlockInhibited", "s", "", bus=bus.address)
    equal(added.returncode, 0, "it knows what is inhibited " + added.stderr)
    return stand_in


def no_descriptors_come_in(bus):
    """Not where the daemon only listens either: whoever may send could use up all that it may have."""
    code = f"""
import dbus, dbus.bus, time
bus = dbus.bus.BusConnection({bus.address!r})
def listeners():
    return [name for name in bus.list_names() if name[0] == ":" and name != bus.get_unique_name()]
while not listeners():
    time.sleep(0.01)
call = dbus.lowlevel.MethodCallMessage(listeners()[0], "/a", "com.example.A", "Lend")
call.append(dbus.types.UnixFd(0), signature="h")
try:
    bus.send_message_with_reply_and_block(call, {PATIENCE})
except dbus.DBusException as error:
    print(error.get_dbus_name())
"""
    told = subprocess.run(["/usr/bin/python3", "-c", code], text=True, stdout=subprocess.PIPE,
                          check=True, timeout=PATIENCE)
    equal(told.stdout, "org.freedesktop.DBus.Error.NotSupported\n", "the answer to a descriptor")


def buses_that_go():
    own, system = PrivateBus("own"), PrivateBus("system")
    environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": system.address}
    loop = Driven(driver, "loop", own.address, env=environment)
    loop.expect("serving")
    no_descriptors_come_in(system)
    system.kill()
    equal(loop.next_error(), "nodod: no news from logind: the system bus has gone",
          "the system bus is missed")

    def set_own_timer():
        reply_of(call(HELPER, "EnableManualV2", "xba{sv}", "1", "true", "1", "name", "s", "timer",
                      bus=own.address))
        loop.expect("request enableManualV2 1 extend 'timer' - -", "timer")

    set_own_timer()  # it looks for the bus and does not find it, without another line
    system.start()
    set_own_timer()  # now it does
    stand_in = start_logind(system)
    sent = busctl("call", "--", LOGIND[0], LOGIND[1], "org.freedesktop.DBus.Mock", "EmitSignal",
                  "sssav", LOGIND[2], "PrepareForSleep", "b", "1", "b", "false",
                  bus=system.address)
    equal(sent.returncode, 0, "the signal is sent " + sent.stderr)
    loop.expect("changed resume")
    stand_in.end()
    own.kill()
    equal(loop.process.wait(timeout=PATIENCE), 1, "without its own bus it ends")
    equal(loop.next_error(), f"driver: the bus at {own.address} has gone", "and says why")
    system.kill()

    gone = Driven(driver, "loop", own.address)
    contains(gone.next_error(), "cannot connect to the bus at ", "no bus at all")
    equal(gone.process.wait(timeout=PATIENCE), 1, "no bus at all")
    nowhere = "unix:path=" + folder + "/nowhere"
    for name in ("system", "session"):
        gone = Driven(driver, "loop", name, env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": nowhere,
                                                 "DBUS_SESSION_BUS_ADDRESS": nowhere})
        contains(gone.next_error(), f"cannot connect to the {name} bus", "no such bus")
    homeless = {"PATH": os.environ["PATH"], "DBUS_SYSTEM_BUS_ADDRESS": nowhere}
    gone = Driven(driver, "loop", env=homeless)
    line = gone.next_error()
    contains(line, "cannot connect to the system bus: ", "no bus of either kind")
    contains(line, ", and there is no session bus for this user",
             "no bus of either kind")


def a_lock_on_a_bus_that_comes_back():
    bus = PrivateBus("restarted")
    before = start_logind(bus)
    lock = Driven(driver, "lock", env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address})
    equal(lock.ask("held"), "no", "held at first")
    bus.kill()
    equal(lock.ask("held"), "unknown", "held without a bus")
    bus.start()
    after = start_logind(bus)
    equal(lock.ask("held"), "no", "held by the logind on the next bus")
    for one in (lock, before, after):
        one.end()
    bus.kill()


def a_bus_that_hangs():
    bus = PrivateBus("hung")
    bus.process.send_signal(signal.SIGSTOP)
    began = time.monotonic()
    loop = Driven(driver, "loop", bus.address)
    contains(loop.next_error(), "it does not answer", "a hung bus")
    chosen = Driven(driver, "choose", "auto",
                    env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": bus.address})
    chosen.expect("simulated")
    for one in (loop, chosen):
        one.process.wait(timeout=PATIENCE)
    check(time.monotonic() - began < 15, "it was not waited for")
    bus.process.send_signal(signal.SIGCONT)
    bus.kill()


def refusal(bus, user, member="Stop"):
    return call(HELPER, member, bus=bus.address, user=user).returncode != 0


def users_and_their_buses():
    nowhere = "unix:path=" + folder + "/nowhere"
    # A person's own bus, found by itself where there is no system bus.
    own = PrivateBus("nobodys", NOBODY)
    loop = Driven(driver, "loop", user=NOBODY, group=NOBODY, extra_groups=[],
                  env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": nowhere,
                       "DBUS_SESSION_BUS_ADDRESS": own.address})
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
    equal(loop.end(), 0, "its end")
    own.kill()

    # On somebody else's bus the daemon's user is one among others.
    shared = PrivateBus("roots")
    loop = Driven(driver, "loop", shared.address, user=NOBODY, group=NOBODY, extra_groups=[])
    loop.expect("serving")
    equal(refusal(shared, NOBODY), True, "the daemon's user")
    contains(loop.next_error(), f"(uid {NOBODY}): polkit cannot be asked: ", "the line")
    equal(loop.end(), 0, "its end")
    shared.kill()


signals_and_timer()
service_manager()
idleness()
buses_that_go()
a_lock_on_a_bus_that_comes_back()
a_bus_that_hangs()
users_and_their_buses()
