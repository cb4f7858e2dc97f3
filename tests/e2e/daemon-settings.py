#!/usr/bin/python3 -B
"""The settings file holds from the start and after SIGHUP, what is wrong in it is told, and a tool
that works on keeps the computer awake.

usage: daemon-settings.py NODOD NODOCTL
"""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

from daemon_world import date, main
from expectations import check, contains, equal, wait_until
from laptop import Network, PowerSupplies
from processes import start

SHORT_TIMER = 35  # seconds: a tool's work is only judged over half a minute or more
BUSY = "while :; do :; done"
NODOCTL = sys.argv.pop()


def doctor():
    return subprocess.run([NODOCTL, "doctor", "--verbose"], check=False, capture_output=True,
                          text=True, timeout=30).stdout


def keeps_display_on(logind):
    return any("idle" in what.split(":") for _, what, _ in logind.inhibitors())


def the_file_holds_from_the_start(daemon, file):
    file.write_text("max-minutes = 90\nno-such-thing = 1\n", encoding="utf-8")
    daemon.start("--config", str(file))
    told = f"nodod: settings: {file}, line 2: there is no setting \"no-such-thing\""
    wait_until(lambda: told in daemon.log(), "the log tells")
    contains(daemon.call("EnableManual", "x", (91,))["error"], "90", "more than the file allows")
    text = doctor()
    contains(text, "max-minutes = 90\n", "what doctor says of the settings")
    contains(text, "there is no setting \"no-such-thing\"", "what doctor finds")


def a_hangup_makes_a_changed_file_hold(daemon, logind, supplies, file):
    daemon.manual(60)
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the lock")
    supplies.on_battery(50)
    file.write_text("minimum-battery = 60\nkeep-display-on = true\n", encoding="utf-8")
    daemon.process.send_signal(signal.SIGHUP)
    wait_until(lambda: logind.locks() == [], "the lock goes by the new limit")
    supplies.on_mains()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the mains bring it back")
    check(keeps_display_on(logind), "the display is kept on, too")
    check("no-such-thing" not in doctor(), "what was wrong is mended")
    file.unlink()
    daemon.process.send_signal(signal.SIGHUP)
    wait_until(lambda: not keeps_display_on(logind), "the display is let go of")
    equal(logind.locks(), [daemon.process.pid], "the lock stays")
    daemon.stop()
    daemon.terminate()


def begin_with_a_tool(daemon, logind):
    """A timer that ends soon, and a tool that an agent began a while ago."""
    request = {"name": "Claude Code", "event": "PreToolUse", "requestedAt": date(time.time() - 900)}
    daemon.put_timer(SHORT_TIMER, lastRequester=request, triggerHistory=[request])
    daemon.start()
    wait_until(lambda: logind.locks() == [daemon.process.pid], "the lock")
    daemon.call("Reconcile")  # as one comes each minute of a longer timer


def a_tool_at_work_extends_the_timer(daemon, logind):
    agent = start("bash", "-c", f"exec -a claude bash -c '({BUSY}) & wait'", start_new_session=True)
    try:
        begin_with_a_tool(daemon, logind)
        wait_until(lambda: daemon.state()["lastRequester"]["event"] == "ToolRunning",
                   "the daemon extends", SHORT_TIMER + 20)
        equal(daemon.state()["lastRequester"]["name"], "Claude Code", "in whose name")
        equal(logind.locks(), [daemon.process.pid], "the lock goes on")
        left = daemon.status()["manualRemainingSeconds"]
        check(240 < left <= 300, f"{left} s are left")
    finally:
        os.killpg(agent.pid, signal.SIGKILL)
        agent.wait()
    daemon.stop()
    daemon.terminate()


def an_agent_that_waits_extends_nothing(daemon, logind):
    agent = start("bash", "-c", "exec -a claude sleep 600")
    try:
        begin_with_a_tool(daemon, logind)
        wait_until(lambda: logind.locks() == [], "the timer ends", SHORT_TIMER + 20)
        equal(daemon.state()["lastRequester"]["event"], "PreToolUse", "the last request")
    finally:
        agent.kill()
        agent.wait()


def test(daemon, logind):
    Network()
    supplies = PowerSupplies()
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder, "nodod.toml")
        the_file_holds_from_the_start(daemon, file)
        a_hangup_makes_a_changed_file_hold(daemon, logind, supplies, file)
    a_tool_at_work_extends_the_timer(daemon, logind)
    an_agent_that_waits_extends_nothing(daemon, logind)


main(test)
