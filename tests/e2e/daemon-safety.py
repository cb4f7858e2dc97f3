#!/usr/bin/python3 -B
"""The lock goes when staying awake becomes unsafe, at the machine's own news.

usage: daemon-safety.py NODOD
"""

from daemon_world import main
from expectations import equal, wait_until
from laptop import Network, PowerSupplies

LONG_GRACE = 60  # in which everything has its time, on a slow machine too
SHORT_GRACE = 1


def gone(logind):
    return lambda: logind.locks() == []


def held(daemon, logind):
    return lambda: logind.locks() == [daemon.process.pid]


def an_empty_battery_releases_the_lock(daemon, logind, supplies):
    supplies.on_battery(21)
    daemon.manual(20)
    equal(logind.locks(), [daemon.process.pid], "the lock above the minimum")
    supplies.on_battery(20)
    wait_until(gone(logind), "the lock goes at the minimum", 5)
    wait_until(lambda: daemon.audits()[-1] == "release:battery_below_threshold", "audit")
    equal(daemon.state()["lastStopReason"], "battery_below_threshold", "why")
    supplies.on_mains()
    wait_until(held(daemon, logind), "the mains bring it back", 5)
    wait_until(lambda: daemon.audits()[-1] == "enable:manual_timer", "audit")


def a_lock_outlasts_a_short_loss_of_the_route(daemon, logind, network):
    before = daemon.audits()
    network.unplug()
    wait_until(lambda: "noRouteUnavailableSince" in daemon.state(), "the loss is noticed", 5)
    equal(logind.locks(), [daemon.process.pid], "the lock inside of the grace")
    network.connect()
    wait_until(lambda: "noRouteUnavailableSince" not in daemon.state(), "a short loss ends", 5)
    equal(logind.locks(), [daemon.process.pid], "the lock after a short loss")
    equal(daemon.audits(), before, "audits, as it was never let go")


def a_lost_route_releases_the_lock_after_the_grace(daemon, logind, network):
    wait_until(held(daemon, logind), "the timer's lock is back", 5)
    network.unplug()
    wait_until(gone(logind), "the lock goes after the grace", SHORT_GRACE + 5)
    wait_until(lambda: daemon.audits()[-1] == "release:network_unavailable", "audit")
    equal(daemon.state()["lastStopReason"], "network_unavailable", "why")
    network.connect()
    wait_until(held(daemon, logind), "the route brings it back", 5)


def test(daemon, logind):
    network = Network()
    supplies = PowerSupplies()
    daemon.start("--no-route-grace", str(LONG_GRACE))
    an_empty_battery_releases_the_lock(daemon, logind, supplies)
    a_lock_outlasts_a_short_loss_of_the_route(daemon, logind, network)
    equal(daemon.terminate(), 0, "the exit")
    daemon.start("--no-route-grace", str(SHORT_GRACE))
    a_lost_route_releases_the_lock_after_the_grace(daemon, logind, network)
    daemon.stop()
    equal(daemon.terminate(), 0, "the exit")


main(test)
