#!/usr/bin/python3 -B
"""What the Installer's scripts do to a Mac, and that nodo-uninstall undoes it: no lock is left on,
no file, and no daemon that nobody can remove.

usage: installation.py [TEST ...]
"""

import os
import pathlib
import re
import stat
import subprocess

from expectations import check, contains, equal
from mac_install import (DAEMON, PAYLOAD, PROJECT, PROPERTY_LIST, PLACES, copy_files, files_below,
                         install, main, run, script)
from mac_tools import LABEL, MARK

UNINSTALL = "/usr/local/bin/nodo-uninstall"
STATE = pathlib.Path("/Library/Application Support/nodo/state.json")
BY_LID = "ioreg -r -k AppleClamshellState -d 4"
BY_CLASS = "ioreg -r -c IOPMrootDomain -d 1"
SWITCH_OFF = "pmset -a disablesleep 0"
RECEIPT = "com.quintavel.nodo.pkg"


def lines_of(mac):
    return [line for line, _flag, _status in mac.now()["runs"]]


def installed_files():
    return [file for file in files_below(*PLACES) if not file.startswith("/tmp")]


def install_and_use(mac):
    """With the lock on, a state and logs."""
    install(mac)
    STATE.parent.mkdir(parents=True)
    STATE.write_text("{}", encoding="utf-8")
    pathlib.Path("/Library/Logs").mkdir()
    for log in ["nodod.log", "nodod.log.0", "nodod.log.3"]:
        (pathlib.Path("/Library/Logs") / log).write_text("nodod: a line\n", "utf-8")
    MARK.touch()
    mac.change(preference=True, kernel=True, runs=[])


def give_hooks(mac, home="/Users/Ada Lovelace"):
    settings = pathlib.Path(home) / ".claude/settings.json"
    settings.parent.mkdir(parents=True)
    settings.write_text('{"command": "\'/Users/ada/.nodo/nodo-agent-hook.sh\' claude"}', "utf-8")
    mac.change(homes={"ada": home, "daemon": "/var/root"})
    return settings


def uninstall(*options):
    return run(UNINSTALL, *options)


def expect_nothing_removed(mac, result, words):
    equal(result.returncode, 1, "the exit")
    contains(result.stderr, words, "the reason")
    equal([file for file in PAYLOAD if not os.path.exists(file)], [], "what is missing")
    check(STATE.exists(), "the state is there")
    equal(mac.now()["receipts"], [RECEIPT], "the receipts")


def expect_nothing_left(result, *exceptions):
    equal(result.returncode, 0, f"the exit ({result.stderr})")
    equal(installed_files(), sorted(exceptions), "what is left")


# ---- installing


def an_installation_runs_the_daemon_as_roots_own(mac):
    install(mac)
    for path, mode in [(DAEMON, 0o755), (PROPERTY_LIST, 0o644)]:
        status = os.stat(path)
        equal((status.st_uid, stat.S_IMODE(status.st_mode)), (0, mode), f"owner and mode of {path}")
    equal([line for line in lines_of(mac) if line.startswith("launchctl")],
          [f"launchctl print system/{LABEL}", f"launchctl enable system/{LABEL}",
           f"launchctl bootstrap system {PROPERTY_LIST}", f"launchctl print system/{LABEL}"],
          "what launchd is asked")


def files_that_others_could_write_become_roots_own(mac):
    install(mac)
    mac.change(loaded=False)
    for path in [DAEMON, PROPERTY_LIST]:
        os.chmod(path, 0o666)
    equal(script("postinstall").returncode, 0, "the exit")
    check(mac.now()["loaded"], "launchd, which is strict about that, takes it")


def an_upgrade_ends_the_daemon_and_keeps_state_and_timer(mac):
    install_and_use(mac)
    equal(script("preinstall").returncode, 0, "the exit of what comes before")
    check(not mac.now()["loaded"], "no daemon runs while files change")
    check(not mac.sleep_is_disabled(), "and none holds the lock")
    check(STATE.exists(), "the state stays")
    equal(script("postinstall").returncode, 0, "the exit of what comes after")
    check(mac.now()["loaded"], "the new one goes on")


def the_scripts_can_be_repeated(mac):
    install(mac)
    for name in ["postinstall", "preinstall", "preinstall", "postinstall"]:
        equal(script(name).returncode, 0, f"the exit of {name}")
    check(mac.now()["loaded"], "the daemon runs")


def a_service_that_was_switched_off_is_switched_on(mac):
    mac.change(disabled=True)
    install(mac)
    check(mac.now()["loaded"], "the daemon runs")


def another_volume_gets_files_and_no_daemon(mac):
    volume = "/tmp/some where/Other Disk"
    copy_files(volume)
    for name in ["preinstall", "postinstall"]:
        equal(script(name, volume).returncode, 0, f"the exit of {name}")
    equal([line for line in lines_of(mac) if line.startswith("launchctl")], [], "what runs")


