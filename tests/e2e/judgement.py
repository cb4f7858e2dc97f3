#!/usr/bin/python3 -B
"""What people are told first, what the doctor finds and how the commands end, in every plight that
the real daemon and the real logind can be brought into.

usage: judgement.py NODOD NODOCTL
"""

import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import typing

from daemon_world import main
from expectations import check, equal, wait_until
from laptop import FOLDER, Firmware, Network, PowerSupplies
from processes import NOBODY, as_user, environment

LOCK = "sleep:idle:handle-lid-switch"  # as a daemon of an older version holds it


class World:
    """A laptop, its daemon, and a user with one agent whose hooks are in place."""

    home = FOLDER / "home"

    def __init__(self, daemon, logind):
        self.daemon, self.logind = daemon, logind
        self.network, self.supplies, self.firmware = Network(), PowerSupplies(), Firmware()
        self.user = None  # root
        self.held = []

    def begin(self, *options):
        """Everything is well, and nothing asks for anything."""
        self.user = None
        shutil.rmtree(self.home, ignore_errors=True)
        shutil.rmtree(self.daemon.state_folder, ignore_errors=True)
        self.home.mkdir()
        self.supplies.on_mains()
        self.network.connect()
        self.firmware.cool()
        self.firmware.profile("balanced")
        self.daemon.start(*options)
        self.run("hooks", "install", "claude", "--nodoctl", sys.argv[2])

    def end(self):
        for lock in self.held:
            os.close(lock)
        self.held.clear()
        if self.daemon.process.poll() is None:
            self.daemon.process.send_signal(signal.SIGCONT)
            self.daemon.terminate()

    def run(self, *arguments):
        variables = environment(HOME=str(self.home), NODO_HOOK_LOG=f"{self.home}/hook.log",
                                LANG="C.UTF-8", TZ="UTC0")
        return subprocess.run([sys.argv[2], *arguments], env=variables, text=True,
                              capture_output=True, check=False, timeout=20, **as_user(self.user))

    def inhibit(self, who, what):
        self.held.append(self.logind.manager.Inhibit(what, who, "a reason", "block").take())

    def file(self, name):
        return pathlib.Path(self.home, name)


class FirmwarePlights(World):
    """What its firmware can make of it."""

    def timer(self):
        self.daemon.manual(60)

    def critical_heat(self):
        self.timer()
        self.firmware.heat(96)
        self.daemon.call("Reconcile")  # as it does itself every minute
        equal(self.logind.locks(), [], "the locks")

    def serious_heat_without_a_lid(self):
        self.timer()
        self.firmware.heat(92)
        self.daemon.call("Reconcile")

    def low_power_mode(self):
        """By which the daemon lets the machine sleep only where it is told to."""
        self.firmware.profile("low-power")
        self.supplies.on_battery(80)
        self.timer()
        check(self.daemon.status()["snapshot"]["lowPowerMode"], "low power mode is seen")


