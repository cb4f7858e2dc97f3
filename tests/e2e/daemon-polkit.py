#!/usr/bin/python3 -B
"""Whom the real polkit allows it may switch the lock, nobody else, and a slow polkit holds up only
those who need it.

usage: daemon-polkit.py NODOD NODOCTL
"""

import json
import os
import signal
import subprocess
import sys

from buses import HELPER, call, reply_of, start_call
from clients import Caller
from daemon_world import main
from expectations import check, contains, equal
from laptop import FOLDER, Network, PowerSupplies
from people import MEMBER, Session, start_polkit
from processes import NOBODY, Driven, as_user, environment

STRANGERS_TEXT = ("only somebody logged in at this computer, or a member of the group nodo, may do "
                  "this; see man nodod")


def call_as(user, *arguments):
    return start_call(HELPER, *arguments, user=user)


def outcome(process):
    output, error = process.communicate(timeout=20)
    return process.returncode, output, error


def permission(user):
    return tuple(reply_of(call(HELPER, "Permission", user=user)))


def who_may(daemon, logind):
    status, output, error = outcome(call_as(MEMBER, "EnableManual", "x", "20"))
    equal((status, error), (0, ""), "a member of the group")
    check("manual_timer" in output, f"is served: {output}")
    equal(logind.locks(), [daemon.process.pid], "and gets the lock")
    status, output, error = outcome(call_as(NOBODY, "Stop"))
    check(status != 0 and output == "" and "Access denied" in error, f"another one: {error}")
    equal(logind.locks(), [daemon.process.pid], "the lock after the refusal")
    contains(daemon.log(), f"(uid {NOBODY}): {STRANGERS_TEXT}\n", "is logged")


def whoever_is_logged_in_at_the_computer_may(daemon):
    caller, session = Caller(), Session(NOBODY)
    session.take_in(caller.pid)

    def permission_there():
        caller.call("Permission")
        return caller.next_line()

    session.become("active", REMOTE=1)
    equal(permission_there(), f"0 {STRANGERS_TEXT}", "over the network")
    session.become("online", REMOTE=0, SEAT="seat0")
    equal(permission_there(), "1 ", "while another's session is in front")
    session.become("active", REMOTE=0, SEAT="seat0")
    equal(permission_there(), "1 ", "in front")
    caller.call("Reconcile")
    contains(caller.next_line(), "manual_timer", "and is served")
    caller.end()
    equal(permission(NOBODY), (False, STRANGERS_TEXT), "the same user outside of the session")
    check(daemon.process.poll() is None, "the daemon lives")


def permission_is_told_and_changes_nothing(daemon):
    before, log = daemon.state(), daemon.log()
    equal(permission(NOBODY), (False, STRANGERS_TEXT), "a stranger's")
    for user in (MEMBER, None):
        equal(permission(user), (True, ""), f"that of {user}")
    equal((daemon.state(), daemon.log()), (before, log), "the state and the log")


def the_tool_tells_of_the_refusal(run_tool, polkit):
    done = run_tool("manual", "--minutes", "20")
    contains(done.stderr, f"helper unavailable (nodod refuses this: {STRANGERS_TEXT})", "manual")
    done = run_tool("doctor", "--helper-timeout", "10")
    equal(done.returncode, 1, "the doctor warns")
    contains(done.stdout, "\nProblem: The daemon refuses requests of this user: "
             f"{STRANGERS_TEXT}.\n  Where polkit runs, the group nodo may", "the finding")
    polkit.send_signal(signal.SIGSTOP)
    done = run_tool("doctor")
    polkit.send_signal(signal.SIGCONT)
    check("Problem:" not in done.stdout, f"without polkit's word nothing is found: {done.stdout}")


def the_tool_says_that_a_lock_still_stands(run_tool, daemon, logind):
    for command in ["stop", "repair"]:
        done = run_tool(command)
        equal(done.returncode, 1, f"{command} did not let the computer sleep")
        contains(done.stderr, "the sleep lock is still on and this computer stays awake", "says so")
        equal(logind.locks(), [daemon.process.pid], "the lock")
    daemon.stop()
    done = run_tool("stop")
    equal(done.returncode, 0, "without a lock nothing is amiss")
    daemon.manual(20)


def tool_of(user):
    home = FOLDER / "home"
    home.mkdir()
    os.chown(home, user, user)

    def run_tool(*arguments):
        return subprocess.run([sys.argv[2], *arguments], env=environment(HOME=str(home)), text=True,
                              capture_output=True, check=False, timeout=20, **as_user(user))

    return run_tool


def watch_for_questions():
    """A process that writes a line for each question to polkit that passes over the bus."""
    monitor = Driven("busctl", "--system", "--json=short", "monitor",
                     "--match=type='method_call',member='CheckAuthorization'")
    contains(monitor.next_error(), "Monitoring", "the bus is watched")
    return monitor


def a_slow_polkit_holds_nobody_up(daemon, logind, polkit):
    monitor, onlooker = watch_for_questions(), Caller()
    polkit.send_signal(signal.SIGSTOP)
    waiting = call_as(MEMBER, "Stop")
    contains(monitor.next_line(), "CheckAuthorization", "polkit is asked")
    # nodod gives polkit two seconds from here on, so no process is started meanwhile.
    check("status" in daemon.call("Status"), "others are served")
    onlooker.call("Status")
    check("status" in json.loads(onlooker.next_line()), "also those who only look")
    daemon.manual(30)
    equal(waiting.poll(), None, "who needs polkit waits")
    equal(logind.locks(), [daemon.process.pid], "and changes nothing yet")
    polkit.send_signal(signal.SIGCONT)
    equal(outcome(waiting)[0], 0, "in the end they are served")
    equal(logind.locks(), [], "as they asked")


def test(daemon, logind):
    Network()
    PowerSupplies()
    polkit = start_polkit()
    daemon.start()
    who_may(daemon, logind)
    whoever_is_logged_in_at_the_computer_may(daemon)
    permission_is_told_and_changes_nothing(daemon)
    run_tool = tool_of(NOBODY)
    the_tool_tells_of_the_refusal(run_tool, polkit)
    the_tool_says_that_a_lock_still_stands(run_tool, daemon, logind)
    a_slow_polkit_holds_nobody_up(daemon, logind, polkit)


main(test)
