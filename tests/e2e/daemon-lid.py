#!/usr/bin/python3 -B
"""A lid that closes under the lock locks the sessions, and a lock that is released under it on
battery sends the machine to sleep.

Run by 'with-logind --lid', whose lid closes some seconds after logind began to watch it.

usage: daemon-lid.py NODOD
"""

import json
import os
import pathlib
import shutil

from buses import monitor
from daemon_world import main
from expectations import check, equal, wait_until
from laptop import Network, PowerSupplies


def offer_sleep():
    """To a logind that sees umockdev's /sys instead of the machine's."""
    power = pathlib.Path(os.environ["UMOCKDEV_DIR"]) / "sys/power"
    shutil.copytree("/sys/power", power, dirs_exist_ok=True)


def next_signal(signals):
    """Which one, and of whom."""
    message = json.loads(signals.next_line("a signal"))
    return message["member"], message["path"]


def test(daemon, logind):
    Network()
    supplies = PowerSupplies()
    offer_sleep()
    for switch in ["HandleLidSwitch", "HandleLidSwitchExternalPower", "HandleLidSwitchDocked"]:
        equal(logind.property(switch), "ignore", switch)
    supplies.on_battery(80)
    session = logind.create_session()
    signals = monitor("type='signal',interface='org.freedesktop.login1.Session'")
    daemon.start()
    daemon.manual(20)
    equal(daemon.state()["lastLidClosed"], False, "the lid as the lock was taken")
    wait_until(lambda: logind.property("LidClosed"), "the lid closes", 20)
    supplies.on_battery(79)
    wait_until(lambda: daemon.state().get("lastLidClosed") is True, "the next pass sees it", 5)
    equal(next_signal(signals), ("Lock", session), "what the desktop hears")
    equal(logind.locks(), [daemon.process.pid], "the lock under the closed lid")
    check("suspend.target" not in logind.started_units(), "nobody asked for sleep yet")
    daemon.call("Reconcile")
    daemon.manual(30)

    status = daemon.stop()
    check(status["snapshot"]["lidClosed"], "the status knows of the lid")
    equal(logind.locks(), [], "the lock after the stop")
    wait_until(lambda: "suspend.target" in logind.started_units(), "logind is asked for sleep")
    equal(daemon.audits(), ["enable:manual_timer", "release:user_stop", "closed_lid_release"],
          "audits")
    equal(daemon.state()["lastStopReason"], "not_armed", "what the pass that released it found")
    asked = daemon.state()["lastPowerOperation"]
    equal((asked["action"], asked["exitCode"]), ("sleep_now", 0), "the request for sleep")
    check("asked for sleep (closed_lid_release)" in daemon.log(), "it is logged")
    check("could not be locked" not in daemon.log(), "the log has no failure")
    logind.manager.UnlockSessions()
    equal(next_signal(signals), ("Unlock", session), "it heard of one closing once")


main(test)
