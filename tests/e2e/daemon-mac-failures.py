#!/usr/bin/python3 -B
"""Whatever fails, no Mac stays awake that should sleep: tools that refuse or lie, ends and new
starts of the daemon and of the machine, and what is lost on disk.

usage: daemon-mac-failures.py NODOD NODOCTL [TEST ...]
"""

import os
import pathlib
import shutil
import subprocess
import time

from expectations import check, contains, equal, wait_until
from mac_world import BATTERY, MARK, SLEEP_NOW, SWITCH_OFF, SWITCH_ON, main

RETRY = 65  # seconds: what was refused is tried again every minute


def error_of(daemon, method, *arguments):
    """What the reply to a request that must fail says."""
    reply = daemon.call(method, "x" if arguments else "", arguments)
    check("error" in reply, f"{method} succeeded: {reply}")
    return reply["error"]


def take_and_close_the_lid(daemon, mac):
    mac.change(**BATTERY)
    daemon.start()
    daemon.manual(20)
    mac.close_lid()
    daemon.expect_lock(True, "with a timer")


# ---- requests


def a_lock_that_is_refused_fails_the_request(daemon, mac):
    daemon.start()
    for fault in ["lies", "refuses"]:
        mac.change(faults={SWITCH_ON: fault})
        contains(error_of(daemon, "EnableManual", 20), "the kernel says that sleep is not disabled",
                 f"the reply where pmset {fault}")
    check(not mac.now()["preference"], "no start of the Mac brings a lock")


def nodoctl_tells_that_the_lock_is_refused(daemon, mac):
    mac.change(faults={SWITCH_ON: "lies"})
    daemon.start()
    result = daemon.run_nodoctl("manual", "--minutes", "20")
    contains(result.stderr, "the kernel says that sleep is not disabled", "what it says")


def a_release_that_is_refused_fails_the_request_and_is_tried_again(daemon, mac):
    daemon.start()
    daemon.manual(20)
    mac.change(faults={SWITCH_OFF: "lies"})
    for method in ["Stop", "Repair"]:
        contains(error_of(daemon, method), "the kernel says that sleep is disabled", method)
        daemon.expect_lock(True, f"after a refused {method}")
    mac.change(faults={})
    daemon.reconcile()
    daemon.expect_lock(False, "after the next pass")
    check("manualUntil" not in daemon.state(), "no timer is left")


def what_was_refused_is_tried_again_within_a_minute(daemon, mac):
    """A release, and nobody asks again."""
    take_and_close_the_lid(daemon, mac)
    mac.change(faults={SWITCH_OFF: "lies"})
    daemon.call("Stop")
    daemon.expect_lock(True, "after a refused stop")
    mac.change(faults={})
    wait_until(lambda: not mac.sleep_is_disabled(), "the release is tried again", RETRY)
    wait_until(lambda: mac.now()["asleep"], "and the closed Mac sleeps", 5)


def sleep_that_is_refused_is_asked_for_again(daemon, mac):
    take_and_close_the_lid(daemon, mac)
    mac.change(faults={SLEEP_NOW: "refuses"})
    daemon.call("Stop")
    daemon.expect_lock(False, "after the stop")
    check(not mac.now()["asleep"], "sleep was refused")
    mac.change(faults={})
    wait_until(lambda: mac.now()["asleep"], "sleep is asked for again", RETRY)


def a_lock_that_somebody_switches_off_is_taken_again(daemon, _mac):
    daemon.start()
    daemon.manual(20)
    subprocess.run(["/usr/bin/pmset", "-a", "disablesleep", "0"], check=True)
    daemon.expect_lock(False, "when somebody has switched it off")
    daemon.reconcile()
    daemon.expect_lock(True, "after the next pass")
    check(daemon.status()["state"]["ownsSleepDisable"], "the lock is nodo's")
    daemon.stop()
    daemon.expect_lock(False, "after the stop")


# ---- ends of the daemon


def an_end_whose_release_is_refused_is_no_success(daemon, mac):
    daemon.start()
    daemon.manual(20)
    mac.change(faults={SWITCH_OFF: "lies"})
    equal(daemon.terminate(), 1, "the exit with the lock on, so that launchd starts it again")
    check(MARK.exists(), "the mark stays")
    mac.change(faults={})
    daemon.put_timer(-60, ownsSleepDisable=True)
    daemon.start()
    daemon.expect_lock(False, "after the next start")
    check(not MARK.exists(), "the mark is gone")


