#!/usr/bin/python3 -B
"""The lock in logind's own list comes and goes as the requests and the timer say.

usage: daemon-lock.py NODOD NODOCTL
"""

import datetime
import json
import os
import pathlib
import signal
import subprocess
import sys
import time

from buses import HELPER, LOGIND, call, process_of
from daemon_world import Logind, main
from expectations import check, equal, wait_until
from laptop import FOLDER, Network, PowerSupplies
from processes import NOBODY, environment, start


IDLE_SECONDS = 2


def nodoctl(*arguments):
    return subprocess.run([sys.argv[2], *arguments], capture_output=True, text=True, check=False,
                          env=environment(NODO_STATE_DIR=str(FOLDER / "user")))


def requests_switch_the_lock(daemon, logind):
    daemon.start()
    equal(logind.locks(), [], "no lock without a timer")
    answer = nodoctl("manual", "--minutes", "20", "--extend-only", "--requester", "Claude Code",
                     "--json")
    equal((answer.returncode, answer.stderr), (0, ""), "nodoctl manual")
    check(json.loads(answer.stdout)["state"]["ownsSleepDisable"], "the answer knows of the lock")
    equal(logind.inhibitors(), [lock_of(daemon)], "the lock is the daemon's and says so")
    equal(daemon.state()["lastRequester"]["name"], "Claude Code", "who asked")
    mode = (daemon.state_folder / "state.json").stat().st_mode
    equal(mode & 0o077, 0, f"nobody else may read who asked: mode {mode:o}")
    daemon.manual(30)
    wait_until(lambda: logind.inhibitors() == [lock_of(daemon)], "one lock, with the new end")
    before = logind.inhibitors(), descriptors_of_locks(daemon)
    daemon.call("Reconcile")
    equal((logind.inhibitors(), descriptors_of_locks(daemon)), before, "a pass changes nothing")
    no_program_inherits_the_lock(daemon)
    answer = nodoctl("stop", "--json")
    equal((answer.returncode, answer.stderr), (0, ""), "nodoctl stop")
    equal(logind.locks(), [], "the lock is gone when stop returns")
    equal(daemon.audits(), ["enable:manual_timer", "release:user_stop"], "audits")


def lock_of(daemon):
    """As logind lists it: it names the way out to people who look up what keeps them awake."""
    until = datetime.datetime.fromisoformat(daemon.state()["manualUntil"]).astimezone()
    is_today = until.date() == datetime.date.today()
    clock = until.strftime("%H:%M" if is_today else "%Y-%m-%d %H:%M")
    return (daemon.process.pid, "sleep:handle-lid-switch",
            f"nodo keeps this computer awake until {clock}; nodoctl off")


def descriptors_of_locks(daemon):
    """Another lock is another file of logind's."""
    folder = pathlib.Path(f"/proc/{daemon.process.pid}/fd")
    links = [(link.name, os.readlink(link)) for link in folder.iterdir()]
    return [each for each in links if each[1].startswith("/run/systemd/inhibit/")]


def no_program_inherits_the_lock(daemon):
    """Whoever is started by the daemon must not hold the lock on when the daemon is gone, nor keep
    the state folder from the next one."""
    process = pathlib.Path(f"/proc/{daemon.process.pid}")
    held = [link.name for link in (process / "fd").iterdir()
            if os.readlink(link).startswith(("/run/systemd/inhibit/", str(daemon.state_folder)))]
    equal(len(held), 2, "descriptors of the two")
    for descriptor in held:
        lines = (process / "fdinfo" / descriptor).read_text(encoding="ascii").splitlines()
        flags = next(int(line.split()[1], 8) for line in lines if line.startswith("flags:"))
        check(flags & os.O_CLOEXEC, f"it is closed on exec: flags {flags:o}")


def a_refused_caller_changes_nothing(daemon, logind):
    daemon.manual(20)
    before = daemon.state()
    for arguments in [("EnableManual", "x", "700"), ("Stop",), ("Repair",), ("Reconcile",),
                      ("EnableManualV2", "xba{sv}", "700", "false", "0")]:
        refused = call(HELPER, *arguments, user=NOBODY)
        check(refused.returncode != 0, f"{arguments} of nobody is refused")
        check("Access denied" in refused.stderr or "AccessDenied" in refused.stderr
              or "rejected" in refused.stderr, f"a clear refusal: {refused.stderr}")
    equal(daemon.state(), before, "the state after refusals")
    equal(logind.locks(), [daemon.process.pid], "the lock after refusals")
    equal(daemon.log().count("nodod: rejected"), 1, "lines about what is refused for one reason")
    status = call(HELPER, "Status", user=NOBODY)
    equal(status.returncode, 0, f"anyone may look ({status.stderr})")


def an_invalid_request_is_refused_with_its_reason(daemon, logind):
    equal(daemon.call("EnableManual", "x", (721,)),
          {"error": "Invalid duration: minutes must be <= 720"}, "too long a timer")
    equal(logind.locks(), [daemon.process.pid], "the lock after a bad request")


def a_second_daemon_gives_way(daemon, logind):
    same = daemon.command()
    for command, words in [(same, "another nodod works on the state in"),
                           ([*same[:-1], FOLDER / "other"], HELPER[0])]:
        second = subprocess.run(command, capture_output=True, text=True, check=False, timeout=10)
        equal((second.returncode, second.stdout), (1, ""), "a second daemon's exit")
        check(second.stderr.startswith("nodod: ") and words in second.stderr, second.stderr)
        equal(second.stderr.count("\n"), 1, f"one line: {second.stderr}")
    check(daemon.is_serving(), "the first one still serves")
    equal(logind.locks(), [daemon.process.pid], "and holds its lock")


