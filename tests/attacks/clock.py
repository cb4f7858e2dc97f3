#!/usr/bin/python3 -B
"""A civil clock that is set ahead and back while a timer runs neither shortens nor lengthens it.

usage: run clock

The clock is the one that the daemon sees; no other is touched. The clock that counts since the
machine's start, and with it the daemon's own timer, goes on as it is.
"""

import random
import struct
import time

from attack import main, seconds_of
from expectations import check, equal
from laptop import FOLDER
from processes import environment

JUMPS, MANY_JUMPS = 10, 300
JUMPS_OF_A_TIMER = 10
DAY = 86400
STEPS = [DAY, -DAY, 30 * DAY, -30 * DAY, 3600, -3600, 60, -60]
TOLERANCE = 3  # seconds; the clock's own, and whole seconds in the state
SHORT = 6  # seconds, of a timer whose end is waited for


class Clock:
    """The civil clock of those that are started with `environment`."""

    def __init__(self, module):
        self.file = FOLDER / "clock"
        self.file.write_bytes(bytes(8))
        self.ahead = 0
        self.environment = environment(LD_PRELOAD=str(module), NODO_CLOCK_AHEAD=str(self.file))

    def set_ahead(self, seconds):
        self.ahead = seconds
        with open(self.file, "r+b", buffering=0) as file:
            file.write(struct.pack("q", seconds))

    def now(self):
        return time.time() + self.ahead


class Timer:
    """What is left of it, by a clock that nobody sets. The state has whole seconds, so that each
    jump may cost it one."""

    def __init__(self, seconds):
        self.end = time.monotonic() + seconds
        self.jumps = 0
        self.most_lost = 0.0

    def left(self):
        return self.end - time.monotonic()

    def check(self, told, where):
        """Whether so many seconds are left."""
        lost = self.left() - told
        check(-TOLERANCE <= lost <= TOLERANCE + self.jumps,
              f"{told} s are left {where}, not {self.left()}, after {self.jumps} jumps")
        self.most_lost = max(self.most_lost, lost)


def check_length(daemon, clock, timer, status):
    """By what the daemon answers: its own clock, and the timer's end by that."""
    told_now = seconds_of(status["generatedAt"])
    check(abs(told_now - clock.now()) <= TOLERANCE,
          f"nodod sees the clock that is set: {told_now}, not {clock.now()}")
    timer.check(seconds_of(status["state"]["manualUntil"]) - told_now, "by the answer")
    check(not daemon.log().count("failed"), "nothing fails")


def jump(world, clock, timer):
    """Then looks, or asks for something, in any order."""
    daemon = world.daemon
    clock.set_ahead(clock.ahead + random.choice(STEPS))
    timer.jumps += 1
    for what in random.sample(["look", "pass", "extend"], random.randrange(1, 4)):
        if what == "look":
            time.sleep(0.11)  # an answer is given again for so long
            check_length(daemon, clock, timer, daemon.status())
        elif what == "pass":
            report = daemon.call("Reconcile")
            check_length(daemon, clock, timer, report.get("status") or report["run"]["status"])
            timer.check(seconds_of(daemon.state()["manualUntil"]) - clock.now(), "on disk")
        elif random.random() < 0.3:
            # A shorter one must not shorten it, whatever the clock says.
            daemon.call("EnableManualV2", "xba{sv}", (1, True, {"name": "jump"}))
        equal(world.lock_is_on(), True, f"the lock after a jump to {clock.ahead} s ahead")


def timers_end_in_time(world, clock):
    """Though the clock is set, and nobody asks."""
    latest = 0.0
    for step in [-30 * DAY, 30 * DAY, -DAY, DAY]:
        daemon = world.daemon
        daemon.stop()
        daemon.terminate()
        daemon.put_timer(SHORT + clock.ahead)
        timer = Timer(SHORT)
        world.start()
        equal(world.lock_is_on(), True, "the lock of a short timer")
        clock.set_ahead(clock.ahead + step)
        world.await_lock(False, f"after a jump of {step} s, in time")
        check(timer.left() < TOLERANCE, f"no timer is cut short: {timer.left()} s were left")
        latest = max(latest, -timer.left())
    return latest


def attack(world, is_full):
    clock = Clock(world.civil_clock)
    world.daemon.environment = clock.environment
    world.start()
    jumps = MANY_JUMPS if is_full else JUMPS
    most_lost = 0.0
    for _ in range(jumps // JUMPS_OF_A_TIMER):
        world.daemon.manual(120)
        timer = Timer(120 * 60)
        for _ in range(JUMPS_OF_A_TIMER):
            jump(world, clock, timer)
        most_lost = max(most_lost, timer.most_lost)
    latest = timers_end_in_time(world, clock)
    equal(world.daemon.terminate(), 0, "the exit")
    return [f"{jumps} jumps by up to 30 days",
            f"{JUMPS_OF_A_TIMER} of them cost a timer {most_lost:.1f} s at most",
            f"4 timers ended, the latest {latest:.1f} s after their time"]


main(attack)
