#!/usr/bin/env python3
"""What the README shows of the programs is what they print. Run by with-logind and 'unshare --net'.

usage: readme-screens.py NODOCTL NODOD README [--write]

Plays a session as the README tells it, on a laptop made of files and a network of its own, and
compares each screen with the README's block of the same name: a fenced block behind a line
'<!-- screen: NAME -->'. Numbers may differ, since times pass. With --write the blocks are replaced
instead.
"""

import os
import pathlib
import re
import subprocess
import sys

from expectations import equal, wait_until
from laptop import Network, PowerSupplies, run
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


def trust_hooks_in_codex():
    """Notes what Codex notes when a person trusts the hooks."""
    with open(f"{HOME}/.codex/config.toml", "a", encoding="utf-8") as config:
        for event in ["session_start", "user_prompt_submit", "pre_tool_use", "post_tool_use"]:
            config.write(f'[hooks.state."{HOME}/.codex/hooks.json:{event}:0:0"]\n'
                         'trusted_hash = "sha256:0"\n')


def play(nodoctl, nodod):
    """The screens by their names."""
    start(nodod, "--bus", "system", "--state-dir", f"{HOME}/daemon", env=ENVIRONMENT,
          stderr=subprocess.DEVNULL)
    start("claude", "600", executable="/bin/sleep")
    wait_until(lambda: try_nodoctl(nodoctl, "reconcile").returncode == 0, "the daemon answers")
    screen(nodoctl, "hooks", "install")
    trust_hooks_in_codex()
    request = ["manual", "--minutes", "20", "--extend-only", "--requester", "Claude Code",
               "--context", "shop - session 4f1c2a9e", "--event", "PreToolUse"]
    return {"manual": screen(nodoctl, *request), "doctor": screen(nodoctl, "doctor"),
            "watch": first_frame(nodoctl, "watch")}


def comparable(text):
    text = re.sub(r"\b[0-9a-f]{16}\b", "FINGERPRINT", text)
    text = re.sub(r"[0-9]+", "0", text)
    lines = []
    for line in map(str.rstrip, text.split("\n")):
        agent = re.match(r"- .* pid=0 executable=(.*)", line)
        # Other agents may run on this machine, also of the kind that is shown.
        if line and not (agent and (agent.group(1) != "claude" or line in lines)):
            lines.append(line)
    return lines


def main():
    nodoctl, nodod, readme = sys.argv[1:4]
    writes = "--write" in sys.argv
    make_laptop()
    document = pathlib.Path(readme).read_text(encoding="utf-8")
    failures = []
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
