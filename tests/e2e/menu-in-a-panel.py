#!/usr/bin/python3 -B
"""nodo-menu in a real panel, with the real daemon on the real logind.

usage: menu-in-a-panel.py NODOD NODOCTL NODO-MENU
"""

import pathlib
import signal
import subprocess
import sys
import time

from daemon_world import main
from expectations import PATIENCE, check, contains, equal, wait_until
from menu_world import WINDOW, World
from processes import settled_switches, switches


def the_icon_appears(world):
    world.daemon.start()
    world.nodoctl("hooks", "install", "--nodoctl", sys.argv[2])
    world.desktop.start_notifications()
    world.desktop.start_panel()
    before = world.desktop.screenshot()
    world.menu.start()
    world.menu.says("Not kept awake", "an idle computer")
    contains(world.desktop.icon().tool_tip(), "Not kept awake", "what the icon says")
    changed = wait_until(lambda: world.desktop.screenshot().differences(before),
                         "the icon can be seen", PATIENCE)
    check(max(y for _, y in changed) < 60, "it is in the panel on top")


def the_right_menu_opens_and_obeys_the_keyboard(world):
    place = world.place_of_icon()
    before = world.at_rest()
    world.desktop.click(place, "3")
    wait_until(lambda: len(world.at_rest().differences(before)) > 10000,
               "a menu covers a part of the screen", PATIENCE)
    world.desktop.xdotool("key", "w")  # as "Why?" says
    wait_until(lambda: world.desktop.windows(WINDOW), "the window is shown", PATIENCE)
    close_window(world)
    world.desktop.click(place, "1")
    wait_until(lambda: world.desktop.windows(WINDOW), "a click shows it, too", PATIENCE)
    close_window(world)


def close_window(world):
    window = world.desktop.windows(WINDOW)[0]
    world.desktop.xdotool("windowfocus", window, "key", "Escape")
    wait_until(lambda: not world.desktop.windows(WINDOW), "Escape closes it", PATIENCE)


def keeping_awake_takes_the_lock_and_stop_gives_it_back(world):
    world.icon_is("off")
    equal(world.logind.locks(), [], "the locks before")
    world.menu.choose("1 hour")
    wait_until(lambda: world.logind.locks() == [world.daemon.process.pid], "the lock is taken")
    world.menu.says("Kept awake until", "the menu knows")
    contains(world.desktop.icon().tool_tip(), "(1 h left)", "the countdown")
    world.menu.says("Last request: nodo-menu", "it asked in its own name")
    world.icon_is("manualactive")
    world.menu.choose("Stop keeping awake")
    wait_until(lambda: world.logind.locks() == [], "the lock is given back")
    world.menu.says("Not kept awake", "the menu knows that, too")
    world.icon_is("off")


def what_others_do_is_seen_at_once(world):
    world.nodoctl("manual", "30", "--requester", "R&D", "--context", "my_shop")
    world.menu.says("Kept awake until", "a request of another's")
    world.menu.says("Last request: R&D - my_shop, ", "whatever characters it has")
    world.nodoctl("stop")
    world.menu.says("Not kept awake", "and its end")


def a_pause_is_told_and_ended(world):
    world.menu.choose("Pause for an hour")
    world.menu.choose("Resume the agents' hooks")
    world.menu.says("Pause for an hour", "as before")


def the_daemon_may_die_and_come_back(world):
    world.daemon.kill()
    world.menu.says("daemon", "a dead daemon")
    world.icon_is("warning")
    world.daemon.start()
    world.menu.says("Not kept awake", "it is back")
    world.icon_is("off")


def the_panel_may_die_and_come_back(world):
    world.desktop.kill_panel()
    world.nodoctl("manual", "30")
    world.desktop.start_panel()
    world.menu.says("Kept awake until", "in the new panel")
    world.nodoctl("stop")
    world.menu.says("Not kept awake", "and follows")