def a_daemon_that_does_not_end_stops_the_installation(mac):
    install(mac)
    mac.change(faults={"launchctl bootout": "refuses"})
    result = script("preinstall")
    equal(result.returncode, 1, "the exit")
    contains(result.stderr, f"launchctl kill KILL system/{LABEL}", "what to do")


def a_daemon_that_cannot_be_started_fails_the_installation(mac):
    for changes, words in [({"faults": {"launchctl bootstrap": "refuses"}}, "Login Items"),
                           ({"faults": {"launchctl enable": "refuses"}}, "launchctl enable"),
                           ({"faults": {}, "state": "not running"}, "/Library/Logs/nodod.log")]:
        install(mac)
        script("preinstall")
        mac.change(**changes)
        result = script("postinstall")
        equal(result.returncode, 1, f"the exit with {changes}")
        contains(result.stderr, words, "what to do")
        contains(result.stderr, "nothing keeps this Mac awake", "what that means")
        mac.change(faults={}, state="running", loaded=False)


# ---- removing


def a_removal_leaves_nothing(mac):
    install_and_use(mac)
    expect_nothing_left(uninstall())
    check(not mac.now()["loaded"] and not mac.sleep_is_disabled(), "neither daemon nor lock")
    equal(mac.now()["receipts"], [], "the receipts")


def a_removal_looks_at_hooks_then_the_daemon_then_the_kernel(mac):
    install_and_use(mac)
    uninstall()
    equal(lines_of(mac),
          ["dscl . -list /Users NFSHomeDirectory", f"launchctl print system/{LABEL}",
           f"launchctl bootout system/{LABEL}", f"launchctl print system/{LABEL}", BY_LID,
           f"pkgutil --pkg-info {RECEIPT}", f"pkgutil --forget {RECEIPT}"], "what runs")


def a_state_can_be_kept(mac):
    install_and_use(mac)
    expect_nothing_left(uninstall("--keep-state"), str(STATE))


def a_dry_run_tells_everything_and_does_nothing(mac):
    install_and_use(mac)
    give_hooks(mac)
    before = installed_files()
    result = uninstall("--dry-run")
    equal((result.returncode, installed_files()), (0, before), "exit and files")
    for line in [f"launchctl bootout system/{LABEL}", SWITCH_OFF, f"pkgutil --forget {RECEIPT}",
                 f"rm -rf {STATE.parent}", f"rm -rf {UNINSTALL}"]:
        contains(result.stdout, f"would run: {line}\n", "what it tells")
    contains(result.stderr, "nodoctl hooks uninstall", "the reminder")
    check(mac.now()["loaded"] and mac.sleep_is_disabled(), "daemon and lock are as they were")


def nothing_goes_before_the_hooks_unless_one_insists(mac):
    install_and_use(mac)
    settings = give_hooks(mac)
    result = uninstall()
    expect_nothing_removed(mac, result, "  /Users/Ada Lovelace\n")
    contains(result.stderr, "nodoctl hooks uninstall", "what to do")
    check(mac.now()["loaded"], "the daemon still runs")
    text = settings.read_text("utf-8")
    expect_nothing_left(uninstall("--yes"), str(settings))
    equal(settings.read_text("utf-8"), text, "what is not root's")


def hooks_that_cannot_be_looked_for_are_told_of(mac):
    install_and_use(mac)
    mac.change(faults={"dscl": "refuses"})
    expect_nothing_removed(mac, uninstall(), "cannot be told")
    expect_nothing_left(uninstall("--yes"))


def every_agent_is_looked_at(_mac):
    agents = (PROJECT / "NODOCore/hooks/Agents.cpp").read_text("utf-8")
    configurations = re.findall(r'\.configurationFile = "(.*)"', agents)
    check(len(configurations) >= 4, "the table of agents is found")
    text = (PROJECT / "packaging/macos/nodo-uninstall").read_text("utf-8")
    for file in configurations:
        contains(text, f" {file}", "where hooks are looked for")


# ---- the lock


def a_lock_that_the_daemon_leaves_is_switched_off(mac):
    install_and_use(mac)
    mac.change(leavesLock=True, powerdDelay=0.3)
    expect_nothing_left(uninstall())
    check(not mac.sleep_is_disabled(), "the lock is off")
    equal(len(mac.runs(SWITCH_OFF)), 1, "times that it was switched off")


def a_mark_without_a_lock_switches_the_setting_off(mac):
    """Powerd may be about to apply what was set."""
    install_and_use(mac)
    mac.change(leavesLock=True, kernel=False)
    expect_nothing_left(uninstall())
    equal(mac.now()["preference"], False, "what the next start of the Mac will apply")


def a_lock_that_stays_on_is_told_of_loudly_and_nothing_is_removed(mac):
    for fault in ["lies", "refuses"]:
        mac.change(faults={})
        if not mac.now()["loaded"]:
            install_and_use(mac)
        mac.change(leavesLock=True, faults={SWITCH_OFF: fault})
        expect_nothing_removed(mac, uninstall(), "THIS MAC MAY STILL BE KEPT FROM SLEEPING")
        check(MARK.exists() and mac.now()["loaded"], "the daemon goes on, and knows of its lock")


