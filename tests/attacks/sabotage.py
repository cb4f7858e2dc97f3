#!/usr/bin/python3 -B
"""Requests by lot while the state and its surroundings are sabotaged, against a model of the lock.

usage: run sabotage | sabotage-mac

The model knows what each sabotage makes of the state and what each answer acknowledged. After each
step the lock has to be what the model allows: on only for a timer that was acknowledged, and right
wherever the answer was a success.
"""

import collections
import dataclasses
import json
import os
import pathlib
import random
import shutil
import time
from typing import Optional

from attack import IS_MAC, LONGEST, ask, fill, main, seconds_of, small_disk
from daemon_world import date
from expectations import check, equal
from laptop import FOLDER

STEPS, MANY_STEPS = (40, 400) if IS_MAC else (200, 6000)
CAPPED = object()  # a timer that the next pass cuts to the longest that may be
TOLERANCE = 3  # seconds
ANSWER_LASTS = 0.11  # seconds
PATIENCE = 120  # seconds, which a lock may stand while passes fail
# As root, who may read and write everything, the daemon would not notice that it may not.
NO_PRIVILEGES = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search", "--"]


@dataclasses.dataclass(frozen=True)
class Effect:
    """What a sabotage makes of the state."""

    timer: Optional[float] = None  # seconds since 1970
    is_readable: bool = True
    is_writable: bool = True
    may_start: bool = True


UNREADABLE = Effect(is_readable=False)


class Disk:
    """Where the state is."""

    def __init__(self, folder, disk):
        self.folder = folder
        self.disk = disk
        self.file = folder / "state.json"
        self.aside = FOLDER / "aside.json"

    def have_lock_file(self):
        """So that a daemon can be started where it cannot make one."""
        (self.folder / "nodod.lock").touch()

    def content(self):
        return self.file.read_bytes() if self.file.exists() else b"{}"

    def put(self, content):
        # Replaced, as a reader must never see half of what is whole.
        new = self.folder / "put"
        new.write_bytes(content)
        new.rename(self.file)

    def put_fields(self, **fields):
        self.put(json.dumps({**json.loads(self.content()), **fields}).encode())

    def clear(self):
        """The state is what is sabotaged, so nothing is in its place."""
        if self.file.is_dir() and not self.file.is_symlink():
            self.file.rmdir()
        self.file.unlink(missing_ok=True)

    def heal(self):
        """Takes back what keeps the daemon from the state."""
        if not self.folder.is_dir():
            self.folder.unlink(missing_ok=True)
            self.folder.mkdir(0o700)
        self.folder.chmod(0o700)
        for file in self.disk.glob("fill*"):
            file.unlink()


# ---- sabotages, each of which returns its effect, given the timer that the state had: the file is
# lost, or something else


def file_removed(disk, _timer):
    disk.clear()
    return Effect()


def folder_removed(disk, _timer):
    shutil.rmtree(disk.folder)
    return Effect()


def truncated(disk, _timer):
    content = disk.content().rstrip()
    disk.put(content[:random.randrange(1, len(content))])
    return UNREADABLE


def emptied(disk, _timer):
    disk.put(b"")
    return UNREADABLE


def garbage(disk, _timer):
    disk.put(random.randbytes(random.choice([1, 100, 100_000])))
    return UNREADABLE


def other_json(disk, _timer):
    text = random.choice(["[]", '"text"', "7", "null", "true", '[{"manualUntil": 1}]'])
    disk.put(text.encode())
    return UNREADABLE


def deep_json(disk, _timer):
    disk.put(b'{"x":' + 100_000 * b"[" + 100_000 * b"]" + b"}")
    return UNREADABLE


def other_object(disk, _timer):
    disk.put(random.choice([b"{}", b'{"manualUntill": "2999-01-01T00:00:00Z"}']))
    return Effect()


def wrong_types(disk, _timer):
    field, value = random.choice([
        ("manualUntil", 4102444800), ("manualUntil", True), ("manualUntil", []),
        ("ownsSleepDisable", "yes"), ("ownsSleepDisable", 1), ("triggerHistory", {}),
        ("recentRequesters", [7]), ("createdAt", None), ("lastRequester", "me")])
    if value is None:
        value = {}
    disk.put_fields(**{field: value})
    return UNREADABLE


