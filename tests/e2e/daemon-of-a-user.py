#!/usr/bin/python3 -B
"""A daemon of a user's own, on the session bus, is found where the system bus has none, and the
doctor says of it what is true of the real logind.

usage: daemon-of-a-user.py NODOD NODOCTL
"""

import json
import os
import subprocess
import sys

from buses import HELPER, LOGIND, PrivateBus, call, process_of
from daemon_world import main
from expectations import PATIENCE, check, contains, equal, wait_until
from laptop import FOLDER, Network, PowerSupplies
from people import MEMBER, Session, start_polkit
from processes import NOBODY, Driven, as_user, environment, start

FINDING = "\nProblem: The daemon is not the system's but a user's"


class OwnWorld:
    """A user at the computer, with a session bus and a home."""

    def __init__(self, user):
        self.user = user
        self.home = FOLDER / "own"
        self.home.mkdir()
        os.chown(self.home, user, user)
        self.bus = PrivateBus(self.home, user=user)
        self.environment = environment(HOME=str(self.home),
                                       DBUS_SESSION_BUS_ADDRESS=self.bus.address)
        self.session = Session(user)
        self.session.become("active", REMOTE=0, SEAT="seat0")

    def start_daemon(self):
        daemon = start(sys.argv[1], "--bus", "session", "--power", "logind", env=self.environment,
                       **as_user(self.user))
        self.session.take_in(daemon.pid)  # before its first lock
        wait_until(lambda: process_of(HELPER[0], bus=self.bus.address) == daemon.pid,
                   "the user's daemon is there", PATIENCE)
        return daemon

    def run(self, *arguments):
        return subprocess.run([sys.argv[2], *arguments], env=self.environment, text=True,
                              capture_output=True, check=False, timeout=20, **as_user(self.user))


def without_any_daemon_both_buses_are_named(world):
    done = world.run("status")
    contains(done.stderr, "helper unavailable (the daemon nodod is not running on the system bus "
             "or the session bus; start it with 'systemctl start nodod', or one of your own with "
             "'nodod --bus session')", "what is said")


def the_tool_finds_the_users_daemon(world, logind):
    daemon = world.start_daemon()
    done = world.run("manual", "--minutes", "20", "--extend-only", "--requester", "Codex", "--json")
    equal((done.returncode, done.stderr), (0, ""), "a request as of a hook")
    check(json.loads(done.stdout)["state"]["ownsSleepDisable"], f"the lock: {done.stdout}")
    equal(logind.locks(), [daemon.pid], "the lock as logind has it")
    equal(call(HELPER, "Status").returncode, 1, "there is still none on the system bus")


def ask_logind_as(session, *request):
    """The exit status of asking, as a program of that session does."""
    shell = Driven("/bin/sh", "-c", 'read -r go && exec "$@"', "-", "busctl", "--system", "call",
                   *LOGIND, *request, **as_user(session.user))
    session.take_in(shell.pid)
    shell.tell("go")
    return shell.process.wait(PATIENCE)


def suspend_as(session):
    return ask_logind_as(session, "Suspend", "b", "false")


def all_sessions_are_not_a_users_to_lock(world):
    check(ask_logind_as(world.session, "LockSessions") != 0, "as the lid closes")


def the_doctor_knows_whether_its_lock_holds(world, logind):
    """What it says agrees with what logind does, of whatever version that is."""
    done = world.run("doctor")
    contains(done.stdout, "\nStatus source: helper\n", "the daemon is asked")
    is_found = FINDING in done.stdout
    equal(done.returncode, int(is_found), "the exit status")
    other = Session(MEMBER)
    other.become("active", REMOTE=0, SEAT="seat0")
    check(suspend_as(other) != 0, "another user is held up")
    equal(logind.started_units(), [], "what was started for them")
    slept = suspend_as(world.session) == 0
    equal("suspend.target" in logind.started_units(), slept, "it is logind that said so")
    equal(slept, is_found, "the daemon's own user sleeps as the doctor says")
    print(f"this logind {'does not heed' if slept else 'heeds'} the lock of who asks for sleep")


def the_systems_daemon_comes_first(world, daemon, logind):
    daemon.start()
    daemon.manual(20)
    check(daemon.process.pid in logind.locks(), "it has a lock of its own")
    check(FINDING not in world.run("doctor", "--helper-timeout", "10").stdout, "it is asked")


def test(daemon, logind):
    Network()
    PowerSupplies()
    start_polkit()
    world = OwnWorld(NOBODY)
    without_any_daemon_both_buses_are_named(world)
    the_tool_finds_the_users_daemon(world, logind)
    all_sessions_are_not_a_users_to_lock(world)
    the_doctor_knows_whether_its_lock_holds(world, logind)
    the_systems_daemon_comes_first(world, daemon, logind)


main(test)
