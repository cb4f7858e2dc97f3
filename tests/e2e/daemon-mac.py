#!/usr/bin/python3 -B
"""The lock of macOS is what the kernel says, whatever pmset says, and no tool keeps the daemon.

usage: daemon-mac.py NODOD NODOCTL [TEST ...]
"""

import subprocess
import time

from expectations import check, contains, equal, wait_until
from mac_world import BATTERY, SLEEP_NOW, SWITCH_OFF, SWITCH_ON, TOOL_LIMIT, main

LIE = "pmset: failed to set the value."


def the_kernel_follows_the_requests(daemon, mac):
    daemon.start()
    daemon.expect_lock(False, "at the start")
    check(daemon.manual(20)["state"]["ownsSleepDisable"], "the lock is nodo's")
    daemon.expect_lock(True, "with a timer")
    check(not daemon.stop()["state"]["ownsSleepDisable"], "the lock is nobody's")
    daemon.expect_lock(False, "after a stop")
    equal(daemon.audits(), ["enable:manual_timer", "release:user_stop"], "the audits")
    equal(mac.runs(SLEEP_NOW), [], "nobody asks for sleep with the lid open")
    equal(daemon.terminate(), 0, "the exit")


def a_late_powerd_is_waited_for(daemon, mac):
    mac.change(powerdDelay=0.3)
    daemon.start()
    check(daemon.manual(20)["state"]["ownsSleepDisable"], "the lock is nodo's")
    daemon.expect_lock(True, "when the request is answered")
    daemon.stop()
    daemon.expect_lock(False, "when the stop is answered")
    equal((len(mac.runs(SWITCH_ON)), len(mac.runs(SWITCH_OFF))), (1, 1), "once each")


def a_lie_about_switching_on_is_noticed(daemon, mac):
    mac.change(faults={SWITCH_ON: "lies"})
    daemon.start()
    daemon.call("EnableManual", "x", (20,))
    check(not daemon.status()["state"]["ownsSleepDisable"], "nobody owns a lock that is off")
    equal(daemon.state()["powerOperationHistory"][-1]["exitCode"], 1,
          "the audit of a switch for which pmset exits 0")
    contains(daemon.log(), f"(exit 1): {LIE}; the kernel says that sleep is not disabled",
             "the log")
    mac.change(faults={})
    daemon.reconcile()
    daemon.expect_lock(True, "once pmset works")


def a_lie_about_the_release_is_no_release(daemon, mac):
    daemon.start()
    daemon.manual(20)
    mac.change(faults={SWITCH_OFF: "lies"})
    daemon.call("Stop")
    daemon.expect_lock(True, "after a release that was none")
    check(daemon.status()["state"]["ownsSleepDisable"], "nodo still owns it")
    contains(daemon.log(), "the kernel says that sleep is disabled", "the log")
    mac.change(faults={})
    daemon.reconcile()
    daemon.expect_lock(False, "once pmset works")


def a_refusal_is_told_with_pmsets_own_words(daemon, mac):
    mac.change(faults={SWITCH_ON: "refuses"})
    daemon.start()
    daemon.call("EnableManual", "x", (20,))
    contains(daemon.log(), "(exit 1): pmset: refused", "the log")


def a_closed_lid_on_battery_sleeps_once_the_kernel_lets_it(daemon, mac):
    mac.change(powerdDelay=0.3, **BATTERY)
    daemon.start()
    daemon.manual(20)
    mac.close_lid()
    check(not mac.now()["asleep"], "the lock keeps it awake")
    check(not mac.need_emergency_sleep(), "nothing saves a Mac with the lock on")
    mac.change(percent=80)
    daemon.stop()
    equal(mac.runs(SLEEP_NOW), [(False, 0)], "asked once, with the kernel's flag off")
    check(mac.now()["asleep"], "it sleeps")
    equal(daemon.audits()[-1], "closed_lid_release", "the last audit")


def a_mac_without_a_lid_is_kept_awake_too(daemon, mac):
    mac.change(lidClosed=None)
    daemon.start()
    check(daemon.manual(20)["state"]["ownsSleepDisable"], "the lock is nodo's")
    daemon.expect_lock(True, "with a timer")
    daemon.stop()
    daemon.expect_lock(False, "after a stop")


def a_hanging_pmset_ends_in_time(daemon, mac):
    daemon.start()
    mac.change(faults={SWITCH_ON: "hangs"})
    began = time.monotonic()
    daemon.call("EnableManual", "x", (20,))
    seconds = time.monotonic() - began
    check(TOOL_LIMIT - 1 < seconds < 2 * TOOL_LIMIT, f"one limit, not {seconds:.1f} s")
    contains(daemon.log(), "/usr/bin/pmset has no end", "the log")
    mac.change(faults={})
    daemon.reconcile()
    daemon.expect_lock(True, "once pmset works")


def a_hanging_ioreg_ends_in_time(daemon, mac):
    mac.change(faults={"ioreg": "hangs"})
    daemon.spawn()
    wait_until(daemon.is_serving, "nodod takes its name")
    began = time.monotonic()
    contains(daemon.call("Status").get("error"), "/usr/sbin/ioreg has no end", "the answer")
    seconds = time.monotonic() - began
    check(seconds < 4 * TOOL_LIMIT, f"the limits of a pass and of the status, not {seconds:.1f} s")
    children = subprocess.run(["/usr/bin/pgrep", "-P", str(daemon.process.pid)],
                              capture_output=True, text=True, check=False)
    equal(children.stdout, "", "the children that are left")
    mac.change(faults={})
    check("status" in daemon.call("Status"), "it answers again")


def pmset_is_used_only_where_it_is_named(daemon, mac):
    daemon.put_timer(60)
    run = subprocess.run(
        [daemon.program, "--power", "auto", "--once", "--state-dir", daemon.state_folder],
        capture_output=True, text=True, check=False, timeout=60)
    equal(run.returncode, 0, f"the exit ({run.stderr})")
    contains(run.stderr, "it is only simulated", "what it says")
    equal(mac.now()["runs"], [], "the tools that were run")


main([the_kernel_follows_the_requests, a_late_powerd_is_waited_for,
      a_lie_about_switching_on_is_noticed, a_lie_about_the_release_is_no_release,
      a_refusal_is_told_with_pmsets_own_words,
      a_closed_lid_on_battery_sleeps_once_the_kernel_lets_it,
      a_mac_without_a_lid_is_kept_awake_too, a_hanging_pmset_ends_in_time,
      a_hanging_ioreg_ends_in_time, pmset_is_used_only_where_it_is_named])
