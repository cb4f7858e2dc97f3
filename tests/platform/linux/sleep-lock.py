#!/usr/bin/python3 -B
"""The sleep lock against the real logind. Run by with-logind.

usage: sleep-lock.py DRIVER
"""
import json
import os
import signal
import subprocess
import time

import clients
from buses import BUS, LOGIND, call, monitor, process_of, reply_of
from clients import Client
from driven import DRIVER
from expectations import PATIENCE, check, contains, equal, wait_until
from laptop import FOLDER
from processes import NOBODY, Driven, as_user, start

KINDS = "sleep:handle-lid-switch"
WHY = "somebody works"
TAKE = f'logind Inhibit("{KINDS}", "nodo", "{WHY}", "block")'
SLACK = 2  # seconds, for machines that have much else to do


def start_lock(**options):
    lock = Driven(DRIVER, "lock", **options)
    equal(lock.ask(f"because {WHY}"), "set", "terms before there is a lock")
    return lock


def result(action, requested, command, code=0, error=""):
    return {"action": action, "requestedSleepDisabled": requested, "dryRun": False,
            "executedCommand": command, "exitCode": code, "stdout": "", "stderr": error}


TAKEN = result("disable_sleep", True, TAKE)
RELEASED = result("enable_sleep", False, "close logind's inhibitor")


def our_locks(pid=None):
    """Those that a process holds, or all of nodo's."""
    return [lock for lock in reply_of(call(LOGIND, "ListInhibitors"))
            if lock[1] == "nodo" and pid in [None, lock[5]]]


def suspends_started():
    lines = (FOLDER / "manager.log").read_text(encoding="utf-8").splitlines()
    return [line for line in lines if "StartUnit" in line and "suspend.target" in line]


def it_is_taken_and_released(lock):
    equal(lock.ask("held"), "no", "held at first")
    equal(json.loads(lock.ask("release")), RELEASED, "releasing what is not held")

    equal(json.loads(lock.ask("take")), TAKEN, "taking")
    equal(lock.ask("held"), "yes", "held")
    equal([held[:5] for held in our_locks(lock.pid)],
          [[KINDS, "nodo", WHY, "block", 0]], "logind's list")
    equal(json.loads(lock.ask("take")), TAKEN, "taking twice")
    wait_until(lambda: len(our_locks(lock.pid)) == 1, "one lock is left of two", PATIENCE)
    equal(lock.ask("held"), "yes", "held after taking twice")

    equal(json.loads(lock.ask("release")), RELEASED, "releasing")
    # logind has seen it by then: no waiting here.
    equal(our_locks(lock.pid), [], "logind's list after releasing")
    equal(lock.ask("held"), "no", "held after releasing")


def terms_and_kinds(lock):
    return [[held[2], held[0]] for held in our_locks(lock.pid)]


def its_terms_change_without_a_gap(lock):
    """logind tells what is blocked as each inhibitor comes and goes."""
    lock.ask("take")
    changes = monitor(f"type='signal',member='PropertiesChanged',path='{LOGIND[1]}'")
    for command, why, kinds in [("because one", "one", KINDS), ("because two", "two", KINDS),
                                ("display three", "three", "sleep:idle:handle-lid-switch"),
                                (f"because {WHY}", WHY, KINDS)]:
        equal(lock.ask(command), "set", "new terms")
        wait_until(lambda expected=[[why, kinds]]: terms_and_kinds(lock) == expected,
                   f"{command}: the old ones are gone", PATIENCE)
    equal(lock.ask("held"), "yes", "held by the last terms")
    for number in range(8):
        properties = json.loads(changes.next_line("a change"))["payload"]["data"][1]
        blocked = properties["BlockInhibited"]["data"].split(":")
        check({"sleep", "handle-lid-switch"} <= set(blocked), f"change {number}: {blocked}")
    changes.end()
    lock.ask("release")
    equal(our_locks(lock.pid), [], "logind's list after releasing")


def it_keeps_the_old_terms_where_new_ones_are_not_to_be_had(lock, logind):
    lock.ask("take")
    os.kill(logind, signal.SIGSTOP)
    contains(ask_hung_logind(lock, "because later"), "error ", "new terms from a hung logind")
    os.kill(logind, signal.SIGCONT)
    wait_until(lambda: terms_and_kinds(lock) == [[WHY, KINDS]], "the old ones alone", PATIENCE)
    equal(lock.ask("held"), "yes", "held by the old terms")
    equal(json.loads(lock.ask("take")), TAKEN, "and by them again")


def it_leaks_no_descriptors(lock):
    lock.ask("take")
    lock.ask("release")
    before = lock.descriptors()
    for number in range(50):
        lock.ask("take")
        equal(lock.ask(f"because {number % 2}"), "set", "new terms")
        lock.ask("release")
    equal(lock.descriptors(), before, "descriptors after fifty locks")


def it_gathers_nothing_that_others_send_meanwhile():
    lock = start_lock()
    contains(lock.ask("take"), "disable_sleep", "a lock")
    contains(lock.ask("release"), "enable_sleep", "its end")
    before = lock.descriptors()
    own, = [name for name in reply_of(call(BUS, "ListNames"))
            if name[0] == ":" and process_of(name) == lock.pid]
    for _ in range(3):
        lender = Client(clients.lend_descriptors_by_signals, own)
        lender.expect("done")
        lender.end()
        contains(lock.ask("take"), "disable_sleep", "a lock")
        contains(lock.ask("release"), "enable_sleep", "its end")
        equal(lock.descriptors(), before, "descriptors")
    lock.process.stdin.close()
    equal(lock.process.wait(), 0, "its end")


