#!/usr/bin/python3 -B
"""The completion scripts in real shells: what is offered for a line, and what a tab makes of it.

usage: completion-in-shells.py bash|zsh|fish NODOCTL
"""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from expectations import PATIENCE, check, equal, skip
from tool_world import Terminal

COMMANDS = ["status", "history", "manual", "on", "stop", "off", "pause", "resume", "repair",
            "reconcile", "doctor", "diagnostics", "agents", "hooks", "menu", "watch", "run",
            "completion", "help", "version"]
OPTIONS = ["--help", "--version", "--helper-timeout", "--bus"]
RESUME = "End a pause, so that hooks ask again"
REPAIR = "Reset the state after something went wrong; the histories are kept"
RECONCILE = "Make the daemon check everything now"
UNINSTALL = ("Take the hooks out of the agents' configuration again; without names, the shared "
             "script is removed as well")
BASH_COMPLETION = "/usr/share/bash-completion/bash_completion"

BASH_SETUP = r"""
source <(nodoctl completion bash)
watched() { _nodoctl "$@"; printf '%s\n' "${COMPREPLY[@]}" >"$REPORT/offered"; }
complete -F watched nodoctl
complete -W '--ripe --round' melon
bind 'set completion-query-items 0' 'set page-completions off' 'set enable-bracketed-paste off'
report() { printf '%s|' "$READLINE_LINE" >"$REPORT/line"; }
bind -x '"\C-xr": report'
PS1='rea''dy> '
"""

# Candidates are on their way into the lists when this sees them, with their descriptions.
ZSH_SETUP = r"""
autoload -Uz compinit
compinit -u -D
compadd() {
  local -a offered shown
  local -i at=$argv[(i)-d]
  if [[ -z ${argv[(r)-[OAD]]} ]]; then
    (( at < $#argv )) && shown=("${(@P)argv[at+1]}")
    builtin compadd ${shown:+-D} ${shown:+shown} -O offered "$@"
    print -rl -- ${shown:-$offered} >>$REPORT/offered
  fi
  builtin compadd "$@"
}
melon() { }
compdef '_arguments --ripe --round' melon
report() { print -rn -- "$BUFFER|" >$REPORT/line }
zle -N report
bindkey '^Xr' report
unset zle_bracketed_paste
PS1='rea''dy> '
"""

FISH_SETUP = "nodoctl completion fish | source; complete -c melon -f -l ripe -l round; "


class Home:
    """A folder with the tool and a program of another kind in PATH, and files to be offered."""

    def __init__(self, nodoctl):
        self.folder = tempfile.mkdtemp(prefix="nodo-completion-")
        path = pathlib.Path(self.folder)
        (path / "bin").mkdir()
        (path / "bin/nodoctl").symlink_to(nodoctl)
        (path / "bin/melon").write_text("#!/bin/sh\n", encoding="utf-8")
        (path / "bin/melon").chmod(0o700)
        (path / "house").mkdir()
        (path / "hours=1").mkdir()
        (path / "hound").touch()
        self.environment = {
            "HOME": self.folder,
            "ZDOTDIR": self.folder,
            "PATH": f"{self.folder}/bin:/usr/bin:/bin",
            "REPORT": self.folder,
            "TERM": "dumb",
            "LANG": "C.UTF-8",
            **{key: value for key, value in os.environ.items() if "SAN_OPTIONS" in key},
        }

    def write(self, name, text):
        (pathlib.Path(self.folder) / name).write_text(text, encoding="utf-8")

    def read(self, name):
        file = pathlib.Path(self.folder) / name
        return file.read_text(encoding="utf-8") if file.exists() else ""


class InteractiveShell:
    """A shell into which lines are typed."""

    def __init__(self, home, command):
        self.home = home
        self.terminal = Terminal(home.environment, command, columns=200)
        self.terminal.expect(b"ready> ")

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        with contextlib.suppress(ProcessLookupError):
            os.kill(self.terminal.pid, signal.SIGKILL)
        os.waitpid(self.terminal.pid, 0)
        os.close(self.terminal.master)

    def tab(self, line):
        """What the line becomes by a tab, and what was offered for that."""
        self.home.write("offered", "")
        self.home.write("line", "")
        self.terminal.press(line.encode() + b"\t\x18r")
        end = time.monotonic() + PATIENCE
        while not self.home.read("line").endswith("|"):
            check(time.monotonic() < end and self.terminal.read(0.02),
                  f"no tab after {line!r}: {self.terminal.output!r}")
        self.terminal.press(b"\x15")
        offered = [each for each in self.home.read("offered").split("\n") if each]
        return self.home.read("line")[:-1], offered

    def offers(self, line, expected):
        equal(self.tab(line)[1], expected, f"what is offered for {line!r}")

    def becomes(self, line, expected):
        equal(self.tab(line)[0], expected, f"what {line!r} becomes")


