#!/usr/bin/python3 -B
"""Outages of logind, the bus, the disk and the log, with a timer running and without: the lock
follows once things are back, and the daemon lives, or ends with 1 and is started again.

usage: run outages
"""

import os
import random
import shutil
import signal
import subprocess
import time

from attack import ask, fill, main, small_disk
from buses import BUS, LOGIND, process_of
from expectations import PATIENCE, check, equal, listens, wait_until
from laptop import FOLDER
from processes import start

ROUNDS, MANY_ROUNDS = 1, 5
LONGEST_ANSWER = 9  # seconds, less than agents' hooks and tools give it together
RETRY = 65  # seconds: what failed is tried again every minute
STATE_PATIENCE = 130  # seconds; a lock stands for 120 while no state can be read


class Outage:
    """Something fails, is back, and meanwhile requests are sent."""

    def __init__(self, world, has_timer):
        self.world = world
        self.daemon = world.daemon
        self.has_timer = has_timer
        self.slowest = 0.0
        self.errors = 0

    def expect_lock(self, stands, what):
        equal(self.world.lock_is_on(), stands, f"the lock {what}")

    def ask(self, method, signature="", arguments=()):
        """Whether it is served. Whatever fails, it is answered."""
        began = time.monotonic()
        status, error = ask(self.daemon, method, signature, arguments)
        took = time.monotonic() - began
        self.slowest = max(self.slowest, took)
        self.errors += error is not None
        check(took < LONGEST_ANSWER, f"{method} is answered within {LONGEST_ANSWER} s: {took:.1f}")
        return status is not None

    def change(self):
        """What is asked for while it fails: sometimes the other way round than before."""
        wish = random.choice(["timer", "stop", "look"])
        if wish == "look":
            self.ask("Status")
        elif wish == "timer":
            # An answer that is an error may have set the timer or not.
            self.has_timer = self.ask("EnableManual", "x", (20,)) or None
        else:
            self.ask("Stop")
            self.has_timer = False

    def begin(self):
        if self.world.has_ended():
            self.world.start()
        if self.has_timer:
            self.daemon.manual(30)
        else:
            self.daemon.stop()
        self.expect_lock(self.has_timer, "before")

    def end(self):
        """Everything is back. The lock follows with the next pass."""
        if self.world.has_ended():
            equal(self.daemon.process.returncode, 1, "the exit")
            self.world.start()
        status, error = ask(self.daemon, "Reconcile")
        equal(error, None, "the first request when all is back")
        wanted = status["decision"]["shouldPreventSleep"]
        equal("manualUntil" in status["state"], wanted, "the timer decides")
        if self.has_timer is not None:
            equal(wanted, self.has_timer, "the timer is as it was asked for")
        self.expect_lock(wanted, "when all is back")


def kill(name):
    """Who has that name on the bus."""
    pid = process_of(name)
    os.kill(pid, signal.SIGKILL)
    wait_until(lambda: process_of(name) != pid, f"{name} is gone", PATIENCE)


def start_service(name, *command):
    with open(FOLDER / "services.log", "ab") as log:
        process = start(*command, stdout=log, stderr=log)
    wait_until(lambda: process_of(name) == process.pid, f"{name} is there", PATIENCE)


def start_logind(world):
    start_service(LOGIND[0], "/lib/systemd/systemd-logind")
    world.reconnect()


# ---- what fails


def logind_is_killed(outage):
    kill(LOGIND[0])
    outage.change()
    start_logind(outage.world)


def logind_hangs(outage):
    pid = process_of(LOGIND[0])
    os.kill(pid, signal.SIGSTOP)
    try:
        outage.change()
    finally:
        os.kill(pid, signal.SIGCONT)


def the_bus_is_killed(outage):
    """And with it go all who are on it."""
    for pid in [process_of(name) for name in ("org.freedesktop.systemd1", LOGIND[0], BUS[0])]:
        os.kill(pid, signal.SIGKILL)
    (FOLDER / "bus").unlink()
    wait_until(outage.world.has_ended, "nodod ends with its bus", PATIENCE)
    start("dbus-daemon", f"--config-file={FOLDER}/bus.conf", "--nofork", "--nopidfile",
          stderr=subprocess.DEVNULL)
    wait_until(lambda: listens(f"{FOLDER}/bus"), "the bus listens", PATIENCE)
    start_service("org.freedesktop.systemd1", "/usr/bin/python3", "-m", "dbusmock", "--system",
                  "--template", "systemd")
    start_logind(outage.world)
    outage.expect_lock(False, "of a daemon that has ended")


