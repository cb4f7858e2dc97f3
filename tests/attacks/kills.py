#!/usr/bin/python3 -B
"""A daemon that is killed at any moment, with requests on their way, keeps what it acknowledged: no
timer is lost, none that was stopped comes back, and the next daemon makes the lock right.

usage: run kills | kills-mac
"""

import json
import math
import multiprocessing
import os
import pathlib
import random
import time
from typing import NamedTuple, Optional

import dbus

from attack import IS_MAC, main, seconds_of
from buses import HELPER
from clients import connect
from expectations import check, equal, wait_until

KILLS, KILLS_OF_MANY = (10, 50) if IS_MAC else (100, 1000)
ROUND = 10  # kills between two looks at what the daemon makes of it
MOST_ANSWERS = 10  # before a kill
SHORTEST_LIFE = 0.5 if IS_MAC else 0.01  # seconds, about what a request takes
PATIENCE = 5  # seconds, until a daemon is killed that answers less
MOST_SECONDS = 5 if IS_MAC else 2  # from the daemon's start until a timer's lock is back
REQUESTS = [("EnableManual", "x", (20,)), ("Stop", "", ()), ("Status", "", ()),
            ("EnableManualV2", "xba{sv}", (30, True, {"name": "load"})),
            ("EnableManualV2", "xba{sv}", (10, True, {"name": "load"})),
            ("Reconcile", "", ()), ("EnableManual", "x", (5,)), ("Repair", "", ())]
NEVER_ARRIVED = ["org.freedesktop.DBus.Error.ServiceUnknown",
                 "org.freedesktop.DBus.Error.NameHasNoOwner"]


class Request(NamedTuple):
    """One that reached the daemon, or may have."""

    method: str
    minutes: int  # 0 for all that set no timer
    sent: float  # by the clock that is never set
    answered: float  # likewise; infinite: never
    sent_on: float  # by the civil clock
    end: Optional[float]  # of the timer, as it was acknowledged

    def writes(self):
        return self.method not in ("Status", "Reconcile")

    def explains(self, end, killed_on):
        """Whether the state is as this one leaves it."""
        if self.answered < math.inf or not self.minutes:
            return end == self.end
        earliest = self.sent_on + 60 * self.minutes
        return end is not None and earliest - 1 <= end <= killed_on + 60 * self.minutes + 1


class Load:
    """Clients that send requests without pause, whoever answers, while they are let."""

    def __init__(self, clients):
        self.is_on = multiprocessing.Event()
        self.answered = multiprocessing.Value("l")
        self.resting = multiprocessing.Value("l")
        self.requests = multiprocessing.SimpleQueue()
        self.clients = [multiprocessing.Process(target=self.send, daemon=True,
                                                args=(random.randrange(1 << 32),))
                        for _ in range(clients)]
        for client in self.clients:
            client.start()

    def send(self, seed):
        lot = random.Random(seed)
        bus = connect()
        while True:
            if not self.is_on.is_set():
                self.rest()
            method, signature, arguments = lot.choice(REQUESTS)
            minutes = arguments[0] if arguments else 0
            sent, sent_on = time.monotonic(), time.time()
            try:
                reply = json.loads(bus.call_blocking(*HELPER, method, signature, arguments,
                                                     timeout=20))
            except dbus.DBusException as error:
                if error.get_dbus_name() not in NEVER_ARRIVED:
                    self.requests.put(Request(method, minutes, sent, math.inf, sent_on, None))
                time.sleep(0.002)
                continue
            status = reply.get("status") or reply.get("run", {}).get("status")
            end = seconds_of(status["state"].get("manualUntil")) if status else reply["error"]
            self.requests.put(Request(method, minutes, sent, time.monotonic(), sent_on, end))
            self.count(self.answered, 1)

    def rest(self):
        self.count(self.resting, 1)
        self.is_on.wait()
        self.count(self.resting, -1)

    @staticmethod
    def count(value, difference):
        with value.get_lock():
            value.value += difference

    def start(self):
        self.is_on.set()
        wait_until(lambda: self.resting.value == 0, "the clients begin")

    def await_answers(self, count):
        enough, latest = self.answered.value + count, time.monotonic() + PATIENCE
        while self.answered.value < enough and time.monotonic() < latest:
            time.sleep(0.001)

    def stop(self):
        """Returns what was sent since the start."""
        self.is_on.clear()
        taken = []

        def rests():
            while not self.requests.empty():
                taken.append(self.requests.get())
            return self.resting.value == len(self.clients)

        wait_until(rests, "the clients rest", 30)
        rests()
        return taken


