#!/usr/bin/python3 -B
"""A daemon that gets few descriptors, or on a Mac few processes, answers with errors, and the lock
stays right.

usage: run scarcity | scarcity-mac
"""

import os
import random
import subprocess
import time

from attack import IS_MAC, ask, main, small_disk
from expectations import PATIENCE, check, equal, wait_until

TRIALS, MANY_TRIALS = (3, 30) if IS_MAC else (20, 500)
REQUESTS_OF_A_TRIAL = 5
FEWEST, MOST = 4, 20  # descriptors, with which it is started; its libraries need one
ENOUGH = 1024
PLAYER = 5  # a user who exists and has no processes, as root may have any number
AS_ITS_USER = (["setpriv", f"--reuid={PLAYER}", f"--regid={PLAYER}", "--clear-groups", "--"]
               if IS_MAC else [])
RETURNED = 2  # seconds
DOUBT = 3  # seconds; a caller of whom the bus could not be asked is refused for one
REFUSED = "org.freedesktop.DBus.Error.AccessDenied"
LONGEST_ANSWER = 60 if IS_MAC else 10  # seconds; on a Mac many tools are tried
REQUESTS = [("Status", "", ()), ("EnableManual", "x", (20,)), ("Stop", "", ()),
            ("Reconcile", "", ()), ("Repair", "", ())]


class Scarcity:
    """What a daemon may have is little for a while."""

    def __init__(self, world):
        self.world = world
        self.daemon = world.daemon
        self.errors = 0
        self.served = 0
        self.not_started = 0

    # ---- while it lasts

    def ask_for_anything(self):
        """An answer that is a success is true, and a stop ends the lock in any case, where nothing
        has to be run for it."""
        method, signature, arguments = random.choice(REQUESTS)
        began = time.monotonic()
        status, error = ask(self.daemon, method, signature, arguments)
        check(time.monotonic() - began < LONGEST_ANSWER, f"{method} is answered")
        self.errors += error is not None
        self.served += error is None
        if method.startswith("Enable") and status:
            check(status["state"]["ownsSleepDisable"], "a timer that is acknowledged has its lock")
        if status and status["state"]["ownsSleepDisable"]:
            check(self.world.lock_is_on(), f"the lock is on as {method} answers")
        elif status:
            # A lock that logind gave and that could not be received goes when logind notices.
            self.world.await_lock(False, f"as {method} answers", RETURNED)
        if method in ("Stop", "Repair") and (status or not IS_MAC) and error != REFUSED:
            self.world.await_lock(False, f"after {method}: {error}", RETURNED)

    # ---- when it is over

    def expect_recovery(self):
        def serves():
            status, error = ask(self.daemon, "Reconcile")
            check(error in (None, REFUSED), f"the first request when there is enough: {error}")
            return status

        status = wait_until(serves, "a request is served when there is enough", DOUBT)
        equal(self.world.lock_is_on(), "manualUntil" in status["state"], "the lock then")
        equal(self.world.lock_is_on(), status["state"]["ownsSleepDisable"], "the answer")

    def limit(self, what, most):
        """While it runs. Whoever is no daemon's own user need not be allowed to."""
        subprocess.run([*AS_ITS_USER, "prlimit", f"--{what}={most}:",
                        f"--pid={self.daemon.process.pid}"], check=True)

    def try_while_it_runs(self, what, most):
        self.limit(what, most)
        for _ in range(REQUESTS_OF_A_TRIAL):
            self.ask_for_anything()
        self.limit(what, ENOUGH)
        check(not self.world.has_ended(), "the daemon lives")
        self.expect_recovery()

    def try_at_the_start(self, most):
        """It serves, or ends with 1 and says why."""
        self.daemon.kill()
        command = self.daemon.command
        self.daemon.command = lambda: ["prlimit", f"--nofile={most}:", *command()]
        length = len(self.daemon.log())
        self.daemon.spawn()
        self.daemon.command = command

        def has_settled():
            return self.world.has_ended() or self.daemon.is_serving()

        wait_until(has_settled, f"with {most} descriptors the daemon serves or ends", PATIENCE)
        if self.world.has_ended():
            equal(self.daemon.process.returncode, 1, f"the exit with {most} descriptors")
            check(len(self.daemon.log()) > length, f"it says what it lacks with {most} descriptors")
            check(IS_MAC or not self.world.lock_is_on(), "no lock is left")
            self.not_started += 1
        else:
            self.ask_for_anything()
            self.daemon.kill()
        self.world.start()
        self.expect_recovery()

    def used(self):
        return len(os.listdir(f"/proc/{self.daemon.process.pid}/fd"))


def become_another_user(world):
    """Only others than root have few processes. It gets what launchd's daemon has as root."""
    os.umask(0)
    disk = small_disk()
    for folder in [disk, disk.parent, "/var/lib"]:
        os.chmod(folder, 0o777)
    world.daemon.state_folder = disk / "state"
    world.daemon.mac.build()
    with world.daemon.mac.model():
        pass  # makes its files
    for file in disk.parent.glob("mac.json*"):
        file.chmod(0o666)
    command = world.daemon.command
    world.daemon.command = lambda: [*AS_ITS_USER, *command()]


def attack(world, is_full):
    if IS_MAC:
        become_another_user(world)
    world.start()
    scarcity = Scarcity(world)
    trials = MANY_TRIALS if is_full else TRIALS
    for trial in range(trials):
        if IS_MAC and trial % 2 == 0:
            scarcity.try_while_it_runs("nproc", random.randrange(0, 6))
        else:
            scarcity.try_while_it_runs("nofile",
                                       scarcity.used() + random.randrange(-1, 4))
        if trial % 5 == 0 and not IS_MAC:
            scarcity.try_at_the_start(random.randrange(FEWEST, MOST))
    equal(ask(world.daemon, "Stop")[1], None, "the last request")
    equal(world.lock_is_on(), False, "the lock in the end")
    return [f"{trials} times little for {REQUESTS_OF_A_TRIAL} requests each",
            f"{scarcity.served} requests served", f"{scarcity.errors} answered with an error",
            f"{scarcity.not_started} starts ended with 1"]


main(attack)
