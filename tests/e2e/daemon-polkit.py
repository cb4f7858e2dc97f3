#!/usr/bin/python3 -B
"""Whom the real polkit allows it may switch the lock, nobody else, and a slow polkit holds up only
those who need it.

usage: daemon-polkit.py NODOD NODOCTL
"""

import json
import os
import pathlib
import pwd
import shutil
import signal
import subprocess
import sys

from buses import HELPER, start_call, start_polkitd
from clients import Caller
from daemon_world import main
from expectations import check, contains, equal, skip
from laptop import FOLDER, Network, PowerSupplies, run
from processes import NOBODY, Driven, as_user, environment

ACTIONS = "/usr/share/polkit-1/actions"
RULES = "/etc/polkit-1/rules.d"
POLICY = pathlib.Path(__file__).resolve().parents[2] / "packaging/linux/com.quintavel.nodo.policy"
ALLOWED = "games"  # polkit knows users by name; this one is on every Debian


def start_polkit():
    """With nodo's own policy, and a rule in favour of one user."""
    actions, rules = FOLDER / "actions", FOLDER / "rules"
    shutil.copytree(ACTIONS, actions)
    shutil.copy(POLICY, actions)
    rules.mkdir()
    (rules / "10-test.rules").write_text(
        'polkit.addRule(function(action, subject) {\n'
        '  if (action.id == "com.quintavel.nodo.keep-awake" && subject.user == "' + ALLOWED + '")\n'
        '    return polkit.Result.YES;\n'
        '});\n', encoding="ascii")
    for path in [actions, rules, *actions.iterdir(), *rules.iterdir()]:
        path.chmod(0o755 if path.is_dir() else 0o644)
    run("mount", "--bind", actions, ACTIONS)
    run("mount", "--bind", rules, RULES)
    return start_polkitd()


def call_as(user, *arguments):
    return start_call(HELPER, *arguments, user=user)


def outcome(call):
    output, error = call.communicate(timeout=20)
    return call.returncode, output, error


def who_may(daemon, logind):
    status, output, error = outcome(call_as(ALLOWED, "EnableManual", "x", "20"))
    equal((status, error), (0, ""), "an allowed user")
    check("manual_timer" in output, f"is served: {output}")
    equal(logind.locks(), [daemon.process.pid], "and gets the lock")
    status, output, error = outcome(call_as(NOBODY, "Stop"))
    check(status != 0 and output == "" and "Access denied" in error, f"another one: {error}")
    equal(logind.locks(), [daemon.process.pid], "the lock after the refusal")
    check(f"(uid {NOBODY}): polkit wants an administrator's password" in daemon.log(), "is logged")


def the_tool_says_that_a_lock_still_stands(daemon, logind):
    home = FOLDER / "home"
    home.mkdir()
    os.chown(home, NOBODY, NOBODY)

    def tool(*arguments):
        return subprocess.run([sys.argv[2], *arguments], env=environment(HOME=str(home)), text=True,
                              capture_output=True, check=False, timeout=20, **as_user(NOBODY))

    for command in ["stop", "repair"]:
        done = tool(command)
        equal(done.returncode, 1, f"{command} did not let the computer sleep")
        contains(done.stderr, "the sleep lock is still on and this computer stays awake", "says so")
        equal(logind.locks(), [daemon.process.pid], "the lock")
    daemon.stop()
    done = tool("stop")
    equal(done.returncode, 0, "without a lock nothing is amiss")
    daemon.manual(20)


def watch_for_questions():
    """A process that writes a line for each question to polkit that passes over the bus."""
    monitor = Driven("busctl", "--system", "--json=short", "monitor",
                     "--match=type='method_call',member='CheckAuthorization'")
    contains(monitor.next_error(), "Monitoring", "the bus is watched")
    return monitor


def a_slow_polkit_holds_nobody_up(daemon, logind, polkit):
    monitor, onlooker = watch_for_questions(), Caller()
    polkit.send_signal(signal.SIGSTOP)
    waiting = call_as(ALLOWED, "Stop")
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
    if not os.path.isdir(ACTIONS) or not os.path.isdir(RULES):
        skip("polkit is not installed")
    try:
        pwd.getpwnam(ALLOWED)
    except KeyError:
        skip(f"there is no user {ALLOWED}")
    Network()
    PowerSupplies()
    polkit = start_polkit()
    daemon.start()
    who_may(daemon, logind)
    the_tool_says_that_a_lock_still_stands(daemon, logind)
    a_slow_polkit_holds_nobody_up(daemon, logind, polkit)


main(test)