def huge_numbers(disk, _timer):
    disk.put_fields(manualUntil=random.choice([
        "99999999999-01-01T00:00:00Z", "2026-99-99T99:99:99Z", "-0000-01-01T00:00:00Z",
        "2026-01-01T00:00:99999999999999999999Z", f"{'9' * 400}-01-01T00:00:00Z"]))
    return UNREADABLE


def too_large(disk, _timer):
    disk.clear()
    with open(disk.file, "wb") as file:
        file.truncate((64 << 20) + random.choice([1, 1 << 30]))  # without taking room
    return UNREADABLE


def folder_in_its_place(disk, _timer):
    disk.clear()
    disk.file.mkdir()
    return UNREADABLE


def fifo_in_its_place(disk, _timer):
    disk.clear()
    os.mkfifo(disk.file)
    return UNREADABLE


def link_to_itself(disk, _timer):
    disk.clear()
    disk.file.symlink_to(disk.file)
    return UNREADABLE


def link_to_another_state(disk, _timer):
    end = int(time.time()) + 1800
    disk.aside.write_text(json.dumps({"manualUntil": date(end)}), encoding="utf-8")
    disk.clear()
    disk.file.symlink_to(disk.aside)
    return Effect(timer=end)


# ---- the state says something else


def far_timer(disk, _timer):
    year = random.choice(["2999", "9999", "99999"])
    disk.put_fields(manualUntil=f"{year}-01-01T00:00:00Z")
    return Effect(timer=CAPPED)


def past_timer(disk, _timer):
    end = random.choice([0, -2208988800, int(time.time()) - 60])
    disk.put_fields(manualUntil=date(end))
    return Effect(timer=end)


def other_timer(disk, _timer):
    end = int(time.time()) + random.randrange(600, 36000)
    disk.put_fields(manualUntil=date(end))
    return Effect(timer=end)


def owned(disk, timer):
    disk.put_fields(ownsSleepDisable=True)
    return Effect(timer=timer)


def disowned(disk, timer):
    disk.put_fields(ownsSleepDisable=False)
    return Effect(timer=timer)


# ---- the state's surroundings


def no_rights(disk, _timer):
    disk.put(disk.content())
    disk.file.chmod(0)
    return UNREADABLE


def folder_without_rights(disk, _timer):
    disk.folder.chmod(0)
    return Effect(is_readable=False, may_start=False)


def folder_read_only(disk, timer):
    disk.have_lock_file()
    disk.folder.chmod(0o500)
    return Effect(timer=timer, is_writable=False)


def file_in_place_of_folder(disk, _timer):
    shutil.rmtree(disk.folder)
    disk.folder.write_bytes(b"")
    return Effect(is_writable=False, may_start=False)


def disk_full(disk, timer):
    fill(disk.disk)
    return Effect(timer=timer, is_writable=False)


def no_more_files(disk, timer):
    disk.have_lock_file()
    try:
        for number in range(1000):
            (disk.disk / f"fill{number}").touch()
    except OSError:
        return Effect(timer=timer, is_writable=False)
    raise AssertionError("the disk takes any number of files")


SABOTAGES = [file_removed, folder_removed, truncated, emptied, garbage,
             other_json, deep_json, other_object, wrong_types,
             huge_numbers, too_large, folder_in_its_place, fifo_in_its_place,
             link_to_itself, link_to_another_state, far_timer, past_timer,
             other_timer, owned, disowned, no_rights,
             folder_without_rights, folder_read_only, file_in_place_of_folder,
             disk_full, no_more_files]