def timer_on_disk(daemon):
    """When it ends. Whatever is on disk is a whole state."""
    path = daemon.state_folder / "state.json"
    if not path.exists():
        return None
    text = path.read_text(encoding="utf-8")
    try:
        state = json.loads(text)
    except ValueError:
        raise AssertionError(f"not JSON: {text!r}") from None
    check("createdAt" in state, f"a whole state: {text}")
    return seconds_of(state.get("manualUntil"))


class Oracle:
    """Knows what may be on disk, by what was acknowledged."""

    def __init__(self):
        self.end = None  # of the timer, when nothing was sent since
        self.answered = 0
        self.acknowledged = 0  # of those that change the timer
        self.open = 0  # were on their way when the daemon was killed

    def judge(self, requests, end, killed_on):
        """Only a request may be the last that was written after whose answer no other was sent that
        is acknowledged."""
        for request in requests:
            check(not isinstance(request.end, str), f"a request failed: {request}")
        writers = [request for request in requests if request.writes()]
        last_sent = max((writer.sent for writer in writers if writer.answered < math.inf),
                        default=None)
        possible = [writer for writer in writers
                    if last_sent is None or writer.answered >= last_sent]
        check(any(writer.explains(end, killed_on) for writer in possible)
              or (last_sent is None and end == self.end),
              f"the timer on disk ends at {end}, before these at {self.end}: {possible}")
        self.end = end
        self.answered += sum(request.answered < math.inf for request in requests)
        self.acknowledged += sum(writer.answered < math.inf for writer in writers)
        self.open += sum(writer.answered == math.inf for writer in writers)

    def told(self):
        return [f"{self.answered} requests answered",
                f"{self.acknowledged} changes of the timer acknowledged and none lost",
                f"{self.open} on their way when the daemon died"]


class Recoveries:
    """What the next daemon makes of the state that a killed one left, time after time."""

    def __init__(self, world):
        self.world = world
        self.daemon = world.daemon
        self.seconds = []  # of those with a timer
        self.without_timer = 0

    def check_next(self):
        end = timer_on_disk(self.daemon)
        began = time.monotonic()
        self.world.start()
        self.world.await_lock(end is not None, "as the state that was left says")
        seconds = time.monotonic() - began
        check(seconds < MOST_SECONDS, f"the lock was right only after {seconds} s")
        state = self.daemon.status()["state"]
        equal(state["ownsSleepDisable"], end is not None, "the state knows whether the lock is on")
        equal(seconds_of(state.get("manualUntil")), end, "the timer")
        if end is None:
            self.without_timer += 1
        else:
            self.seconds.append(seconds)

    def check_next_after(self, has_timer):
        """The same for a state that is known, so that both kinds are sure to be seen."""
        if has_timer:
            self.daemon.manual(20)
        else:
            self.daemon.stop()
        self.daemon.kill()
        equal(timer_on_disk(self.daemon) is not None, has_timer,
              "an answered request has been saved")
        self.check_next()


def attack(world, is_full):
    daemon = world.daemon
    # What a kill can break is what is being written to a disk.
    disk = os.environ.get("NODO_E2E_DISK", os.environ["NODO_E2E_DIR"])
    daemon.state_folder = pathlib.Path(disk) / "state"
    load = Load(2)
    oracle = Oracle()
    recoveries = Recoveries(world)
    kills = KILLS_OF_MANY if is_full else KILLS
    for kill in range(1, kills + 1):
        load.start()
        # The moment of the kill is what varies: still at the start, or in the midst of any request.
        daemon.spawn()
        load.await_answers(random.choice([0, random.randrange(1, MOST_ANSWERS + 1)]))
        time.sleep(random.uniform(0, SHORTEST_LIFE))
        daemon.kill()
        killed_on = time.time()
        requests = load.stop()
        world.await_end_of_the_killed()
        oracle.judge(requests, timer_on_disk(daemon), killed_on)
        if kill % ROUND == 0:
            recoveries.check_next()
            recoveries.check_next_after(kill // ROUND % 2 == 0)
            daemon.kill()
            oracle.end = timer_on_disk(daemon)
    check("pass failed" not in daemon.log(), "no pass ever failed")
    check(oracle.answered >= kills / 2, f"the load was a load: {oracle.answered} answers")
    return [f"{kills} kills under load", *oracle.told(),
            f"{len(recoveries.seconds)} times a lock was back within "
            f"{max(recoveries.seconds, default=0):.2f} s", f"{recoveries.without_timer} times none"]


main(attack)