class Plights(FirmwarePlights):
    """What can become of it, each by its name."""

    def nothing(self):
        pass

    def simulated_lock(self):
        """A daemon that only plays at taking one."""
        self.timer()

    def absent(self):
        self.daemon.terminate()

    def hangs(self):
        self.daemon.process.send_signal(signal.SIGSTOP)

    def hangs_with_lock(self):
        self.timer()
        self.hangs()

    def refuses(self):
        self.timer()
        self.user = NOBODY
        for path in [self.home, *self.home.rglob("*")]:
            os.chown(path, NOBODY, NOBODY)

    def low_battery(self):
        self.timer()
        self.supplies.on_battery(15)
        wait_until(lambda: self.logind.locks() == [], "the lock goes")

    def no_route(self):
        self.timer()
        self.network.unplug()
        wait_until(lambda: self.logind.locks() == [], "the lock goes", 20)

    def unreadable_state(self):
        self.daemon.terminate()
        (self.daemon.state_folder / "state.json").write_text("{", encoding="ascii")
        self.daemon.start()

    def hooks_missing(self):
        self.run("hooks", "uninstall")
        self.file(".claude").mkdir(exist_ok=True)

    def hooks_outdated(self):
        script = self.file(".nodo/nodo-agent-hook.sh")
        script.write_text(script.read_text(encoding="utf-8") + "\n#\n", encoding="utf-8")

    def hooks_untrusted(self):
        self.run("hooks", "install", "codex", "--nodoctl", sys.argv[2])

    def hooks_disabled(self):
        settings = self.file(".claude/settings.json")
        document = json.loads(settings.read_text(encoding="utf-8"))
        settings.write_text(json.dumps({**document, "disableAllHooks": True}), encoding="utf-8")

    def hooks_unreadable(self):
        self.file(".claude/settings.json").write_text("{", encoding="ascii")

    def paused(self):
        self.run("pause", "30m")

    def foreign_lock(self):
        self.inhibit("nodo", LOCK)

    def somebody_else(self):
        self.inhibit("player", "sleep")


class Row(typing.NamedTuple):
    """One plight and all that is expected in it."""

    plight: str
    options: list  # of the daemon
    headline: str
    text: str  # how the headline begins
    findings: list
    statuses: list  # of doctor, status, menu, manual and stop


# At the end of a day the time has its date.
KEPT_FOR_AN_HOUR = r"Kept awake until [-: \d]+ \(1 h left\)\.$"

ROWS = [
    Row("nothing", [], "off", "Not kept awake: no timer runs", [], [0, 0, 0, 0, 0]),
    Row("timer", [], "keptAwake", KEPT_FOR_AN_HOUR, [], [0, 0, 0, 0, 0]),
    Row("absent", [], "daemonMissing",
        "NOT kept awake by this: the daemon nodod is not running on the system bus",
        ["daemonMissing"], [1, 0, 0, 0, 0]),
    Row("hangs", [], "daemonMissing",
        r"NOT kept awake by this: the daemon nodod does not answer\.$", ["daemonMissing"],
        [1, 0, 0, 0, 0]),
    Row("hangs_with_lock", [], "lockWithoutWord",
        r"Kept awake by a lock of nodo's, but not by this: the daemon nodod does not answer\.$",
        ["daemonMissing"], [1, 0, 0, 0, 1]),
    Row("refuses", [], "keptAwake", "Kept awake until ", ["daemonRefuses"], [1, 0, 0, 0, 1]),
    Row("low_battery", [], "sleepAllowed",
        r"The timer runs, but sleep is allowed: battery at 15 % \(limit 20 %\)\. It runs until ",
        ["safetyAllowsSleep"], [1, 0, 0, 1, 0]),
    Row("low_battery", ["--minimum-battery", "35"], "sleepAllowed",
        r"The timer runs, but sleep is allowed: battery at 15 % \(limit 35 %\)\. ",
        ["safetyAllowsSleep"], [1, 0, 0, 1, 0]),
    Row("no_route", ["--no-route-grace", "1"], "sleepAllowed",
        r"The timer runs, but sleep is allowed: no network since \d\d:\d\d \(limit 1 s\)\. ",
        ["safetyAllowsSleep"], [1, 0, 0, 1, 0]),
    Row("critical_heat", [], "sleepAllowed",
        r"The timer runs, but sleep is allowed: the computer is too hot \(acpitz at 96 °C, limit "
        r"95 °C\)\. It runs until ", ["thermalPressure"], [1, 0, 0, 1, 0]),
    Row("serious_heat_without_a_lid", [], "keptAwake", KEPT_FOR_AN_HOUR, [],
        [0, 0, 0, 0, 0]),
    Row("low_power_mode", [], "keptAwake", KEPT_FOR_AN_HOUR, [],
        [0, 0, 0, 0, 0]),
    Row("low_power_mode", ["--low-power-mode", "true"], "sleepAllowed",
        r"The timer runs, but sleep is allowed: low power mode is on \(battery at 80 %\)\. ",
        ["lowPowerMode"], [1, 0, 0, 1, 0]),
    Row("simulated_lock", [], "lockMissing",
        "NOT kept awake by nodo, although the timer runs until ", ["lockMissing"], [1, 0, 0, 1, 0]),
    Row("unreadable_state", [], "daemonMissing",
        "NOT kept awake by this: the daemon nodod failed: the state file ", ["daemonMissing"],
        [1, 0, 0, 0, 0]),
    Row("hooks_missing", [], "off",
        "Not kept awake: no timer runs. No agent is set up yet: nodoctl hooks install$",
        ["noAgentSetUp"], [1, 0, 0, 0, 0]),
    Row("hooks_outdated", [], "off", "Not kept awake", ["hooksOutdated"], [0, 0, 0, 0, 0]),
    Row("hooks_untrusted", [], "off", "Not kept awake", ["hooksNotTrusted"], [1, 0, 0, 0, 0]),
    Row("hooks_disabled", [], "off", "Not kept awake", ["hooksSwitchedOff"], [1, 0, 0, 0, 0]),
    Row("hooks_unreadable", [], "off", "Not kept awake", ["hooksUnreadable"], [1, 0, 0, 0, 0]),
    Row("paused", [], "off", r"Not kept awake: the timer was stopped\.$", ["hooksPaused"],
        [0, 0, 0, 0, 0]),
    Row("foreign_lock", [], "lockLeft",
        r"Still kept awake: the sleep lock is on, although nothing asks for it\.$", ["lockLeft"],
        [1, 0, 0, 0, 1]),
    Row("somebody_else", [], "off", "Not kept awake", ["othersHoldAwake"], [0, 0, 0, 0, 0]),
]
LIMIT = ["--helper-timeout", "0.5"]  # within which a healthy daemon answers