def a_lock_of_a_killed_daemon_is_released_though_the_state_is_lost(daemon, mac):
    take_and_close_the_lid(daemon, mac)
    check(MARK.exists(), "a mark tells of the lock")
    daemon.kill()
    shutil.rmtree(daemon.state_folder)
    daemon.start()
    daemon.expect_lock(False, "without a timer")
    check(mac.now()["asleep"], "the closed Mac sleeps")
    check(MARK.exists(), "the mark stays until it has slept")
    mac.change(lidClosed=False)
    daemon.reconcile()
    check(not MARK.exists(), "the mark is gone with the lid open")


def a_lock_left_behind_goes_though_the_daemon_cannot_start(daemon, mac):
    daemon.start()
    daemon.manual(20)
    daemon.kill()
    shutil.rmtree(daemon.state_folder)
    pathlib.Path(daemon.state_folder).write_text("no folder", encoding="utf-8")
    try:
        run = subprocess.run(daemon.command(), capture_output=True, text=True, check=False,
                             timeout=60)
    finally:
        os.unlink(daemon.state_folder)
    equal(run.returncode, 1, f"the exit ({run.stderr})")
    daemon.expect_lock(False, "when it has ended")
    check(not MARK.exists() and mac.now()["preference"] is False, "and no start brings it back")


def a_timer_beyond_the_longest_is_cut(daemon, _mac):
    daemon.put_timer(10**9)
    daemon.start()
    remaining = daemon.status()["manualRemainingSeconds"]
    check(0 < remaining <= 720 * 60, f"the longest timer, not {remaining} s")
    daemon.expect_lock(True, "with a timer")


def once_leaves_no_lock(daemon, mac):
    daemon.put_timer(600)
    run = subprocess.run([*daemon.command(), "--once"], capture_output=True, text=True, check=False,
                         timeout=60)
    equal(run.returncode, 0, f"the exit ({run.stderr})")
    equal(len(mac.runs(SWITCH_ON)), 1, "its pass took the lock")
    daemon.expect_lock(False, "when it has ended")
    check(not MARK.exists(), "no mark is left")


# ---- starts of the machine


def a_lock_that_comes_back_with_the_machine_is_released(daemon, mac):
    daemon.start()
    daemon.manual(20)
    daemon.kill()
    mac.restart()
    daemon.expect_lock(True, "by the preference")
    daemon.put_timer(-60, ownsSleepDisable=True)
    daemon.start()
    daemon.expect_lock(False, "after the start")
    equal(mac.now()["preference"], False, "what the next start of the Mac will apply")


def a_lock_that_powerd_brings_back_late_is_released(daemon, mac):
    daemon.start()
    daemon.manual(20)
    daemon.kill()
    mac.change(powerdDelay=1)
    mac.restart()
    daemon.put_timer(-60, ownsSleepDisable=True)
    daemon.start()
    time.sleep(2)  # in which powerd applies what it will
    daemon.expect_lock(False, "when powerd has done its work")
    equal(mac.now()["preference"], False, "what the next start of the Mac will apply")


# ---- the disk


def a_state_folder_that_is_gone_keeps_no_lock(daemon, _mac):
    daemon.start()
    daemon.manual(20)
    shutil.rmtree(daemon.state_folder)
    daemon.call("Stop")
    daemon.expect_lock(False, "after a stop")


def a_state_that_cannot_be_read_keeps_no_lock(daemon, _mac):
    daemon.start()
    daemon.manual(20)
    (daemon.state_folder / "state.json").write_text("{", encoding="utf-8")
    error_of(daemon, "Stop")
    daemon.expect_lock(False, "after a stop")
    os.unlink(daemon.state_folder / "state.json")


main([a_lock_that_is_refused_fails_the_request, nodoctl_tells_that_the_lock_is_refused,
      a_release_that_is_refused_fails_the_request_and_is_tried_again,
      what_was_refused_is_tried_again_within_a_minute, sleep_that_is_refused_is_asked_for_again,
      a_lock_that_somebody_switches_off_is_taken_again,
      an_end_whose_release_is_refused_is_no_success,
      a_lock_of_a_killed_daemon_is_released_though_the_state_is_lost,
      a_lock_left_behind_goes_though_the_daemon_cannot_start, a_timer_beyond_the_longest_is_cut,
      once_leaves_no_lock,
      a_lock_that_comes_back_with_the_machine_is_released,
      a_lock_that_powerd_brings_back_late_is_released,
      a_state_folder_that_is_gone_keeps_no_lock, a_state_that_cannot_be_read_keeps_no_lock])
