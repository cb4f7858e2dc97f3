#!/usr/bin/python3 -B
"""A daemon that has answered many thousand requests holds what it held before them.

usage: run leaks
"""

import random

from attack import ask, main
from clients import connect
from expectations import check, equal
from holdings import Holdings, full_history

REQUESTS, MANY_REQUESTS = 1000, 28000
PER_CONNECTION = 20
# The last two are refused.
KINDS = [("Status", "", ()), ("EnableManual", "x", (20,)), ("Stop", "", ()),
         ("EnableManualV2", "xba{sv}", (30, True, {"name": "Claude Code", "context": "nodo"})),
         ("Reconcile", "", ()), ("Repair", "", ()), ("EnableManual", "x", (721,)),
         ("EnableManualV2", "xba{sv}", (5, False, {"name": 7}))]


def send(daemon, count):
    """Through connections that come and go. Returns how many were served."""
    served = 0
    own = daemon.bus
    for _ in range(count // PER_CONNECTION):
        daemon.bus = connect()
        served += sum(ask(daemon, *random.choice(KINDS))[1] is None for _ in range(PER_CONNECTION))
        daemon.bus.close()
    daemon.bus = own
    daemon.stop()
    return served


def attack(world, is_full):
    daemon = world.daemon
    holdings = Holdings(world.tally)
    daemon.environment = holdings.environment
    daemon.put_timer(-1, triggerHistory=full_history())
    world.start()
    pid = daemon.process.pid
    count = MANY_REQUESTS if is_full else REQUESTS
    send(daemon, REQUESTS // 2)  # the warm-up
    before = holdings.at_rest(pid)
    served = send(daemon, count)
    after = holdings.await_return_to(before, pid)
    check(count / 2 < served < count, f"they were served and refused: {served} of {count} served")
    equal(world.lock_is_on(), False, "the lock after all that")
    equal(daemon.terminate(), 0, "the exit")
    return [f"{count} requests", f"{served} of them served",
            *(f"{what} {held} before and {after[what]} after" for what, held in before.items())]


main(attack)
