#!/usr/bin/python3 -B
"""Clients that die mid-request cost the daemon nothing, and many at once are all answered.

usage: daemon-clients.py NODOD NODOCTL HEAP-TALLY
"""

import multiprocessing
import os
import random
import sys
import time

import dbus

from buses import HELPER, start_call
from clients import connect, request
from daemon_world import main
from expectations import check, equal
from holdings import Holdings, full_history
from laptop import Network, PowerSupplies
from processes import NOBODY

DYING = 1000
AT_ONCE = 200
PATIENCE = 30  # seconds for an answer
REFUSED = multiprocessing.Value("L")  # of those who waited for their answer


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


def test(daemon, logind):
    Network()
    PowerSupplies()
    daemon.put_timer(-1, triggerHistory=full_history())
    holdings = Holdings(sys.argv[3])
    daemon.environment = holdings.environment
    daemon.start()
    pid = daemon.process.pid
    let_them_die(DYING // 2)  # the warm-up
    daemon.stop()
    before = holdings.at_rest(pid)
    let_them_die(DYING)
    daemon.stop()
    print(f"before {before}, after {holdings.await_return_to(before, pid)}")
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
