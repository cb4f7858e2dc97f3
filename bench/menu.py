#!/usr/bin/python3 -B
"""Measures nodo-menu in a panel, beside the least program that shows an icon: how long after its
start the panel has the icon, and what it has of the memory for itself.

Build nodod, nodoctl, nodo-menu and nodo_bare_tray there first. Needs root, for a laptop of its own.
"""

import argparse
import os
import pathlib
import statistics
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
TURNS = 9
AT_REST = 3  # seconds until nothing more is loaded

parser = argparse.ArgumentParser(description=__doc__,
                                 formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("build", nargs="?", type=pathlib.Path, default=ROOT / "build/bench",
                    metavar="BUILD-FOLDER", help="default: build/bench")
BUILD = parser.parse_args().build.resolve()
if "NODO_E2E_DIR" not in os.environ:
    os.execv(ROOT / "tests/e2e/with-logind", ["with-logind", "unshare", "--net",
                                               os.path.abspath(__file__), str(BUILD)])

PROGRAMS = BUILD / "programs"
sys.argv[1:] = [str(PROGRAMS / "nodod/nodod"), str(PROGRAMS / "nodoctl/nodoctl"),
                str(PROGRAMS / "nodo-menu/nodo-menu")]

# pylint: disable=wrong-import-position  # these are found once with-logind says where
from daemon_world import main
from expectations import PATIENCE, wait_until
from menu_world import World
from processes import number_in, start


def turn(world, *command):
    """The seconds until the icon is there, and the kilobytes that only this process has."""
    begin = time.monotonic()
    process = start(*command, env=world.desktop.variables)
    wait_until(world.desktop.icons, "the panel has the icon", PATIENCE)
    shown = time.monotonic() - begin
    time.sleep(AT_REST)
    memory = f"/proc/{process.pid}/smaps_rollup"
    private = number_in(memory, "Private_Clean") + number_in(memory, "Private_Dirty")
    process.terminate()
    process.wait(PATIENCE)
    wait_until(lambda: not world.desktop.icons(), "the icon is gone", PATIENCE)
    return shown, private


def measure(daemon, logind):
    world = World(daemon, logind)
    daemon.start()
    world.nodoctl("hooks", "install", "--nodoctl", sys.argv[2])
    world.nodoctl("manual", "60")
    world.desktop.start_panel()
    commands = {"bare icon": [BUILD / "bench/nodo_bare_tray"],
                "nodo-menu": [sys.argv[3], "--bus", "system"]}
    for command in commands.values():
        turn(world, *command)  # what comes from the disk is there now
    turns = {name: [] for name in commands}
    for _ in range(TURNS):
        for name, command in commands.items():
            turns[name].append(turn(world, *command))
    medians = {name: [statistics.median(each) for each in zip(*values)]
               for name, values in turns.items()}
    for name, (shown, private) in medians.items():
        print(f"{name}: in the panel after {shown:.3f} s, {private / 1024:.1f} MiB of its own")
    for what, bare, own in zip(["time", "memory"], *medians.values()):
        print(f"{what}: {own / bare:.2f} of the bare icon's")


main(measure)
