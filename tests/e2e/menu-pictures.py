#!/usr/bin/python3 -B
"""Takes the README's pictures of nodo-menu, in a panel, after a day of work.

usage: menu-pictures.py NODOD NODOCTL NODO-MENU FOLDER

Run by with-logind and 'unshare --net'. Leaves menu.png and why.png in FOLDER.
"""

import pathlib
import subprocess
import sys
import time

from daemon_world import date, main
from expectations import PATIENCE, check, equal, wait_until
from laptop import run
from menu_world import WINDOW, World
from people import trust_hooks_in_codex
from processes import start

HOME = "/home/ada"
HOUR = 3600


def a_day(now):
    """A state with requests and locks of the last hours, a low battery among them."""
    worked = [(10.6, 9.1), (7.4, 5.2), (3.9, 0.4)]  # from and to, in hours ago
    buckets = [{"startedAt": date(now - minute * 60), "count": 1 + minute % 3}
               for begin, end in worked
               for minute in range(int(begin * 60), int(end * 60), -7)]
    operations = []
    for begin, end, why in [(10.6, 8.8, "manual_timer_expired"),
                            (7.4, 6.1, "battery_below_threshold"),
                            (5.6, 4.9, "manual_timer_expired"), (3.9, 0.1, "user_stop")]:
        operations += [("disable_sleep", begin, "enable:manual_timer"),
                       ("enable_sleep", end, f"release:{why}")]
    return {"triggerActivityBuckets": buckets,
            "powerOperationHistory": [
                {"action": action, "occurredAt": date(now - ago * HOUR), "reason": reason,
                 "dryRun": False, "exitCode": 0} for action, ago, reason in operations]}


def crop(file, box):
    """And leaves out what a picture tells beside its pixels."""
    subprocess.run(["convert", file, "-crop", box, "+repage", "-strip", file], check=True,
                   timeout=PATIENCE)


def take_menu(world, file):
    desktop = world.desktop
    desktop.start_panel()
    world.menu.start()
    place = world.place_of_icon()
    ask(world)
    world.icon_is("manualactive")
    closed = world.at_rest()
    desktop.click(place, "3")
    opened = wait_until(lambda: menu_in(world, closed), "the menu opens", PATIENCE)
    left, bottom = min(x for x, _ in opened), max(y for _, y in opened)
    desktop.screenshot(file)
    crop(file, f"{closed.width - left + 10}x{bottom + 12}+{left - 10}+0")
    desktop.xdotool("key", "Escape")


def ask(world):
    world.nodoctl("manual", "20", "--requester", "Claude Code", "--context",
                  "shop - session 4f1c2a9e", "--event", "PreToolUse")


def menu_in(world, closed):
    changed = world.at_rest().differences(closed)
    return changed if len(changed) > 10000 else None


def take_window(world, file):
    check(world.menu.run().wait(PATIENCE) == 0, "the window is asked for")
    window = wait_until(lambda: world.desktop.windows(WINDOW), "the window is shown", PATIENCE)[0]
    wait_until(lambda: len(world.at_rest(window).colours()) > 20, "it is drawn", PATIENCE)
    world.desktop.screenshot(file, window)
    crop(file, "100%x100%+0+0")


def test(daemon, logind):
    folder = pathlib.Path(sys.argv[4])
    folder.mkdir(parents=True, exist_ok=True)
    run("mount", "-t", "tmpfs", "tmpfs", "/home")
    world = World(daemon, logind, HOME)
    # It is half past three or so in the afternoon, whenever this is run.
    world.desktop.variables["TZ"] = f"LOCAL{time.gmtime().tm_hour - 15:+d}"
    daemon.put_timer(-60, **a_day(time.time()))
    daemon.start()
    start("claude", "600", executable="/bin/sleep")
    world.nodoctl("hooks", "install", "--nodoctl", sys.argv[2])
    trust_hooks_in_codex(HOME)
    equal(logind.locks(), [], "the locks")
    take_menu(world, folder / "menu.png")
    take_window(world, folder / "why.png")


main(test)