def the_bus_hangs(outage):
    pid = process_of(BUS[0])
    os.kill(pid, signal.SIGSTOP)
    time.sleep(random.uniform(0.5, 2))
    os.kill(pid, signal.SIGCONT)
    outage.change()


def the_disk_is_full(outage):
    disk = outage.daemon.state_folder.parent
    fill(disk)
    outage.change()
    if random.random() < 0.5:
        outage.daemon.kill()
        if outage.has_timer is False:
            outage.has_timer = None  # an answer that was an error is forgotten with who gave it
        outage.world.start()
    (disk / "fill").unlink()


def the_disk_is_gone(outage):
    shutil.rmtree(outage.daemon.state_folder)
    outage.has_timer = False
    outage.ask("Reconcile")
    outage.expect_lock(False, "without a state")


def nobody_reads_the_log(outage):
    """A daemon whose log is a pipe that is full, or has no reader any more."""
    outage.daemon.kill()
    reader, writer = os.pipe()
    outage.daemon.process = start(*outage.daemon.command(), stdout=writer, stderr=writer,
                                  env=outage.daemon.environment)
    os.close(writer)
    outage.world.await_serving()
    for _ in range(1500):
        outage.ask("EnableManual", "x", (0,))
    outage.change()
    os.close(reader)
    outage.change()


OUTAGES = [logind_is_killed, logind_hangs, the_bus_is_killed, the_bus_hangs, the_disk_is_full,
           the_disk_is_gone, nobody_reads_the_log]


# ---- and nobody asks when all is back


def the_lock_follows_by_itself(world):
    """What could not be done is done within a minute, without a request."""
    outage = Outage(world, has_timer=False)
    outage.begin()
    kill(LOGIND[0])
    check(not outage.ask("EnableManual", "x", (20,)), "no lock without a logind")
    start_logind(world)
    began = time.monotonic()
    world.await_lock(True, "again, though nobody asks", RETRY)
    return f"a lock follows a logind that is back by itself within {time.monotonic() - began:.0f} s"


def no_lock_outlives_patience(world):
    """With a timer that still runs, in a state that nobody can read any more."""
    outage = Outage(world, has_timer=True)
    outage.begin()
    state = world.daemon.state_folder / "state.json"
    state.write_text("{", encoding="utf-8")
    began = time.monotonic()
    world.await_lock(False, "when patience is over", STATE_PATIENCE + RETRY)
    took = time.monotonic() - began
    check(took < STATE_PATIENCE + RETRY - 5, f"the lock stood for {took:.0f} s")
    state.unlink()
    return f"one without a readable state was off after {took:.0f} s"


def attack(world, is_full):
    world.daemon.state_folder = small_disk() / "state"
    outages = []
    for _ in range(MANY_ROUNDS if is_full else ROUNDS):
        for fails in random.sample(OUTAGES, len(OUTAGES)):
            for has_timer in (True, False):
                outage = Outage(world, has_timer)
                outage.begin()
                try:
                    fails(outage)
                    outage.end()
                except AssertionError as error:
                    raise AssertionError(f"{fails.__name__}, begun with "
                                         f"{'a' if has_timer else 'no'} timer: {error}") from None
                outages.append(outage)
    told = [f"{len(outages)} outages of {len(OUTAGES)} kinds",
            f"{sum(outage.errors for outage in outages)} answers were errors",
            f"the slowest answer came within {max(outage.slowest for outage in outages):.1f} s"]
    if is_full:
        told += [the_lock_follows_by_itself(world), no_lock_outlives_patience(world)]
    equal(ask(world.daemon, "Stop")[1], None, "the last request")
    equal(world.lock_is_on(), False, "the lock in the end")
    return told


main(attack)