def a_pmset_that_hangs_is_not_waited_for_without_end(mac):
    install_and_use(mac)
    mac.change(leavesLock=True, faults={SWITCH_OFF: "hangs"})
    expect_nothing_removed(mac, uninstall(), "THIS MAC MAY STILL BE KEPT FROM SLEEPING")


def a_kernel_that_does_not_say_counts_as_a_lock(mac):
    install_and_use(mac)
    mac.change(faults={"ioreg": "refuses"})
    expect_nothing_removed(mac, uninstall(), "THIS MAC MAY STILL BE KEPT FROM SLEEPING")


def a_mac_without_a_lid_is_asked_by_its_class(mac):
    install_and_use(mac)
    mac.change(lidClosed=None)
    expect_nothing_left(uninstall())
    equal(len(mac.runs(BY_CLASS)), 1, "looks at the class")


# ---- what goes wrong


def a_daemon_that_does_not_end_stops_the_removal(mac):
    install_and_use(mac)
    mac.change(faults={"launchctl bootout": "refuses"})
    expect_nothing_removed(mac, uninstall(), f"launchctl kill KILL system/{LABEL}")


def a_daemon_that_launchd_does_not_know_stops_the_removal(mac):
    install_and_use(mac)
    program = "/tmp/some where/nodod"
    run("cp", "/real/sleep", program)
    with subprocess.Popen([program, "60"]) as daemon:
        expect_nothing_removed(mac, uninstall(), f"sudo kill {daemon.pid}'")
        daemon.kill()
    expect_nothing_left(uninstall())


def what_cannot_be_removed_is_named_and_can_be_tried_again(mac):
    install_and_use(mac)
    schemas = "/usr/local/share/nodo"
    subprocess.run(["mount", "--bind", schemas, schemas], check=True)
    result = uninstall()
    subprocess.run(["umount", schemas], check=True)
    equal(result.returncode, 1, "the exit")
    contains(result.stderr, f"cannot remove {schemas}", "the reason")
    expect_nothing_left(uninstall())


def a_receipt_that_stays_is_told_of_and_can_be_tried_again(mac):
    install_and_use(mac)
    mac.change(faults={"pkgutil --forget": "refuses"})
    result = uninstall()
    equal((result.returncode, installed_files()), (1, [UNINSTALL]), "exit and what is left")
    contains(result.stderr, RECEIPT, "the reason")
    mac.change(faults={})
    expect_nothing_left(uninstall())


def a_tool_of_homebrew_in_the_same_place_stays(mac):
    install_and_use(mac)
    tool = pathlib.Path("/usr/local/bin/nodoctl")
    tool.unlink()
    tool.symlink_to("../Cellar/nodo/0.1.0/bin/nodoctl")
    result = uninstall()
    expect_nothing_left(result, str(tool))
    contains(result.stderr, "Cellar", "where it leads")


def a_wrong_use_is_told(mac):
    install_and_use(mac)
    result = uninstall("--everything")
    equal(result.returncode, 2, "the exit")
    contains(result.stderr, "nodo-uninstall --help", "the hint")
    equal(uninstall("--help").returncode, 0, "the exit of the help")


main([an_installation_runs_the_daemon_as_roots_own, files_that_others_could_write_become_roots_own,
      an_upgrade_ends_the_daemon_and_keeps_state_and_timer, the_scripts_can_be_repeated,
      a_service_that_was_switched_off_is_switched_on, another_volume_gets_files_and_no_daemon,
      a_daemon_that_does_not_end_stops_the_installation,
      a_daemon_that_cannot_be_started_fails_the_installation, a_removal_leaves_nothing,
      a_removal_looks_at_hooks_then_the_daemon_then_the_kernel, a_state_can_be_kept,
      a_dry_run_tells_everything_and_does_nothing,
      nothing_goes_before_the_hooks_unless_one_insists,
      hooks_that_cannot_be_looked_for_are_told_of, every_agent_is_looked_at,
      a_lock_that_the_daemon_leaves_is_switched_off, a_mark_without_a_lock_switches_the_setting_off,
      a_lock_that_stays_on_is_told_of_loudly_and_nothing_is_removed,
      a_pmset_that_hangs_is_not_waited_for_without_end, a_kernel_that_does_not_say_counts_as_a_lock,
      a_mac_without_a_lid_is_asked_by_its_class, a_daemon_that_does_not_end_stops_the_removal,
      a_daemon_that_launchd_does_not_know_stops_the_removal,
      what_cannot_be_removed_is_named_and_can_be_tried_again,
      a_receipt_that_stays_is_told_of_and_can_be_tried_again,
      a_tool_of_homebrew_in_the_same_place_stays, a_wrong_use_is_told])