def lines_become_what_is_meant(shell, folder):
    for line, expected in [
        ("nodoctl sto", "nodoctl stop "),
        ("nodoctl --bus session do", "nodoctl --bus session doctor "),
        ("nodoctl --bus=session do", "nodoctl --bus=session doctor "),
        ("nodoctl --bus unix:path=/x,guid=7 do", "nodoctl --bus unix:path=/x,guid=7 doctor "),
        ("nodoctl --bus=unix:path=/x do", "nodoctl --bus=unix:path=/x doctor "),
        ("nodoctl --bus sy", "nodoctl --bus system "),
        ("nodoctl --bus=sy", "nodoctl --bus=system "),
        ("nodoctl status --j", "nodoctl status --json "),
        ("nodoctl hi", "nodoctl history "),
        ("nodoctl history --si", "nodoctl history --since "),
        ("nodoctl on --un", "nodoctl on --until "),
        ("nodoctl manual --until 1", "nodoctl manual --until 1"),
        ("nodoctl hooks un", "nodoctl hooks uninstall "),
        ("nodoctl hooks inspect pi gr", "nodoctl hooks inspect pi grok "),
        ("nodoctl completion z", "nodoctl completion zsh "),
        ("nodoctl hooks install 'cla", "nodoctl hooks install 'claude' "),
        (f"nodoctl hooks install --home {folder}/hous",
         f"nodoctl hooks install --home {folder}/house/"),
        (f"nodoctl hooks install --home={folder}/hous",
         f"nodoctl hooks install --home={folder}/house/"),
        (f"nodoctl hooks install --nodoctl {folder}/houn",
         f"nodoctl hooks install --nodoctl {folder}/hound "),
        ("nodoctl run -- melo", "nodoctl run -- melon "),
        ("nodoctl run melo", "nodoctl run melon "),
        ("nodoctl run --mi", "nodoctl run --minutes "),
        ("nodoctl run --pid ho", "nodoctl run --pid ho"),
        ("nodoctl help hooks un", "nodoctl help hooks uninstall "),
        (f"nodoctl run -- cat {folder}/houn", f"nodoctl run -- cat {folder}/hound "),
        (f"nodoctl run --minutes 5 -- cat --bus {folder}/houn",
         f"nodoctl run --minutes 5 -- cat --bus {folder}/hound "),
        (f"{folder}/bin/nodoctl sto", f"{folder}/bin/nodoctl stop "),
        ("~/bin/nodoctl sto", "~/bin/nodoctl stop "),
        ("nodoctl sleep s", "nodoctl sleep s"),
        ("nodoctl status x -", "nodoctl status x -"),
        ("nodoctl --helper-timeout s", "nodoctl --helper-timeout s"),
        ("/no/such/nodoctl sto", "/no/such/nodoctl sto"),
    ]:
        shell.becomes(line, expected)


def in_bash(home):
    home.write("rc", BASH_SETUP)
    with InteractiveShell(home, ["bash", "--rcfile", f"{home.folder}/rc", "-i"]) as bash:
        bash.offers("nodoctl ", COMMANDS + OPTIONS)
        bash.offers("nodoctl re", ["resume", "repair", "reconcile"])
        bash.offers("nodoctl --bus=", ["system", "session"])
        bash.offers("nodoctl hooks install c", ["claude", "codex"])
        bash.offers(f"nodoctl hooks install --home={home.folder}/hours=", ["1"])
        bash.offers(f"nodoctl hooks install --home {home.folder}/houn", [])  # which is no folder
        lines_become_what_is_meant(bash, home.folder)
        bash.becomes("nodoctl run -- melon --ri", "nodoctl run -- melon --ri")
        check(b"nodoctl:" not in bash.terminal.output, bash.terminal.output)
    if not os.path.exists(BASH_COMPLETION):
        print("without bash-completion, which is not installed")
        return
    home.write("rc", f"source {BASH_COMPLETION}\n{BASH_SETUP}")
    with InteractiveShell(home, ["bash", "--rcfile", f"{home.folder}/rc", "-i"]) as bash:
        bash.offers("nodoctl ", COMMANDS + OPTIONS)
        bash.offers("nodoctl run -- melon --", ["--ripe", "--round"])
        bash.becomes("nodoctl run --minutes 5 -- melon --ri",
                     "nodoctl run --minutes 5 -- melon --ripe ")
        bash.becomes("nodoctl --bus=session run melon --ri",
                     "nodoctl --bus=session run melon --ripe ")
        bash.becomes("nodoctl run -- nodoctl run -- melo", "nodoctl run -- nodoctl run -- melon ")
        lines_become_what_is_meant(bash, home.folder)
        check(b"nodoctl:" not in bash.terminal.output, bash.terminal.output)


