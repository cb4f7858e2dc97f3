#!/usr/bin/python3 -B
"""The documents of the real nodoctl are as their schemas say, each command in a home of its own.

usage: check-commands.py SCHEMAS NODO_SAMPLE_DOCUMENTS NODOCTL
"""

import functools
import json
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

from schemas import Schemas, fail, finish

# The schema, the command and, where it is not 0, the exit status with which the document comes.
COMMANDS = [
    ("status-report", "status"),
    ("status-report",
     "manual --minutes 20 --extend-only --requester Codex --context api --event e"),
    ("status-report", "manual --minutes 5"),
    ("status-report", "on 1h"),
    ("status-report", "stop"),
    ("status-report", "off"),
    ("status-report", "repair"),
    ("daemon-run-report", "reconcile --simulate"),
    ("sleep-diagnostics-report", "diagnostics"),
    ("agents", "agents"),
    ("hook-install-reports", "hooks install"),
    ("hook-install-reports", "hooks install claude pi", 1),
    ("hook-install-reports", "hooks uninstall"),
    ("hook-install-reports", "hooks uninstall claude", 1),
    ("hook-inspection", "hooks inspect"),
    ("hook-inspection", "hooks inspect pi"),
    # Without a daemon the verdict is a warning.
    ("doctor-report", "doctor", 1),
    ("menu-report", "menu"),
    ("history-report", "history"),
    ("history-report", "history --since 1h30m"),
]
# This one goes on until it is ended.
WATCH = ("menu-report", "watch")


class Home:
    """A home folder in which only nodo was ever used, or not even that."""

    def __init__(self, folder, nodoctl):
        self.path = pathlib.Path(tempfile.mkdtemp(dir=folder))
        self.nodoctl = nodoctl

    def run(self, arguments):
        """Asks no daemon of this machine."""
        return subprocess.run(
            [self.nodoctl, *arguments],
            env=self.environment(),
            capture_output=True,
            text=True,
            timeout=60,
            check=False,
        )

    def first_line(self, arguments):
        """What a command that goes on says first; then it is ended as Ctrl-C does."""
        with subprocess.Popen(
            [self.nodoctl, *arguments],
            env=self.environment(),
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        ) as process:
            line = process.stdout.readline()
            process.send_signal(signal.SIGINT)
        return line

    def environment(self):
        nowhere = f"unix:path={self.path}/no-bus"
        return {
            "HOME": str(self.path),
            "PATH": "/usr/bin:/bin",
            "NODO_HOOK_LOG": str(self.path / "log"),
            "DBUS_SYSTEM_BUS_ADDRESS": nowhere,
            "DBUS_SESSION_BUS_ADDRESS": nowhere,
        }

    def write(self, name, text):
        file = self.path / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")


def check(schemas, home, schema, command, status):
    result = home.run([*command.split(), "--json"])
    if result.returncode != status:
        fail(f"{command}: exit status {result.returncode}, not {status}: {result.stderr}")
        return None
    return check_document(schemas, schema, command, result.stdout)


def check_document(schemas, schema, command, text):
    try:
        document = json.loads(text)
    except json.JSONDecodeError as error:
        fail(f"{command}: no JSON document ({error}): {text}")
        return None
    for error in schemas.errors(schema, document):
        fail(f"{command}: {error}")
    return document


def check_fresh(schemas, new_home):
    for schema, command, *status in COMMANDS:
        home = new_home()
        hooks_fail = schema == "hook-install-reports" and bool(status)
        if hooks_fail:
            home.write(".claude/settings.json", "{ this is no JSON")
        document = check(schemas, home, schema, command, *(status or [0]))
        if hooks_fail and document is not None and not any("error" in each for each in document):
            fail(f"{command}: no error in a report of a failure")
    schema, command = WATCH
    check_document(schemas, schema, command, new_home().first_line([command, "--json"]))


def check_used(schemas, home, state):
    """With all that a state can hold, the hooks installed, and an agent running."""
    home.write(".nodo/state.json", state)
    installed = home.run(["hooks", "install"])
    if installed.returncode != 0:
        fail(f"hooks install: {installed.stderr}")
    shutil.copy("/bin/sleep", home.path / "codex")
    with subprocess.Popen([home.path / "codex", "300"]) as agent:
        try:
            expect_everything(check(schemas, home, "status-report", "status", 0), agent.pid)
            found = check(schemas, home, "agents", "agents", 0) or []
            if agent.pid not in [each["pid"] for each in found]:
                fail("agents: the running agent is not found")
        finally:
            agent.kill()
    check(schemas, home, "hook-inspection", "hooks inspect", 0)
    doctor = check(schemas, home, "doctor-report", "doctor", 1)
    if doctor is not None and doctor["hookInspection"]["hookScriptStatus"] != "current":
        fail("doctor: the hooks that were installed are not seen")
    menu = check(schemas, home, "menu-report", "menu", 0)
    if menu is not None and "requester" not in menu:
        fail("menu: the state's last requester is gone")
    check(schemas, home, "history-report", "history", 0)
    run = check(schemas, home, "daemon-run-report", "reconcile --simulate", 0)
    if run is not None and not run["status"]["state"]["powerOperationHistory"]:
        fail("reconcile: the state's history is gone")
    check(schemas, home, "status-report", "repair", 0)
    check(schemas, home, "hook-install-reports", "hooks uninstall", 0)


def expect_everything(status, agent):
    if status is None:
        return
    for key in ("lastRequester", "lastPowerOperation", "lastActivationReason", "lastStopReason"):
        if key not in status["state"]:
            fail(f"status: the state's {key} is gone")
    if agent not in [each["pid"] for each in status["agents"]]:
        fail("status: the running agent is not found")


def commands_with_json(home, prefix=()):
    """What --help tells of: each command that can answer in JSON."""
    text = home.run([*prefix, "--help"]).stdout
    if re.search(r"^ +--json\b", text, re.MULTILINE):
        yield " ".join(prefix)
    listed = text.partition("\nSubcommands:\n")[2]
    for name in re.findall(r"^  ([a-z]\S*)", listed, re.MULTILINE):
        yield from commands_with_json(home, (*prefix, name))


def check_all(schemas, new_home, state):
    offered = list(commands_with_json(new_home()))
    if len(offered) < 9:
        fail(f"--help names only these commands with --json: {offered}")
    for command in offered:
        if not any(f"{row[1]} ".startswith(f"{command} ") for row in [*COMMANDS, WATCH]):
            fail(f"{command}: its document is not checked here")
    check_fresh(schemas, new_home)
    check_used(schemas, new_home(), state)


def main():
    schemas = Schemas(sys.argv[1])
    state = subprocess.run([sys.argv[2], "--state"], check=True, capture_output=True, text=True)
    with tempfile.TemporaryDirectory() as folder:
        check_all(schemas, functools.partial(Home, folder, sys.argv[3]), state.stdout)
    finish()


main()
