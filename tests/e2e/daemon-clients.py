#!/usr/bin/python3 -B
"""Clients that die mid-request cost the daemon nothing, and many at once are all answered.

usage: daemon-clients.py NODOD NODOCTL HEAP-TALLY
"""

import multiprocessing
import os
import random
import struct
import sys
import time

import dbus

from buses import HELPER, start_call
from clients import connect, request
from daemon_world import date, main
from expectations import check, equal, wait_until
from laptop import FOLDER, Network, PowerSupplies
from processes import NOBODY, environment

DYING = 1000
AT_ONCE = 200
PATIENCE = 30  # seconds for an answer
STEADY = 40  # looks, 5 ms apart
# What comes with the first that needs it and stays, as a queue's room, is no leak.
MADE_ONCE = {"descriptors": 0, "mappings": 0, "blocks of memory": 10}
REFUSED = multiprocessing.Value("L")  # of those who waited for their answer
TALLY = FOLDER / f"heap.{os.getpid()}"


def die_mid_request(count):
    """Each connects, sends a request and is gone, mostly before the answer."""
    for index in range(count):
        bus = connect()
        if index % 3 == 0:
            call = request("Status")
        elif index % 3 == 1:
            call = request("EnableManualV2", 20, True, {"name": f"dying {index % 7}"},
                           signature="xba{sv}")
        else:
            call = request("Stop")
        if index % 8 == 0:
            # However busy the machine, some of each kind are served and some refused.
            try:
                bus.send_message_with_reply_and_block(call, PATIENCE)
            except dbus.DBusException as error:
                equal(error.get_dbus_name(), "org.freedesktop.DBus.Error.AccessDenied",
                      "the answer")
                with REFUSED.get_lock():
                    REFUSED.value += 1
        else:
            bus.send_message(call)
            bus.flush()
            # Some are gone before the daemon knows whose the request is, some while it is served,
            # and some when the answer is on its way.
            time.sleep(random.choice([0, 0.005, 0.02]) * random.random())
        bus.close()


def die_as(user, count):
    os.setgroups([])
    os.setuid(user)
    die_mid_request(count)


def let_them_die(count):
    """Half of them are served, half are refused: both ways must clean up."""
    mortals = [multiprocessing.Process(target=die_as, args=(user, count // 2))
               for user in [0, NOBODY]]
    for mortal in mortals:
        mortal.start()
    for mortal in mortals:
        mortal.join()
        equal(mortal.exitcode, 0, "the clients could ask")


def holdings(pid):
    with open(f"/proc/{pid}/maps", encoding="ascii") as mappings:
        return {"descriptors": len(os.listdir(f"/proc/{pid}/fd")),
                "mappings": sum("[heap]" not in mapping for mapping in mappings),
                "blocks of memory": struct.unpack("q", TALLY.read_bytes())[0]}


def at_rest(read):
    """What `read` gives once it stays the same: the last of the dead may still be served."""
    seen = []

    def stays():
        seen.append(read())
        return len(seen) >= STEADY and all(value == seen[-1] for value in seen[-STEADY:])

    wait_until(stays, "the daemon is at rest")
    return seen[-1]


def full_history():
    """As many requests as a state remembers, so that it does not grow while it is watched."""
    now = time.time()
    return [{"name": f"dying {index % 7}", "requestedAt": date(now - index)}
            for index in reversed(range(500))]


def test(daemon, logind):
    Network()
    PowerSupplies()
    daemon.put_timer(-1, triggerHistory=full_history())
    daemon.environment = environment(LD_PRELOAD=sys.argv[3], NODO_HEAP_TALLY=str(TALLY))
    daemon.start()
    pid = daemon.process.pid
    let_them_die(DYING // 2)  # the warm-up
    daemon.stop()
    before = at_rest(lambda: holdings(pid))
    let_them_die(DYING)
    daemon.stop()
    after = {}

    def is_given_back():
        after.update(holdings(pid))
        return all(held <= before[what] + MADE_ONCE[what] for what, held in after.items())

    try:
        wait_until(is_given_back, "what the dead took is given back")
    finally:
        print(f"before {before}, after {after}")
    equal(logind.locks(), [], "the lock after all that")
    served, refused = daemon.log().count("sleep lock switched on"), REFUSED.value
    check(min(served, refused) > DYING / 50, f"they asked: {served} served, {refused} refused")
    print(f"{served} timers set, {refused} requests refused")

    callers = [start_call(HELPER, *call)
               for call in [("Status",), ("EnableManual", "x", "20")] * (AT_ONCE // 2)]
    answers = [caller.communicate()[0] for caller in callers]
    equal([caller.returncode for caller in callers], [0] * AT_ONCE, "their exits")
    equal(sum('\\"status\\":' in answer for answer in answers), AT_ONCE, "their answers")
    equal(logind.locks(), [pid], "the lock that they asked for")
    daemon.stop()
    equal(daemon.terminate(), 0, "the exit")


main(test)
