#!/usr/bin/python3 -B
"""What the history tells of a day with the real daemon and the real logind.

usage: history.py NODOD NODOCTL
"""

import json
import re
import subprocess
import sys

from daemon_world import main
from expectations import check, contains, equal, wait_until
from laptop import FOLDER, Network, PowerSupplies
from processes import environment


def run(*arguments, **variables):
    own = {"HOME": str(FOLDER / "home"), "LANG": "C.UTF-8", "TZ": "UTC0"}
    return subprocess.run([sys.argv[2], *arguments], text=True, capture_output=True, check=False,
                          timeout=20, env=environment(**own | variables))


def shown(*arguments, **variables):
    done = run("history", *arguments, **variables)
    equal((done.returncode, done.stderr), (0, ""), f"the outcome of {arguments}")
    return done.stdout


def document(*arguments):
    return json.loads(shown("--json", *arguments))


def live(logind, supplies):
    """An agent asks; the battery runs low, and is charged; somebody stops."""
    for name, context in [("Codex", "shop"), ("Codex", "shop"), ("a\x1b[2Jb", "\u4e2d" * 60)]:
        equal(run("manual", "20", "--extend-only", "--requester", name, "--context",
                  context).returncode, 0, "the exit status")
    supplies.on_battery(15)
    wait_until(lambda: logind.locks() == [], "the lock goes")
    vetoed = document()
    equal([each["ending"] for each in vetoed["vetoes"]], ["lasts"], "the veto")
    equal([each["ending"] for each in vetoed["lockPeriods"]], ["recorded"], "the lock")
    supplies.on_mains()
    wait_until(lambda: len(logind.locks()) == 1, "the lock comes back")
    equal(run("off").returncode, 0, "the exit status")


def is_told_to_programs():
    told = document("--since", "1h")
    equal([(each["name"], each["count"]) for each in told["requests"]],
          [("Codex", 2), ("a\x1b[2Jb", 1)], "the requests")
    equal(sum(each["count"] for each in told["requestMinutes"]), 3, "their number")
    equal([(each["reason"], each["ending"]) for each in told["lockPeriods"]],
          [("enable:manual_timer", "recorded")] * 2, "the lock")
    equal([(each["reason"], each["ending"]) for each in told["vetoes"]],
          [("release:battery_below_threshold", "recorded")], "the veto")
    equal([each["reason"] for each in told["operations"]],
          ["enable:manual_timer", "release:battery_below_threshold", "enable:manual_timer",
           "release:user_stop"], "the operations")
    check("lockKnownSince" not in told, "all is known")


def is_shown_to_people():
    text = shown("--since", "1h")
    for line in [r"Lock {6}\u00b7+\u2588+", r"Vetoes {4}\u00b7+\u2592+", r"Requests {2}\u00b7+.+",
                 r"  \d\d:\d\d( to \d\d:\d\d)?  Codex - shop \(2 times\)",
                 r"  \d\d:\d\d  released: the battery is low \(release:battery_below_threshold\)",
                 r"  \d\d:\d\d  released: it was stopped \(release:user_stop\)"]:
        check(re.search(f"^{line}$", text, re.MULTILINE), f"{line!r} in {text}")
    contains(text, "a\\u{1b}[2Jb", "what is shown")
    check("\x1b" not in text, text)
    plain = shown(LANG="C", COLUMNS="40")
    check(plain.isascii(), plain)
    check(max(map(len, plain.splitlines())) == 40, plain)


def history_is_told(daemon, logind):
    Network()
    supplies = PowerSupplies()
    supplies.on_mains()
    (FOLDER / "home").mkdir()
    daemon.start()
    contains(shown(), "Nothing happened in the last 12 h", "what is shown")
    live(logind, supplies)
    is_told_to_programs()
    is_shown_to_people()
    daemon.terminate()
    done = run("history")
    equal(done.returncode, 0, "the exit status")
    contains(done.stderr, "; using the local state", "what is said")
    contains(done.stdout, "Your own state, which switches no sleep lock:\nNothing happened",
             "what is shown")


main(history_is_told)
