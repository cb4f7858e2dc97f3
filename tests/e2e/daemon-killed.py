#!/usr/bin/python3 -B
"""A daemon that is killed at any moment leaves no lock behind, loses no timer and breaks no state.

usage: daemon-killed.py NODOD
"""

import json
import multiprocessing
import os
import pathlib
import random
import time

import dbus

from buses import HELPER
from clients import connect
from daemon_world import main
from expectations import check, equal, wait_until
from laptop import Network, PowerSupplies

KILLS = 200
MOST_SECONDS = 2  # from the daemon's start until a timer's lock is back
ROUND = 10  # kills between two looks at what the daemon makes of it


class Load:
    """Clients that send requests without pause, whoever answers, while they are let."""

    def __init__(self, clients):
        self.is_on = multiprocessing.Event()
        self.answered = multiprocessing.Value("L")
        self.resting = multiprocessing.Value("l")
        self.clients = [multiprocessing.Process(target=self.send, daemon=True)
                        for _ in range(clients)]
        for client in self.clients:
            client.start()

    def send(self):
        bus = connect()
        requests = [("EnableManual", "x", (20,)), ("Stop", "", ()), ("Status", "", ()),
                    ("EnableManualV2", "xba{sv}", (30, True, {"name": "load"})),
                    ("Reconcile", "", ()), ("EnableManual", "x", (5,)), ("Repair", "", ())]
        while True:
            if not self.is_on.is_set():
                self.count(self.resting, 1)
                self.is_on.wait()
                self.count(self.resting, -1)
            method, signature, arguments = random.choice(requests)
            try:
                bus.call_blocking(*HELPER, method, signature, arguments, timeout=2)
                self.count(self.answered, 1)
            except dbus.DBusException:
                time.sleep(0.002)

    @staticmethod
    def count(value, difference):
        with value.get_lock():
            value.value += difference

    def start(self):
        self.is_on.set()
        wait_until(lambda: self.resting.value == 0, "the clients begin")

    def stop(self):
        self.is_on.clear()
        wait_until(lambda: self.resting.value == len(self.clients), "the clients rest")


def check_state(daemon):
    """Whatever is on disk is a whole state."""
    path = daemon.state_folder / "state.json"
    if path.exists():
        text = path.read_text(encoding="utf-8")
        try:
            check("createdAt" in json.loads(text), f"a whole state: {text}")
        except ValueError:
            raise AssertionError(f"not JSON: {text!r}") from None


def has_timer(daemon):
    return (daemon.state_folder / "state.json").exists() and "manualUntil" in daemon.state()


def seconds_of_recovery(daemon, logind):
    """How long after its start the next daemon had taken back the lock of a timer."""
    began = time.monotonic()
    daemon.start()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the timer's lock is back")
    seconds = time.monotonic() - began
    check(seconds < MOST_SECONDS, f"the timer's lock was back only after {seconds} s")
    check(daemon.status()["state"]["ownsSleepDisable"], "the state knows of the lock")
    return seconds


def check_that_nothing_is_recovered(daemon, logind):
    daemon.start()
    check(not daemon.status()["state"]["ownsSleepDisable"], "the state knows of no lock")
    equal(logind.locks(), [], "a lock without a timer")


class Recoveries:
    """What the next daemon makes of the state that a killed one left, time after time."""

    def __init__(self, daemon, logind):
        self.daemon = daemon
        self.logind = logind
        self.seconds = []  # of those with a timer
        self.without_timer = 0

    def check_next(self):
        if has_timer(self.daemon):
            self.seconds.append(seconds_of_recovery(self.daemon, self.logind))
        else:
            check_that_nothing_is_recovered(self.daemon, self.logind)
            self.without_timer += 1

    def check_next_after(self, has_timer_now):
        """The same for a state that is known, so that both kinds are sure to be seen."""
        if has_timer_now:
            self.daemon.manual(20)
        else:
            self.daemon.stop()
        self.daemon.kill()
        equal(has_timer(self.daemon), has_timer_now, "an answered request has been saved")
        self.check_next()


def test(daemon, logind):
    Network()
    PowerSupplies()
    # What a kill can break is what is being written to a disk.
    daemon.state_folder = pathlib.Path(os.environ["NODO_E2E_DISK"]) / "state"
    seed = random.randrange(1 << 32)
    print(f"seed {seed}")
    random.seed(seed)
    load = Load(2)
    recoveries = Recoveries(daemon, logind)
    for kill in range(1, KILLS + 1):
        load.start()
        # The moment of the kill is what varies: at work, or still at the start.
        begin = daemon.start if random.random() < 0.7 else daemon.spawn
        begin()
        time.sleep(random.uniform(0, 0.06))
        daemon.kill()
        check_state(daemon)
        wait_until(lambda: logind.locks() == [], "the kernel frees a killed daemon's lock")
        if kill % ROUND == 0:
            load.stop()
            recoveries.check_next()
            recoveries.check_next_after(kill // ROUND % 2 == 0)
            daemon.kill()
    check("pass failed" not in daemon.log(), "no pass ever failed")
    check(load.answered.value >= KILLS / 10, f"the load was a load: {load.answered.value} answers")
    print(f"{KILLS} kills, {load.answered.value} requests answered, "
          f"{len(recoveries.seconds)} timers recovered within {max(recoveries.seconds):.3f} s, "
          f"{recoveries.without_timer} times none")


main(test)
