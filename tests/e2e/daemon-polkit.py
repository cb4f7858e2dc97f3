#!/usr/bin/python3 -B
"""Whom the real polkit allows it may switch the lock, nobody else, and a slow polkit holds up nobody but
those who need it. Run by with-logind.

usage: daemon-polkit.py NODOD
"""

import json
import os
import pathlib
import pwd
import select
import shutil
import signal
import subprocess

from daemon_world import INTERFACE, NAME, NOBODY, OBJECT, Network, PowerSupplies
from daemon_world import folder, main, run
from expectations import check, equal, skip, wait_until

POLKITD = "/usr/lib/polkit-1/polkitd"
ACTIONS = "/usr/share/polkit-1/actions"
RULES = "/etc/polkit-1/rules.d"
POLICY = pathlib.Path(__file__).resolve().parents[2] / "packaging/linux/com.quintavel.nodo.policy"
ALLOWED = "games"  # polkit knows users by name; this one is on every Debian


def start_polkit(bus):
    """With nodo's own policy, and a rule in favour of one user."""
    actions, rules = folder / "actions", folder / "rules"
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
    with open(folder / "polkit.log", "wb") as log:
        polkit = subprocess.Popen([POLKITD, "--no-debug"], stdout=log, stderr=log)
    wait_until(lambda: bus.name_has_owner("org.freedesktop.PolicyKit1"), "polkit serves")
    return polkit


def call_as(user, *arguments):
    return subprocess.Popen(
        ["setpriv", f"--reuid={user}", "--clear-groups", "busctl", "--system", "call", NAME, OBJECT,
         INTERFACE, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


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


def line_of(stream):
    """What comes next, as far as a person would wait for it."""
    check(select.select([stream], [], [], 20)[0], "a line was awaited in vain")
    return stream.readline()


def watch_for_questions():
    """A process that writes a line for each question to polkit that passes over the bus."""
    monitor = subprocess.Popen(
        ["busctl", "--system", "--json=short", "monitor",
         "--match=type='method_call',member='CheckAuthorization'"],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, bufsize=1)
    check("Monitoring" in line_of(monitor.stderr), "the bus is watched")
    return monitor


def connected_onlooker():
    """A process of nobody's that is on the bus already, and looks for each line that it is sent."""
    code = f"""
import dbus, dbus.bus, os, sys
os.setgid({NOBODY}); os.setuid({NOBODY})
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
print("connected", flush=True)
for line in sys.stdin:
    print(bus.call_blocking({NAME!r}, {OBJECT!r}, {INTERFACE!r}, "Status", "", ()), flush=True)
"""
    onlooker = subprocess.Popen(["/usr/bin/python3", "-c", code], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, text=True, bufsize=1)
    equal(line_of(onlooker.stdout), "connected\n", "an onlooker")
    return onlooker


def a_slow_polkit_holds_nobody_up(daemon, logind, polkit):
    monitor, onlooker = watch_for_questions(), connected_onlooker()
    polkit.send_signal(signal.SIGSTOP)
    try:
        waiting = call_as(ALLOWED, "Stop")
        check("CheckAuthorization" in line_of(monitor.stdout), "polkit is asked")
        # nodod gives polkit two seconds from here on, so no process is started meanwhile.
        check("status" in daemon.call("Status"), "others are served")
        onlooker.stdin.write("look\n")
        check("status" in json.loads(line_of(onlooker.stdout)), "also those who only look")
        daemon.manual(30)
        equal(waiting.poll(), None, "who needs polkit waits")
        equal(logind.locks(), [daemon.process.pid], "and changes nothing yet")
    finally:
        polkit.send_signal(signal.SIGCONT)
        for helper in [monitor, onlooker]:
            helper.kill()
            helper.wait(10)
    equal(outcome(waiting)[0], 0, "in the end they are served")
    equal(logind.locks(), [], "as they asked")


def test(daemon, logind):
    if not os.path.exists(POLKITD) or not os.path.isdir(RULES):
        skip("polkit is not installed")
    try:
        pwd.getpwnam(ALLOWED)
    except KeyError:
        skip(f"there is no user {ALLOWED}")
    Network()
    PowerSupplies()
    polkit = start_polkit(daemon.bus)
    try:
        daemon.start()
        who_may(daemon, logind)
        a_slow_polkit_holds_nobody_up(daemon, logind, polkit)
    finally:
        polkit.terminate()
        polkit.wait(10)


main(test)
