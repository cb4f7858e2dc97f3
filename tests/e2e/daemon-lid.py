#!/usr/bin/python3 -B
"""A lock that is released under a closed lid on battery sends the machine to sleep. Runs itself by
with-logind under umockdev-run, which closes logind's lid some seconds after logind began to watch it.

usage: daemon-lid.py NODOD
"""

import os
import pathlib
import shutil
import sys

here = pathlib.Path(__file__).resolve().parent
if "NODO_E2E_DIR" not in os.environ:
    if shutil.which("umockdev-run") is None:
        print("skipped: umockdev is not installed", file=sys.stderr)
        sys.exit(77)
    lid = f"/dev/input/event0={here}/daemon-lid"
    os.execvp("umockdev-run", ["umockdev-run", "--device", f"{here}/daemon-lid.umockdev", "--ioctl",
                               f"{lid}.ioctl", "--evemu-events", f"{lid}.ev", "--",
                               here / "with-logind", __file__, *sys.argv[1:]])

from daemon_world import Network, PowerSupplies, main  # noqa: E402
from expectations import check, equal, wait_until  # noqa: E402


def offer_sleep():
    """To a logind that sees umockdev's /sys instead of the machine's."""
    power = pathlib.Path(os.environ["UMOCKDEV_DIR"]) / "sys/power"
    shutil.copytree("/sys/power", power, dirs_exist_ok=True)


def test(daemon, logind):
    Network()
    supplies = PowerSupplies()
    offer_sleep()
    for switch in ["HandleLidSwitch", "HandleLidSwitchExternalPower", "HandleLidSwitchDocked"]:
        equal(logind.properties.Get("org.freedesktop.login1.Manager", switch), "ignore", switch)
    supplies.on_battery(80)
    daemon.start()
    daemon.manual(20)
    wait_until(logind.is_lid_closed, "the lid closes", 20)
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
