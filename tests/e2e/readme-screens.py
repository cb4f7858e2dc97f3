#!/usr/bin/env python3
"""What the README says of the programs is so. Run by with-logind and 'unshare --net'.

usage: readme-screens.py NODOCTL NODOD README [--write]

Plays a session as the README tells it, on a laptop made of files and a network of its own, and
compares each screen with the README's block of the same name: a fenced block behind a line
'<!-- screen: NAME -->'. Numbers may differ, since times pass. With --write the blocks are replaced
instead. Either way the README's tables of commands and limits are compared with the programs' own
help, and the files that it links to have to be there.
"""

import os
import pathlib
import re
import subprocess
import sys

from expectations import equal, wait_until
from laptop import Network, PowerSupplies, run
from people import trust_hooks_in_codex
from processes import start
from tool_world import Terminal

HOME = "/home/ada"
ENVIRONMENT = {"HOME": HOME, "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "TERM": "xterm",
               "NODO_HOOK_LOG": f"{HOME}/hook.log",
               "DBUS_SYSTEM_BUS_ADDRESS": os.environ["DBUS_SYSTEM_BUS_ADDRESS"]}


def make_laptop():
    """A home, a battery and a route of its own, in this namespace."""
    Network()
    PowerSupplies().on_battery(81)
    run("mount", "-t", "tmpfs", "tmpfs", "/home")
    os.makedirs(HOME)


def try_nodoctl(nodoctl, *arguments):
    return subprocess.run([nodoctl, *arguments], env=ENVIRONMENT, text=True, timeout=20,
                          capture_output=True, check=False)


def screen(nodoctl, *arguments):
    done = try_nodoctl(nodoctl, *arguments)
    text = done.stdout + done.stderr
    equal(done.returncode, 0, f"the exit status of {arguments} ({text})")
    return text


def first_frame(nodoctl, *arguments):
    """What a terminal of 80 columns shows first; then Ctrl-C."""
    terminal = Terminal(ENVIRONMENT, [nodoctl, *arguments])
    terminal.expect(b"Ctrl-C ends.")
    shown = terminal.output.decode()
    terminal.press(b"\x03")
    terminal.finish()
    return re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]", "", shown).replace("\r", "") + "\n"


def play(nodoctl, nodod):
    """The screens by their names."""
    start(nodod, "--bus", "system", "--state-dir", f"{HOME}/daemon", env=ENVIRONMENT,
          stderr=subprocess.DEVNULL)
    start("claude", "600", executable="/bin/sleep")
    wait_until(lambda: try_nodoctl(nodoctl, "reconcile").returncode == 0, "the daemon answers")
    screen(nodoctl, "hooks", "install")
    trust_hooks_in_codex(HOME)
    request = ["manual", "--minutes", "20", "--extend-only", "--requester", "Claude Code",
               "--context", "shop - session 4f1c2a9e", "--event", "PreToolUse"]
    screen(nodoctl, *request)
    return {"doctor": screen(nodoctl, "doctor"), "watch": first_frame(nodoctl, "watch")}


def comparable(text):
    text = re.sub(r"\b[0-9a-f]{16}\b", "FINGERPRINT", text)
    # With the day when that is not today.
    text = re.sub(r"\buntil (\d{4}-\d\d-\d\d )?\d\d:\d\d", "until TIME", text)
    text = re.sub(r"[0-9]+", "0", text)
    lines = []
    for line in map(str.rstrip, text.split("\n")):
        agent = re.match(r"- .* pid=0 executable=(.*)", line)
        # Other agents may run on this machine, also of the kind that is shown.
        if line and not (agent and (agent.group(1) != "claude" or line in lines)):
            lines.append(line)
    return lines


def section(document, title):
    found = re.search(rf"^## {title}\n(.*?)(?=^## |\Z)", document, re.DOTALL | re.MULTILINE)
    if not found:
        sys.exit(f"the README has no section '{title}'")
    return found.group(1)


def help_of(program):
    done = subprocess.run([program, "--help"], env=ENVIRONMENT | {"COLUMNS": "100"}, text=True,
                          timeout=20, capture_output=True, check=True)
    return done.stdout


def commands_in_help(text):
    """The names that begin the lines below "Subcommands:". What every program has is left out."""
    below = text.partition("Subcommands:")[2]
    return set(re.findall(r"^  ([a-z]+)\b", below, re.MULTILINE)) - {"help", "version"}


def default_in_help(text, option):
    found = re.search(rf"^  {option}\b(?:(?!^  -).)*?\(default:\s+(\d+)\)", text,
                      re.DOTALL | re.MULTILINE)
    return found and found.group(1)


def wrong_claims(document, nodoctl, nodod, folder):
    """What the README says that the programs' help and the folder of the project do not."""
    wrong = []
    told = set(re.findall(r"^\| `nodoctl ([a-z]+)", section(document, "Commands"), re.MULTILINE))
    known = commands_in_help(help_of(nodoctl))
    if told != known:
        wrong.append(f"the commands differ from the help's in {sorted(told ^ known)}")
    limits = re.findall(r"`nodod (--[a-z-]+) (\d+)`", section(document, "Limits"))
    daemon_help = help_of(nodod)
    if not limits:
        wrong.append("no limits are told")
    for option, value in limits:
        if default_in_help(daemon_help, option) != value:
            wrong.append(f"nodod's help has no {option} with the default {value}")
    for target in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document):
        if not (folder / target).exists():
            wrong.append(f"there is no {target}")
    return [f"FAILED: {each}" for each in wrong]


def main():
    nodoctl, nodod, readme = sys.argv[1:4]
    writes = "--write" in sys.argv
    make_laptop()
    document = pathlib.Path(readme).read_text(encoding="utf-8")
    failures = wrong_claims(document, nodoctl, nodod, pathlib.Path(readme).parent)
    for name, shown in play(nodoctl, nodod).items():
        block = re.compile(rf"(<!-- screen: {name} -->\n```\n\$ [^\n]*\n)(.*?)(```\n)", re.DOTALL)
        found = block.search(document)
        if not found:
            sys.exit(f"the README has no screen '{name}'")
        if writes:
            begin, end = found.span(2)
            document = document[:begin] + shown.rstrip("\n") + "\n" + document[end:]
        elif comparable(found.group(2)) != comparable(shown):
            failures.append(f"FAILED: the README's '{name}' is not what is printed:\n{shown}")
    if writes:
        pathlib.Path(readme).write_text(document, encoding="utf-8")
    sys.exit("\n".join(failures) or 0)


main()