def a_low_battery_changes_icon_and_headline_and_sends_one_notification(world):
    equal(world.desktop.notifications(), [], "the notifications so far")
    world.menu.choose("1 hour")
    world.menu.says("Kept awake until", "on mains")
    world.icon_is("manualactive")
    world.supplies.on_battery(15)
    world.menu.says("battery at 15 % (limit 20 %)", "a low battery")
    world.icon_is("warning")
    wait_until(world.desktop.notifications, "a notification comes", PATIENCE)
    world.nodoctl("manual", "--extend-only", "60")
    time.sleep(1)  # one that should not come has no end to wait for
    told = world.desktop.notifications()
    equal(len(told), 1, "the notifications")
    contains(told[0][0], "lets this computer sleep", "its title")
    contains(told[0][1], "battery at 15 %", "its text")
    world.supplies.on_mains()
    world.menu.says("Kept awake until", "on mains again")
    world.menu.choose("Stop keeping awake")
    world.menu.says("Not kept awake", "and stopped")
    equal(len(world.desktop.notifications()), 1, "the notifications in the end")


def a_fallback_of_a_hook_sends_one_notification(world):
    before = len(world.desktop.notifications())
    log = pathlib.Path(world.desktop.variables["NODO_HOOK_LOG"])
    log.unlink(missing_ok=True)  # as after a start of the machine
    stamp = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime())
    with log.open("a", encoding="utf-8") as lines:
        lines.write(f"{stamp} fallback caffeinate started pid=1 seconds=600 agent=claude\n")
    wait_until(lambda: len(world.desktop.notifications()) > before, "a notification", PATIENCE)
    contains(world.desktop.notifications()[-1][0], "by itself", "its title")
    world.nodoctl("stop")
    time.sleep(1.5)  # as above
    equal(len(world.desktop.notifications()), before + 1, "the notifications")
    log.unlink()


def a_second_one_shows_the_first_ones_window(world):
    equal(world.desktop.windows(WINDOW), [], "the windows")
    second = world.menu.run()
    equal(second.wait(PATIENCE), 0, "the second one's exit status")
    wait_until(lambda: len(world.desktop.windows(WINDOW)) == 1, "the window is shown", PATIENCE)
    equal(len(world.desktop.icons()), 1, "the icons")
    window = world.desktop.windows(WINDOW)[0]
    wait_until(lambda: len(world.at_rest(window).colours()) > 20, "it shows text and a picture",
               PATIENCE)
    close_window(world)


def at_rest_it_wakes_up_for_nothing(world):
    world.menu.says("Not kept awake", "at rest")
    pid = world.menu.process.pid
    before = settled_switches(pid)
    time.sleep(60)
    woken = switches(pid) - before
    check(woken <= 2, f"woken {woken} times in a minute")


def without_a_desktop_it_says_so(world):
    variables = {name: value for name, value in world.desktop.variables.items()
                 if name != "DISPLAY"}
    ended = subprocess.run([sys.argv[3]], env=variables, text=True, capture_output=True,
                           check=False, timeout=PATIENCE)
    equal(ended.returncode, 1, "its exit status")
    contains(ended.stderr, "there is no desktop", "its complaint")
    ended = subprocess.run([sys.argv[3]], env=variables | {"DISPLAY": "unix:987"}, text=True,
                           capture_output=True, check=False, timeout=PATIENCE)
    equal(ended.returncode, 1, "its exit status on a display that is gone")
    contains(ended.stderr, "nodo-menu: ", "its complaint of that")


def it_waits_for_the_panel(world):
    world.menu.process.send_signal(signal.SIGTERM)
    world.menu.process.wait(PATIENCE)
    world.desktop.kill_panel()
    world.menu.start()
    time.sleep(2)  # as at a login, where the panel comes later
    world.desktop.start_panel()
    world.menu.says("Not kept awake", "in the panel")


def test(daemon, logind):
    world = World(daemon, logind)
    for step in [the_icon_appears, the_right_menu_opens_and_obeys_the_keyboard,
                 keeping_awake_takes_the_lock_and_stop_gives_it_back,
                 what_others_do_is_seen_at_once, a_pause_is_told_and_ended,
                 the_daemon_may_die_and_come_back, the_panel_may_die_and_come_back,
                 a_low_battery_changes_icon_and_headline_and_sends_one_notification,
                 a_fallback_of_a_hook_sends_one_notification,
                 a_second_one_shows_the_first_ones_window, at_rest_it_wakes_up_for_nothing,
                 it_waits_for_the_panel, without_a_desktop_it_says_so]:
        print(step.__name__.replace("_", " "), flush=True)
        step(world)


main(test)