def a_signal_releases_the_lock_and_the_next_start_takes_it(daemon, logind):
    until = daemon.state()["manualUntil"]
    equal(daemon.terminate(), 0, "the exit after SIGTERM")
    wait_until(lambda: logind.locks() == [], "the lock goes with the daemon")
    equal(daemon.audits()[-1], "release:daemon_stopping", "the audit of the end")
    equal(daemon.state()["manualUntil"], until, "the timer is kept")
    daemon.start()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the lock is back", 2)
    daemon.stop()
    equal(daemon.terminate(), 0, "the exit without a lock")


def the_end_of_the_timer_releases_the_lock(daemon, logind):
    daemon.put_timer(6, ownsSleepDisable=True)
    daemon.start()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "a dead daemon's lock is back", 2)
    wait_until(lambda: logind.locks() == [], "the timer's end releases the lock", 11)
    state = wait_until(lambda: "manualUntil" not in daemon.state() and daemon.state(),
                       "it is saved")
    equal((state["ownsSleepDisable"], state["lastStopReason"]), (False, "manual_expired"), "state")
    equal(daemon.terminate(), 0, "the exit")


def serves_without_a_log(daemon, logind):
    wait_until(daemon.is_serving, "nodod takes its name")
    daemon.manual(20)
    equal(logind.locks(), [daemon.process.pid], "the lock of which nobody could be told")
    daemon.stop()
    equal(logind.locks(), [], "and its release")
    equal(daemon.terminate(), 0, "the exit")


def a_log_that_nobody_reads_does_not_end_it(daemon, logind):
    reader, writer = os.pipe()
    daemon.process = start(*daemon.command(), stdout=writer, stderr=writer)
    os.close(reader)
    os.close(writer)
    serves_without_a_log(daemon, logind)


def a_log_that_is_full_does_not_hold_it_up(daemon, logind):
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    while True:
        try:
            os.write(writer, b"x")
        except BlockingIOError:
            break
    os.set_blocking(writer, True)
    daemon.process = start(*daemon.command(), stdout=writer, stderr=writer)
    os.close(writer)
    serves_without_a_log(daemon, logind)
    os.close(reader)


def no_file_takes_the_place_of_its_log(daemon, logind):
    lock_file = daemon.state_folder / "nodod.lock"
    before = lock_file.read_bytes()
    daemon.process = start("/bin/sh", "-c", 'exec "$@" 2>&-', "sh", *daemon.command())
    serves_without_a_log(daemon, logind)
    equal(lock_file.read_bytes(), before, "the file that is opened first")


def a_single_pass_prints_its_report(daemon, logind):
    daemon.put_timer(600)
    single = subprocess.run(
        [sys.argv[1], "--once", "--power", "logind", "--state-dir", daemon.state_folder],
        capture_output=True, text=True, check=False)
    equal(single.returncode, 0, single.stderr)
    report = json.loads(single.stdout)
    equal(report["operation"]["action"], "disable_sleep", "the pass took the lock")
    equal(logind.locks(), [], "which ended with it")
    check(not daemon.state()["ownsSleepDisable"], "and the state knows")


def start_logind_that_suspends_when_idle():
    """In the place of the one that is there."""
    old = process_of(LOGIND[0])
    os.kill(old, signal.SIGKILL)
    wait_until(lambda: process_of(LOGIND[0]) is None, "logind is gone")
    pathlib.Path("/run/systemd/logind.conf.d/zz-idle.conf").write_text(
        f"[Login]\nIdleAction=suspend\nIdleActionSec={IDLE_SECONDS}s\n", encoding="ascii")
    start("/lib/systemd/systemd-logind", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(lambda: process_of(LOGIND[0]), "logind is back")


def the_lock_holds_off_what_logind_does_to_who_idles(daemon, bus):
    """Though it does not hold up idling, which would keep screens on."""
    start_logind_that_suspends_when_idle()
    logind = Logind(bus)
    daemon.start()
    daemon.manual(20)
    session = logind.create_session()
    logind.set_idle(session)

    def idle_seconds():  # each question also makes logind look at its clock
        return time.time() - logind.property("IdleSinceHint") / 1e6

    wait_until(lambda: logind.property("IdleHint") and idle_seconds() > 3 * IDLE_SECONDS,
               "it idles, and nobody holds that up")
    check("suspend.target" not in logind.started_units(), "it stays awake")
    daemon.stop()
    wait_until(lambda: logind.property("IdleHint") and "suspend.target" in logind.started_units(),
               "it is suspended", IDLE_SECONDS + 5)
    equal(daemon.terminate(), 0, "the exit")


def test(daemon, logind):
    Network()
    PowerSupplies()
    requests_switch_the_lock(daemon, logind)
    a_refused_caller_changes_nothing(daemon, logind)
    an_invalid_request_is_refused_with_its_reason(daemon, logind)
    a_second_daemon_gives_way(daemon, logind)
    a_signal_releases_the_lock_and_the_next_start_takes_it(daemon, logind)
    the_end_of_the_timer_releases_the_lock(daemon, logind)
    a_log_that_nobody_reads_does_not_end_it(daemon, logind)
    a_log_that_is_full_does_not_hold_it_up(daemon, logind)
    no_file_takes_the_place_of_its_log(daemon, logind)
    a_single_pass_prints_its_report(daemon, logind)
    the_lock_holds_off_what_logind_does_to_who_idles(daemon, daemon.bus)


main(test)
