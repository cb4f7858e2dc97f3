#!/usr/bin/python3 -B
"""A lock that is released under a closed lid on battery sends the machine to sleep.

Run by 'with-logind --lid', whose lid closes some seconds after logind began to watch it.

usage: daemon-lid.py NODOD
"""

import os
import pathlib
import shutil

from daemon_world import main
from expectations import check, equal, wait_until
from laptop import Network, PowerSupplies


def offer_sleep():
    """To a logind that sees umockdev's /sys instead of the machine's."""
    power = pathlib.Path(os.environ["UMOCKDEV_DIR"]) / "sys/power"
    shutil.copytree("/sys/power", power, dirs_exist_ok=True)


def test(daemon, logind):
    Network()
    supplies = PowerSupplies()
    offer_sleep()
    for switch in ["HandleLidSwitch", "HandleLidSwitchExternalPower", "HandleLidSwitchDocked"]:
        equal(logind.property(switch), "ignore", switch)
    supplies.on_battery(80)
    daemon.start()
    daemon.manual(20)
    wait_until(lambda: logind.property("LidClosed"), "the lid closes", 20)
    supplies.on_battery(79)
    wait_until(lambda: daemon.state().get("lastLidClosed") is True, "the next pass sees it", 5)
    equal(logind.locks(), [daemon.process.pid], "the lock under the closed lid")
    equal(logind.started_units(), [], "nobody asked for sleep yet")

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


main(test)
