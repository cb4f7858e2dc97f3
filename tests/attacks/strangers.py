#!/usr/bin/python3 -B
"""Thousands of strangers, who connect, ask for what they may not have and go, change nothing, and
an honest caller is served meanwhile.

usage: run strangers
"""

import multiprocessing
import os
import pwd
import random
import statistics
import time

import dbus

from attack import ask, main
from clients import connect, request
from expectations import check, equal

STRANGERS, MANY_STRANGERS = 500, 10000
CROWD = 4  # processes of them
SLOWEST = 2.0  # seconds, for an honest caller
USERS = [entry.pw_uid for entry in pwd.getpwall() if entry.pw_uid != 0]


def changes(bus):
    for member in ["Stop", "Repair", "Reconcile"]:
        bus.send_message(request(member))
    bus.flush()


def looks(bus):
    bus.send_message_with_reply_and_block(request("Status"), 20)


def nonsense(bus):
    bus.send_message(request("EnableManual", "twenty", signature="s"))
    bus.send_message(request("Nonsense"))
    bus.send_message(request("EnableManualV2", 5, True, {"name": chr(0xFFFF)},
                             signature="xba{sv}"))
    bus.flush()


def much(bus):
    bus.send_message(request("EnableManualV2", 5, True, {"context": 100_000 * "a"},
                             signature="xba{sv}"))
    bus.flush()


def a_timer(bus):
    """Waits, and is refused."""
    try:
        bus.send_message_with_reply_and_block(
            request("EnableManual", 700, signature="x"), 20)
    except dbus.DBusException as error:
        check("AccessDenied" in error.get_dbus_name(), f"it is refused: {error.get_dbus_name()}")
        return
    raise AssertionError("a stranger set a timer")


def nothing(_bus):
    pass


def be_strangers(count, seed):
    """Each on a connection of its own, all of a process as one user."""
    lot = random.Random(seed)
    user = lot.choice(USERS)
    os.setgroups([])
    os.setresgid(user, user, user)
    os.setresuid(user, user, user)
    for _ in range(count):
        bus = connect()
        lot.choice([changes, looks, nonsense, much, a_timer, nothing])(bus)
        bus.close()


class HonestCaller:
    """Sets timers, ends them and looks, without pause, and is to be right each time."""

    def __init__(self, world):
        self.world = world
        self.seconds = []

    def call(self):
        for method, signature, arguments, is_on in [("EnableManual", "x", (20,), True),
                                                    ("Status", "", (), True),
                                                    ("Stop", "", (), False)]:
            began = time.monotonic()
            status, error = ask(self.world.daemon, method, signature, arguments)
            self.seconds.append(time.monotonic() - began)
            check(error is None, f"{method} of root fails: {error}")
            equal(status["state"]["ownsSleepDisable"], is_on, f"the answer to {method}")
        equal(self.world.lock_is_on(), False, "the lock after a stop")

    def told(self):
        return (f"median {1000 * statistics.median(self.seconds):.1f} ms, "
                f"slowest {1000 * max(self.seconds):.0f} ms")


def attack(world, is_full):
    world.start()
    alone = HonestCaller(world)
    for _ in range(50):
        alone.call()
    count = MANY_STRANGERS if is_full else STRANGERS
    each, batches = 25, count // 25
    honest = HonestCaller(world)
    seeds = [random.randrange(1 << 32) for _ in range(batches)]
    with multiprocessing.Pool(CROWD, maxtasksperchild=1) as crowd:
        result = crowd.starmap_async(be_strangers, [(each, seed) for seed in seeds], chunksize=1)
        while not result.ready():
            honest.call()
        result.get()
    check(max(honest.seconds) < SLOWEST, f"an honest caller waits: {honest.told()}")
    check("sleep lock switched on (enable:manual_timer)" in world.daemon.log(), "the log goes on")
    lines = world.daemon.log().count("\n")
    served = len(alone.seconds) + len(honest.seconds)
    check(lines < served + 3 * len(USERS) * 6, f"the log is not theirs to fill: {lines} lines")
    check(not world.has_ended(), "the daemon lives")
    return [f"{count} strangers as {len(USERS)} users", f"{len(honest.seconds)} honest requests",
            honest.told(), f"alone {alone.told()}", f"{lines} lines in the log"]


main(attack)