def in_zsh(home):
    home.write("_nodoctl", subprocess.run([f"{home.folder}/bin/nodoctl", "completion", "zsh"],
                                          check=True, capture_output=True, text=True).stdout)
    # As it is installed, and as a person tries it.
    for setup in [f"fpath+=({home.folder})\n{ZSH_SETUP}",
                  f"{ZSH_SETUP}\nsource <(nodoctl completion zsh)"]:
        home.write(".zshrc", setup)
        with InteractiveShell(home, ["zsh", "-d", "-i"]) as zsh:
            equal([each.split()[0] for each in zsh.tab("nodoctl ")[1]], COMMANDS + OPTIONS,
                  "what is offered at first")
            zsh.offers("nodoctl re", [f"resume     -- {RESUME}", f"repair     -- {REPAIR}",
                                      f"reconcile  -- {RECONCILE}"])
            zsh.offers("nodoctl --bus ", ["system", "session"])
            zsh.offers("nodoctl --bus=", ["--bus=system", "--bus=session"])
            zsh.offers("nodoctl hooks install c", ["claude  -- Claude Code", "codex   -- Codex"])
            zsh.becomes(f"nodoctl hooks install --home={home.folder}/hours=",
                        f"nodoctl hooks install --home={home.folder}/hours=1/")
            zsh.becomes("nodoctl run -- melon --ri", "nodoctl run -- melon --ripe ")
            zsh.becomes("nodoctl run --minutes 5 melon --ri",
                        "nodoctl run --minutes 5 melon --ripe ")
            zsh.becomes("nodoctl run -- nodoctl run -- melo",
                        "nodoctl run -- nodoctl run -- melon ")
            lines_become_what_is_meant(zsh, home.folder)
            check(b"nodoctl:" not in zsh.terminal.output, zsh.terminal.output)


def in_fish(home):
    folder = home.folder
    for line, expected in [
        ("nodoctl ", [None] * len(COMMANDS)),
        ("nodoctl re",
         [f"reconcile\t{RECONCILE}", f"repair\t{REPAIR}", f"resume\t{RESUME}"]),
        ("nodoctl status ", []),
        ("nodoctl status --j", ["--json\tPrint JSON"]),
        ("nodoctl --bus session sto", ["stop\tEnd the timer, so that the computer may sleep"]),
        ("nodoctl --bus ", ["session", "system"]),
        ("nodoctl --bus=", ["--bus=session", "--bus=system"]),
        ("nodoctl --bus unix:path=/x sto", ["stop\tEnd the timer, so that the computer may sleep"]),
        ("nodoctl hooks install c", ["claude\tClaude Code", "codex\tCodex"]),
        ("nodoctl hooks install pi g", ["grok\tGrok Build"]),
        ("nodoctl completion z", ["zsh"]),
        (f"nodoctl hooks install --home {folder}/hou", [f"{folder}/hours=1/", f"{folder}/house/"]),
        (f"nodoctl hooks install --home={folder}/hous", [f"--home={folder}/house/"]),
        (f"nodoctl hooks install --nodoctl {folder}/houn", [f"{folder}/hound"]),
        ("nodoctl run --mi", ["--minutes\tHow many minutes ahead the timer is kept (default: 20)"]),
        ("nodoctl run --pid ", []),
        ("nodoctl help hooks un", [f"uninstall\t{UNINSTALL}"]),
        ("nodoctl run melo", ["melon\tcommand"]),
        ("nodoctl run -- melo", ["melon\tcommand"]),
        ("nodoctl run -- melon --", ["--ripe", "--round"]),
        ("nodoctl run --minutes 5 melon --ri", ["--ripe"]),
        (f"nodoctl run -- cat {folder}/houn", [f"{folder}/hound"]),
        ("nodoctl run -- nodoctl run -- melo", ["melon\tcommand"]),
        ("~/bin/nodoctl sto", ["stop\tEnd the timer, so that the computer may sleep"]),
        ("/no/such/nodoctl sto", []),
        ("nodoctl sleep ", []),
        ("nodoctl status x -", []),
        ("nodoctl --helper-timeout ", []),
        ("nodoctl 'a b' --", []),
    ]:
        done = subprocess.run(["fish", "-c", FISH_SETUP + "complete -C $argv[1]", line],
                              env=home.environment, capture_output=True, text=True, check=True,
                              timeout=PATIENCE)
        equal(done.stderr, "", f"what fish says of {line!r}")
        offered = done.stdout.splitlines()
        if None in expected:
            equal(sorted(each.split("\t")[0] for each in offered), sorted(COMMANDS),
                  "what is offered at first")
        else:
            equal(offered, expected, f"what is offered for {line!r}")


def main():
    shell, nodoctl = sys.argv[1:]
    if shutil.which(shell) is None:
        skip(f"{shell} is not installed")
    home = Home(os.path.abspath(nodoctl))
    try:
        {"bash": in_bash, "zsh": in_zsh, "fish": in_fish}[shell](home)
    finally:
        shutil.rmtree(home.folder, ignore_errors=True)


main()