# pylint: disable-next=too-many-instance-attributes  # the daemon, its model and what is counted
class Trial:
    """The daemon beside its model."""

    def __init__(self, world):
        self.world = world
        self.daemon = world.daemon
        self.disk = Disk(self.daemon.state_folder, self.daemon.state_folder.parent)
        # The model: what the state says, or would if it could be read.
        self.timer = None
        self.is_ending = False  # a stop was asked for that could not be written yet
        self.effect = Effect()
        self.kept = None  # the content that must not be overwritten
        self.lock_was_on = False
        self.confirmed_at = time.monotonic()
        self.sabotage_name = "none"
        # Of the status, which is given again whatever the disk says.
        self.answer_lasts_until = time.monotonic() + ANSWER_LASTS
        self.history = collections.deque(maxlen=12)
        self.slowest = 0.0  # answer
        self.counts = collections.Counter()

    def step(self):
        is_sabotaged = self.sabotage_name != "none"
        lot = random.random()
        if lot < 0.25:
            (self.heal if is_sabotaged else self.sabotage)()
        elif lot < 0.31:
            self.restart()
        elif self.world.has_ended():
            self.heal()
            self.restart()
        else:
            self.request(random.choice(REQUESTS))
        self.counts["steps"] += 1

    def note(self, what):
        self.history.append(what)

    def require(self, condition, what):
        check(condition, f"{what}; sabotage: {self.sabotage_name}; steps: {list(self.history)}")

    # ---- what is done

    def sabotage(self):
        how = random.choice(SABOTAGES)
        self.sabotage_name = how.__name__
        self.note(self.sabotage_name)
        self.effect = how(self.disk, self.timer)
        if self.effect.is_readable:
            self.timer = self.effect.timer
        elif self.disk.file.is_file() and self.effect.may_start:
            self.kept = (self.disk.file.stat().st_ino, self.disk.file.stat().st_mtime_ns)
        self.counts[self.sabotage_name] += 1
        self.look()

    def heal(self):
        self.note("heal")
        if self.kept:
            now = self.disk.file.stat()
            self.require((now.st_ino, now.st_mtime_ns) == self.kept,
                         "a state that cannot be read is left as it was")
        self.disk.heal()
        if not self.effect.is_readable and self.effect.may_start:
            self.disk.clear()
            self.timer = None
        self.kept = None
        self.effect = Effect()
        self.sabotage_name = "none"
        self.look()

    def restart(self):
        """After a kill, or a proper end. The next one knows what is on the disk, and no more."""
        if not self.world.has_ended():
            if random.random() < 0.6:
                self.note("kill")
                self.daemon.kill()
            else:
                self.note("terminate")
                status = self.daemon.terminate()
                self.require(status == 0, f"the exit is {status}")
                self.require(not self.world.lock_is_on(), "no lock is left")
        self.note("start")
        self.daemon.spawn()
        if not self.effect.may_start:
            self.require(self.daemon.process.wait(20) == 1, "nodod cannot start")
            self.require(not self.world.lock_is_on(), "no lock is left by one that cannot start")
            self.lock_was_on = False
            return
        self.world.await_serving()
        status, error = ask(self.daemon, "Status")
        self.answer_lasts_until = time.monotonic() + ANSWER_LASTS
        self.require((error is None) == self.effect.is_readable, f"Status after a start: {error}")
        if status:
            if self.is_ending and status["state"].get("manualUntil") is None:
                self.timer = None  # a pass in between could write what was asked for
            self.is_ending = False
            self.acknowledge(status)
            self.compare(status)
            is_on = self.world.lock_is_on()
            # What an earlier daemon owned has to be written off before the lock is taken again.
            self.require(is_on == self.runs() or not (is_on or self.effect.is_writable),
                         "the lock is right after a start")
        else:
            self.is_ending = False
            self.require(not self.world.lock_is_on(), "no lock for a state that cannot be read")
        self.look()

    def request(self, request):
        method, signature, arguments = request
        self.note(f"{method}{arguments}")
        if method == "Status":
            time.sleep(max(0.0, self.answer_lasts_until - time.monotonic()))
        asked_at = time.time()
        began = time.monotonic()
        status, error = ask(self.daemon, method, signature, arguments)
        self.slowest = max(self.slowest, time.monotonic() - began)
        if error:
            self.history.append(error[:60])
        self.counts["refused" if error else "served"] += 1
        self.require(error is None or not (self.effect.is_readable and self.effect.is_writable),
                     f"{method} fails: {error}")
        self.require(error is not None or self.effect.is_readable, f"{method} knows of a state")
        self.answer_lasts_until = time.monotonic() + ANSWER_LASTS if method == "Status" else 0.0
        if method == "Status":
            if status:
                self.compare(status)
        elif status:
            self.follow(method, arguments, asked_at, status)
        elif method in ("Stop", "Repair"):
            self.is_ending = True
            self.require(not self.world.lock_is_on(), f"the lock is off after a failed {method}")
        self.look()

    # ---- what is to be seen then

    def follow(self, method, arguments, asked_at, status):
        """A pass went through, after what was asked for."""
        if method in ("Stop", "Repair"):
            self.timer = None
        self.acknowledge(status, was_set=method.startswith("Enable"))
        if method.startswith("Enable"):
            self.require(self.effect.is_writable, "a timer is acknowledged that is not on the disk")
            end = asked_at + 60 * arguments[0]
            kept = self.timer if method == "EnableManualV2" and not self.is_ending else None
            self.timer = seconds_of(status["state"]["manualUntil"])
            expected = max(end, kept if isinstance(kept, (int, float)) else 0)
            if kept is CAPPED:
                expected = asked_at + LONGEST
            self.require(abs(self.timer - expected) <= TOLERANCE,
                         f"{method} sets {self.timer}, not {expected}")
        elif self.is_ending:
            self.timer = None
        self.is_ending = False
        self.compare(status)
        self.require(status["decision"]["shouldPreventSleep"] == self.runs(), "the decision")
        self.require(self.world.lock_is_on() == self.runs(), f"the lock is right after {method}")

    def acknowledge(self, status, was_set=False):
        """What the daemon makes of the timer that it found."""
        self.confirmed_at = time.monotonic()
        if self.timer is CAPPED and not was_set and not self.is_ending:
            self.timer = seconds_of(status["state"]["manualUntil"])
            self.require(abs(self.timer - time.time() - LONGEST) <= TOLERANCE, "the longest timer")

    def compare(self, status):
        """With the answer."""
        state = status["state"]
        answered = seconds_of(state.get("manualUntil"))
        if self.is_ending:
            self.require(answered is None or not self.effect.is_writable, "the timer was stopped")
        elif self.timer is CAPPED:
            self.require(abs(answered - time.time() - LONGEST) <= TOLERANCE, "the longest timer")
        elif answered is not None or self.runs():
            self.require(answered == self.timer, f"the timer is {answered}, not {self.timer}")
        if state["ownsSleepDisable"]:
            self.require(self.world.lock_is_on(), "no lock is on that is told to be")

    def runs(self):
        return self.timer is CAPPED or (self.timer is not None and self.timer - time.time() >= 1)

    def look(self):
        """At the lock, when no pass need have been since the last look: it stays, or follows."""
        is_on = self.world.lock_is_on()
        if self.effect.is_readable:
            may_come = self.runs() and not self.is_ending
        else:
            may_come = False
        self.require(not is_on or self.lock_was_on or may_come, "the lock came on by itself")
        if is_on and not self.effect.is_readable:
            self.require(time.monotonic() - self.confirmed_at < PATIENCE + TOLERANCE,
                         "the lock stands beyond all patience")
        self.lock_was_on = is_on
        self.counts["locks seen on"] += is_on