def another_of_the_same_name_is_not_its_own(lock):
    lock.ask("take")
    other = start_lock()
    equal(other.ask("held"), "no", "held by somebody else")
    other.end()


def it_does_not_stand_in_the_way_of_sleep(lock):
    asleep = result("sleep_now", False, "logind Suspend(false)")
    equal(json.loads(lock.ask("sleep")), asleep, "sleeping")
    equal(our_locks(lock.pid), [], "the lock after sleeping")
    wait_until(lambda: len(suspends_started()) == 1, "the machine was suspended", PATIENCE)


def the_kernel_frees_a_dead_ones(lock):
    lock.ask("take")
    lock.end(signal.SIGKILL)
    wait_until(lambda: our_locks(lock.pid) == [], "the dead one's lock is gone", PATIENCE)


def a_refusal_is_a_result_with_its_words():
    FOLDER.chmod(0o755)
    stranger = start_lock(**as_user(NOBODY))
    refused = json.loads(stranger.ask("take"))
    equal((refused["exitCode"], refused["executedCommand"]), (1, TAKE), "a refusal")
    contains(refused["stderr"], "denied", "a refusal's words")
    equal(stranger.ask("held"), "no", "held after a refusal")
    refused = json.loads(stranger.ask("sleep"))
    equal((refused["action"], refused["exitCode"]), ("sleep_now", 1), "a refused sleep")
    check(refused["stderr"], "a refused sleep has words")
    stranger.end()


def ask_hung_logind(lock, command):
    began = time.monotonic()
    answer = lock.ask(command)
    seconds = time.monotonic() - began
    print(f"with a logind that hangs {command} took {seconds:.2f} s")
    check(seconds < 2 + SLACK, f"{command} takes at most two seconds, not {seconds}")
    return answer


def with_a_logind_that_hangs_nothing_is_known(lock, logind):
    """Each question ends within its limit."""
    sleeper = start_lock()
    lock.ask("take")
    sleeper.ask("take")
    os.kill(logind, signal.SIGSTOP)
    equal(ask_hung_logind(lock, "held"), "unknown", "held by a hung logind")
    contains(ask_hung_logind(lock, "take"), "error ", "taking from a hung logind")
    # The closed descriptor is the release, whatever logind does.
    equal(json.loads(ask_hung_logind(lock, "release")), RELEASED, "releasing with a hung logind")
    contains(ask_hung_logind(sleeper, "sleep"), "error ", "sleeping with a hung logind")
    contains(ask_hung_logind(sleeper, "sleep"), "error ", "sleeping so without a lock")
    os.kill(logind, signal.SIGCONT)
    wait_until(lambda: our_locks(sleeper.pid) == [], "logind has seen the sleeper's release",
               PATIENCE)
    sleeper.end()
    wait_until(lambda: our_locks(lock.pid) == [], "logind has seen the release", PATIENCE)
    equal(lock.ask("held"), "no", "held again known")
    equal(json.loads(lock.ask("take")), TAKEN, "taking again")


def choice(name):
    return subprocess.run([DRIVER, "choose", name], text=True, capture_output=True, check=False)


def without_logind_it_is_an_error_until_there_is_one_again(lock, logind):
    os.kill(logind, signal.SIGKILL)
    wait_until(lambda: process_of(LOGIND[0]) is None, "logind is gone", PATIENCE)
    equal(lock.ask("held"), "unknown", "held without logind")
    contains(lock.ask("take"), "error ", "taking without logind")
    contains(lock.ask("sleep"), "error ", "sleeping without logind")
    contains(lock.ask("release"), "error ", "releasing nothing without logind")
    equal(choice("auto").stdout, "simulated\n", "chosen by itself without logind")
    equal(choice("logind").returncode, 1, "logind cannot be had")
    start("/lib/systemd/systemd-logind", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(lambda: call(LOGIND, "ListInhibitors").returncode == 0, "logind is back", PATIENCE)
    equal(json.loads(lock.ask("take")), TAKEN, "taking from the next logind")
    equal(lock.ask("held"), "yes", "held by the next logind")
    equal(choice("auto").stdout, "real\n", "chosen by itself with logind")
    equal(choice("simulated").stdout, "simulated\n", "chosen on purpose")
    contains(choice("pmset").stderr, "no pmset", "what this system does not have")
    lock.end()
    wait_until(lambda: our_locks() == [], "all are gone", PATIENCE)


def main():
    lock = start_lock()
    it_is_taken_and_released(lock)
    its_terms_change_without_a_gap(lock)
    it_leaks_no_descriptors(lock)
    it_gathers_nothing_that_others_send_meanwhile()
    another_of_the_same_name_is_not_its_own(lock)
    it_does_not_stand_in_the_way_of_sleep(lock)
    the_kernel_frees_a_dead_ones(lock)
    a_refusal_is_a_result_with_its_words()
    lock, logind = start_lock(), process_of(LOGIND[0])
    it_keeps_the_old_terms_where_new_ones_are_not_to_be_had(lock, logind)
    with_a_logind_that_hangs_nothing_is_known(lock, logind)
    without_logind_it_is_an_error_until_there_is_one_again(lock, logind)


main()
