#!/usr/bin/python3 -B
"""The sleep lock against the real logind. Run by with-logind.

usage: sleep-lock.py DRIVER
"""
import json
import os
import signal
import subprocess
import sys
import time

from driven import LOGIND, PATIENCE, Driven, call, inhibitors, our_locks, reply_of
from expectations import check, contains, equal, wait_until

TAKE = 'logind Inhibit("sleep:idle:handle-lid-switch", "nodo", "coding agents are working", "block")'
SLACK = 2  # seconds, for machines that have much else to do
driver = sys.argv[1]


def result(action, requested, command, code=0, error=""):
    return {"action": action, "requestedSleepDisabled": requested, "dryRun": False,
            "executedCommand": command, "exitCode": code, "stdout": "", "stderr": error}


def process_of(name):
    return int(reply_of(call(
        ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"),
        "GetConnectionUnixProcessID", "s", name)))


def suspends_started():
    with open(os.environ["NODO_E2E_DIR"] + "/manager.log", encoding="utf-8") as log:
        return [line for line in log if "StartUnit" in line and "suspend.target" in line]


taken = result("disable_sleep", True, TAKE)
released = result("enable_sleep", False, "close logind's inhibitor")
lock = Driven(driver, "lock")
equal(lock.ask("held"), "no", "held at first")
equal(json.loads(lock.ask("release")), released, "releasing what is not held")

equal(json.loads(lock.ask("take")), taken, "taking")
equal(lock.ask("held"), "yes", "held")
equal([i[:5] for i in our_locks(lock.pid)],
      [["sleep:idle:handle-lid-switch", "nodo", "coding agents are working", "block", 0]],
      "logind's list")
equal(json.loads(lock.ask("take")), taken, "taking twice")
wait_until(lambda: len(our_locks(lock.pid)) == 1, "one lock is left of two", PATIENCE)
equal(lock.ask("held"), "yes", "held after taking twice")

equal(json.loads(lock.ask("release")), released, "releasing")
# logind has seen it by then: no waiting here.
equal(our_locks(lock.pid), [], "logind's list after releasing")
equal(lock.ask("held"), "no", "held after releasing")

lock.ask("take")
lock.ask("release")
before = lock.descriptors()
for _ in range(50):
    lock.ask("take")
    lock.ask("release")
equal(lock.descriptors(), before, "descriptors after fifty locks")

# Another process with the same name is not this one's lock.
lock.ask("take")
other = Driven(driver, "lock")
equal(other.ask("held"), "no", "held by somebody else")
other.end()

# Asleep at once: the own lock does not stand in the way, and logind starts the suspend.
asleep = result("sleep_now", False, "logind Suspend(false)")
equal(json.loads(lock.ask("sleep")), asleep, "sleeping")
equal(our_locks(lock.pid), [], "the lock after sleeping")
wait_until(lambda: len(suspends_started()) == 1, "the machine was suspended", PATIENCE)

# The kernel frees the lock of a process that dies.
lock.ask("take")
lock.end(signal.SIGKILL)
wait_until(lambda: our_locks(lock.pid) == [], "the dead one's lock is gone", PATIENCE)

# What logind refuses is a result with its words.
nobody = 65534
os.chmod(os.environ["NODO_E2E_DIR"], 0o755)
stranger = Driven(driver, "lock", user=nobody, group=nobody, extra_groups=[])
refused = json.loads(stranger.ask("take"))
equal((refused["exitCode"], refused["executedCommand"]), (1, TAKE), "a refusal")
contains(refused["stderr"], "denied", "a refusal's words")
equal(stranger.ask("held"), "no", "held after a refusal")
refused = json.loads(stranger.ask("sleep"))
equal((refused["action"], refused["exitCode"]), ("sleep_now", 1), "a refused sleep")
check(refused["stderr"], "a refused sleep has words")
stranger.end()

# With a logind that hangs each question ends within its limit, and nothing is known.
lock, sleeper = Driven(driver, "lock"), Driven(driver, "lock")
lock.ask("take")
sleeper.ask("take")
logind = process_of("org.freedesktop.login1")
os.kill(logind, signal.SIGSTOP)


def ask_hung_logind(driven, command):
    began = time.monotonic()
    answer = driven.ask(command)
    seconds = time.monotonic() - began
    print(f"with a logind that hangs {command} took {seconds:.2f} s")
    check(seconds < 2 + SLACK, f"{command} takes at most two seconds, not {seconds}")
    return answer


equal(ask_hung_logind(lock, "held"), "unknown", "held by a hung logind")
contains(ask_hung_logind(lock, "take"), "error ", "taking from a hung logind")
# The closed descriptor is the release, whatever logind does.
equal(json.loads(ask_hung_logind(lock, "release")), released, "releasing with a hung logind")
contains(ask_hung_logind(sleeper, "sleep"), "error ", "sleeping with a hung logind")
contains(ask_hung_logind(sleeper, "sleep"), "error ", "sleeping so without a lock")
os.kill(logind, signal.SIGCONT)
wait_until(lambda: our_locks(sleeper.pid) == [], "logind has seen the sleeper's release", PATIENCE)
sleeper.end()
wait_until(lambda: our_locks(lock.pid) == [], "logind has seen the release", PATIENCE)
equal(lock.ask("held"), "no", "held again known")
equal(json.loads(lock.ask("take")), taken, "taking again")

# Without logind it is an error, and with one again it works again.
os.kill(logind, signal.SIGKILL)
wait_until(lambda: call(LOGIND, "ListInhibitors").returncode != 0, "logind is gone", PATIENCE)
equal(lock.ask("held"), "unknown", "held without logind")
contains(lock.ask("take"), "error ", "taking without logind")
contains(lock.ask("sleep"), "error ", "sleeping without logind")
contains(lock.ask("release"), "error ", "releasing nothing without logind")


def choice(name):
    return subprocess.run([driver, "choose", name], text=True, capture_output=True, check=False)


equal(choice("auto").stdout, "simulated\n", "chosen by itself without logind")
equal(choice("logind").returncode, 1, "logind cannot be had")
logind = subprocess.Popen(["/lib/systemd/systemd-logind"], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL)
wait_until(lambda: call(LOGIND, "ListInhibitors").returncode == 0, "logind is back", PATIENCE)
equal(json.loads(lock.ask("take")), taken, "taking from the next logind")
equal(lock.ask("held"), "yes", "held by the next logind")
equal(choice("auto").stdout, "real\n", "chosen by itself with logind")
equal(choice("simulated").stdout, "simulated\n", "chosen on purpose")
contains(choice("pmset").stderr, "no pmset", "what this system does not have")
lock.end()
wait_until(lambda: [i for i in inhibitors() if i[1] == "nodo"] == [], "all are gone", PATIENCE)
logind.terminate()
logind.wait()