REQUESTS = [("Status", "", ()), ("Reconcile", "", ()), ("Reconcile", "", ()), ("Stop", "", ()),
            ("Repair", "", ()), ("EnableManual", "x", (20,)), ("EnableManual", "x", (60,)),
            ("EnableManualV2", "xba{sv}", (30, True, {"name": "lot"})),
            ("EnableManualV2", "xba{sv}", (10, True, {"name": "lot"}))]


def attack(world, is_full):
    daemon = world.daemon
    daemon.state_folder = pathlib.Path(small_disk()) / "state"
    command = daemon.command
    daemon.command = lambda: [*NO_PRIVILEGES, *command()]
    world.start()
    trial = Trial(world)
    for _ in range(MANY_STEPS if is_full else STEPS):
        trial.step()
    trial.heal()
    if world.has_ended():
        trial.restart()
    equal(ask(daemon, "Stop")[1], None, "the last request")
    equal(world.lock_is_on(), False, "the lock in the end")
    counts = trial.counts
    kinds = sum(counts[how.__name__] > 0 for how in SABOTAGES)
    done = sum(counts[how.__name__] for how in SABOTAGES)
    return [f"{counts['steps']} steps", f"{done} sabotages of {kinds} kinds",
            f"{counts['served']} requests served", f"{counts['refused']} answered with an error",
            f"the slowest within {trial.slowest:.2f} s",
            f"{counts['locks seen on']} times the lock was on"]


main(attack)