def first_line(text):
    return text.partition("\n")[0]


def begin(world, row):
    world.daemon.power = "simulated" if row.plight == "simulated_lock" else "logind"
    world.begin(*row.options)
    getattr(world, row.plight)()
    return LIMIT if "hangs" in row.plight else ["--helper-timeout", "20"]


def judge(world, row):
    limit = begin(world, row)
    report = json.loads(world.run("doctor", "--json", *limit).stdout)
    equal(report["headline"]["kind"], row.headline, f"the headline, {row} ({report['headline']})")
    equal([each["kind"] for each in report["findings"]], row.findings, f"the findings, {row}")

    doctor, status, menu = (world.run(command, *limit) for command in ["doctor", "status", "menu"])
    shown = {"the doctor's end": doctor.stdout.splitlines()[-1],
             "the menu's head": re.sub("^. nodo: ", "", first_line(menu.stdout))}
    if "hooks" not in row.plight:  # of which the status knows nothing
        shown["the status's head"] = first_line(status.stdout)
    for where, line in shown.items():
        check(re.match(row.text, line), f"{where}, {row}: {line!r}")

    outcomes = [doctor, status, menu, *(change(world, row, command, limit)
                                        for command in [["manual", "--minutes", "60"], ["stop"]])]
    equal([each.returncode for each in outcomes], row.statuses,
          f"the exit statuses, {row} ({[each.stdout + each.stderr for each in outcomes[3:]]})")
    world.end()


def change(world, row, command, limit):
    """What it says first of the lock agrees with logind's list."""
    done = world.run(*command, *limit)
    said = first_line(done.stdout)
    if "kept awake" in said.lower():
        equal(said.startswith(("Kept awake", "Still kept awake")), world.logind.locks() != [],
              f"what {command} says of the lock, {row} ({said})")
    return done


def test(daemon, logind):
    world = Plights(daemon, logind)
    for row in ROWS:
        judge(world, row)


main(test)
