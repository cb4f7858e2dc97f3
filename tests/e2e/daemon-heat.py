#!/usr/bin/python3 -B
"""A lock goes when the machine gets too hot, and a closed laptop on battery sleeps then.

Run by 'with-logind --lid', whose lid closes some seconds after logind began to watch it.

usage: daemon-heat.py NODOD NODOCTL
"""

import os
import pathlib
import shutil
import subprocess
import sys
import time

from daemon_world import date, main
from expectations import check, equal, wait_until
from laptop import FOLDER, Firmware, Network, PowerSupplies
from processes import environment

GRACE = 120  # seconds, in which serious heat under a closed lid may pass
LEFT = 8  # of it, when the test joins in


def offer_sleep():
    """To a logind that sees umockdev's /sys instead of the machine's."""
    power = pathlib.Path(os.environ["UMOCKDEV_DIR"]) / "sys/power"
    shutil.copytree("/sys/power", power, dirs_exist_ok=True)


def headline():
    variables = environment(HOME=str(FOLDER), LANG="C.UTF-8", TZ="UTC0")
    return subprocess.run([sys.argv[2], "status"], env=variables, text=True, capture_output=True,
                          check=False, timeout=20).stdout.partition("\n")[0]


def heat_comes_and_goes_with_the_lid_open(daemon, logind, firmware):
    daemon.manual(20)
    firmware.heat(96)
    daemon.call("Reconcile")  # as it does itself every minute
    equal(logind.locks(), [], "the lock in critical heat")
    wait_until(lambda: daemon.audits()[-1] == "release:thermal_pressure", "audit")
    equal(logind.started_units(), [], "an open laptop is not sent to sleep")
    firmware.heat(94)
    daemon.call("Reconcile")
    equal(logind.locks(), [daemon.process.pid], "the lock in serious heat")
    check("seriousHeatSince" not in daemon.state(), "the lid is open")
    firmware.cool()


def lasting_heat_under_a_closed_lid_sends_it_to_sleep(daemon, logind, firmware, supplies):
    wait_until(lambda: logind.property("LidClosed"), "the lid closes", 20)
    daemon.start()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the lock under the closed lid")
    firmware.heat(92)
    snapshot = daemon.call("Reconcile")["run"]["status"]["snapshot"]
    equal(snapshot["hotZone"], {"name": "acpitz", "celsius": 92, "limitCelsius": 90}, "the zone")
    since = daemon.state()["seriousHeatSince"]
    equal(logind.locks(), [daemon.process.pid], "the lock inside of the grace")
    equal(daemon.terminate(), 0, "the exit")
    equal(logind.started_units(), [], "on mains nobody asks for sleep")

    supplies.on_battery(80)
    daemon.put_timer(1200, seriousHeatSince=date(time.time() - GRACE + LEFT), lastLidClosed=True)
    check(since > daemon.state()["seriousHeatSince"], "as if it had lasted for long")
    daemon.start()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the lock for the rest of the grace")
    wait_until(lambda: logind.locks() == [], "the lock goes after the grace", LEFT + 15)
    wait_until(lambda: "suspend.target" in logind.started_units(), "logind is asked for sleep")
    wait_until(lambda: daemon.audits()[-2:] == ["release:thermal_pressure", "closed_lid_release"],
               "audits")
    check("too hot with its lid closed since " in headline(), headline())


def test(daemon, logind):
    Network()
    firmware, supplies = Firmware(), PowerSupplies()
    offer_sleep()
    supplies.on_battery(80)
    daemon.start()
    heat_comes_and_goes_with_the_lid_open(daemon, logind, firmware)
    equal(daemon.terminate(), 0, "the exit")
    supplies.on_mains()
    lasting_heat_under_a_closed_lid_sends_it_to_sleep(daemon, logind, firmware, supplies)
    daemon.terminate()


main(test)
