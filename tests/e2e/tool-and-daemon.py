#!/usr/bin/python3 -B
"""The tool and the daemon, whatever the daemon does: answers, is not there, hangs, dies, refuses.

usage: tool-and-daemon.py NODOCTL NODOD
"""

import datetime
import fcntl
import importlib.util
import json
import math
import os
import pathlib
import shutil
import signal
import subprocess
import threading
import time
import zoneinfo

from tool_world import PATIENCE, main
from expectations import check, contains, equal, wait_until
from processes import Driven, start

HOOK_SECONDS = 5  # after which agents end a hook, which runs two commands
# What is waited for more than once, or not at all, shows with a limit beside which a slow machine
# is quick.
LONG_LIMIT = 20
SOME_LIMIT = 4

MANUAL = ["manual", "--minutes", "20", "--extend-only", "--requester", "Codex", "--json"]


def seconds_of(function):
    begin = time.monotonic()
    return function(), time.monotonic() - begin


def quickest(world, enough, *arguments):
    """The least of several runs' seconds, as other work of the machine may hold any one up."""
    least = float("inf")
    for _ in range(5):
        least = min(least, seconds_of(lambda: world.run(*arguments))[1])
        if least < enough:
            break
    return least


def the_daemon_keeps_the_state(world):
    world.start_daemon()
    done = world.run(*MANUAL)
    equal((done.returncode, done.stderr), (0, ""), "the outcome")
    equal(json.loads(done.stdout)["state"]["lastRequester"]["name"], "Codex", "the requester")
    check(world.status()["manualRemainingSeconds"] > 1190, "the timer runs")
    check(not os.path.exists(f"{world.folder}/.nodo"), "there is no state of the tool's own")
    for command in [["repair"], ["reconcile"], ["stop"]]:
        done = world.run(*command)
        equal((done.returncode, done.stderr), (0, ""), f"the outcome of {command}")
    check("manualRemainingSeconds" not in world.status(), "the timer is off")


def without_a_daemon_the_own_state_serves(world):
    limit = ["--helper-timeout", str(LONG_LIMIT)]
    done, seconds = seconds_of(lambda: world.run(*MANUAL, *limit))
    equal(done.returncode, 0, "the exit status")
    reason = "nodoctl: helper unavailable (the daemon nodod is not running"
    check(done.stderr.startswith(reason), done.stderr)
    check(done.stderr.endswith("); using the local state\n"), done.stderr)
    check(json.loads(done.stdout)["manualRemainingSeconds"] > 1190, "the timer runs")
    check(seconds < LONG_LIMIT / 2, f"it took {seconds} s")
    doctor = world.run("doctor")
    equal(doctor.returncode, 1, "the exit status")
    check("\nStatus source: local fallback\n" in doctor.stdout, doctor.stdout)


def changes_of_the_own_state_lose_nothing_of_each_other(world):
    names = ["Person", "Claude Code", "Codex", "Pi"]
    for _ in range(30):
        shutil.rmtree(f"{world.folder}/.nodo", ignore_errors=True)
        at_once = [
            start(world.nodoctl, "manual", "--requester", name,
                  *(["--minutes", "60"] if name == "Person" else ["--minutes=20", "--extend-only"]),
                  env=world.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            for name in names
        ]
        equal([process.wait(PATIENCE) for process in at_once], [0] * len(names), "the outcomes")
        status = world.status()
        check(status["manualRemainingSeconds"] > 3500, "the hour is kept")
        equal(sorted(each["name"] for each in status["state"]["triggerHistory"]), sorted(names),
              "the history")


def a_change_waits_for_another_a_second_at_most(world):
    equal(world.run("stop").returncode, 0, "the exit status")
    state = f"{world.folder}/.nodo/state.json"
    before = pathlib.Path(state).read_bytes()
    with open(f"{world.folder}/.nodo/nodoctl.lock", "rb") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        done = world.run(*MANUAL)
        equal((done.returncode, done.stdout), (1, ""), "the outcome")
        contains(done.stderr, "another nodoctl has been changing the state in", "what is said")
        equal(pathlib.Path(state).read_bytes(), before, "the state")
        equal(world.run("status").returncode, 0, "who only looks")
    equal(world.run(*MANUAL).returncode, 0, "the exit status later")


def hooks_of(world):
    """Installs hooks, and gives what runs one and tells whether a timer runs then."""
    equal(world.run("hooks", "install", "codex", "--nodoctl", world.nodoctl).returncode, 0,
          "the installation")

    def has_asked():
        subprocess.run([f"{world.folder}/.nodo/nodo-agent-hook.sh"], check=True,
                       env={**world.environment, "NODO_HOOK_AGENT": "codex"},
                       stdin=subprocess.DEVNULL, timeout=PATIENCE)
        return "manualRemainingSeconds" in world.status()

    return has_asked


def a_pause_keeps_hooks_from_asking(world):
    world.start_daemon()
    has_asked = hooks_of(world)
    check(has_asked(), "a hook asks")
    equal(world.run("pause", "30m").returncode, 0, "the exit status")
    check("manualRemainingSeconds" not in world.status(), "the timer has ended")
    check(not has_asked(), "hooks are paused")
    contains(world.run("status").stderr, "hooks are paused until ", "what is said")
    equal(world.run("resume").returncode, 0, "the exit status")
    check(has_asked(), "a hook asks again")


def a_stop_keeps_hooks_from_asking_for_two_minutes(world):
    world.start_daemon()
    has_asked = hooks_of(world)
    check(has_asked(), "a hook asks")
    done = world.run("off")
    equal((done.returncode, done.stderr), (0, ""), "the outcome")
    check(done.stdout.endswith("\nHooks of your agents may start it again in 2 minutes; "
                               "'nodoctl pause' keeps them quiet for longer.\n"), done.stdout)
    check(not has_asked(), "hooks wait")
    equal(world.run("on", "30m", "--json").returncode, 0, "the exit status")
    equal(world.run("stop", "--json").stderr, "", "what is said")
    check(not has_asked(), "hooks wait")
    stamp = pathlib.Path(world.folder, ".nodo/last-extend.stamp")
    stamp.write_text(f"{int(stamp.read_text(encoding='ascii')) - 120}\n", encoding="ascii")
    check(has_asked(), "a hook asks again")
    equal(world.run("pause", "30m").returncode, 0, "the exit status")
    paused = stamp.read_bytes()
    contains(world.run("stop").stdout, "Hooks of your agents are paused until ", "what is said")
    equal(stamp.read_bytes(), paused, "the pause")


def a_stop_tells_what_it_could_not_do(world):
    """The stamp is a folder, as root may write where nobody else may."""
    world.start_daemon()
    hooks_of(world)
    os.mkdir(f"{world.folder}/.nodo/last-extend.stamp")
    done = world.run("stop")
    equal(done.returncode, 0, "the exit status")
    contains(done.stderr, "nodoctl: hooks of your agents may start it again at once",
             "what is said")


def times_are_taken_as_people_write_them(world):
    world.start_daemon()
    world.environment["TZ"] = "Europe/Berlin"

    def minutes_left(*command):
        equal(world.run(*command, "--json").returncode, 0, f"the exit status of {command}")
        return math.ceil(world.status()["manualRemainingSeconds"] / 60)

    equal(minutes_left("manual", "1h30m"), 90, "what is left")
    equal(minutes_left("on", "45", "--extend-only"), 90, "what is left")
    equal(minutes_left("on"), 60, "what is left")
    equal(minutes_left("manual", "--minutes", "2h"), 120, "what is left")
    berlin = zoneinfo.ZoneInfo("Europe/Berlin")
    clock = datetime.datetime.now(berlin) + datetime.timedelta(minutes=100)
    left = minutes_left("on", "--until", clock.strftime("%H:%M"))
    check(98 <= left <= 100, f"{left} minutes are left")
    for command in [("manual",), ("on", "0"), ("on", "1x"), ("on", "--until", "24:00"),
                    ("on", "30", "--until", "17:30"), ("manual", "13h")]:
        done = world.run(*command)
        equal((done.returncode, done.stdout), (2, ""), f"the outcome of {command}")
    check(97 <= minutes_left("status") <= 100, "nothing has changed")


def hook_takes(world, what_hangs, *options):
    """The seconds of the two commands that a hook runs, with something that hangs."""
    manual, first = seconds_of(lambda: world.run(*MANUAL, *options))
    doctor, second = seconds_of(lambda: world.run("doctor", *options))
    said = " ".join(["with", what_hangs, "that hangs", *options])
    print(f"{said}: manual took {first:.2f} s and doctor {second:.2f} s")
    for done, status in [(manual, 0), (doctor, 1)]:
        equal(done.returncode, status, "the exit status")
        check("helper unavailable (Helper request timed out)" in done.stderr, done.stderr)
    if not options:
        check(first + second < HOOK_SECONDS, "a hook is over before it is ended")
    return first, second


def a_daemon_that_hangs_costs_its_time_once(world):
    daemon = world.start_daemon()
    daemon.send_signal(signal.SIGSTOP)
    for seconds in hook_takes(world, "a daemon"):
        check(seconds >= 1, f"it took {seconds} s")
    for seconds in hook_takes(world, "a daemon", "--helper-timeout", str(SOME_LIMIT)):
        check(SOME_LIMIT <= seconds < 2 * SOME_LIMIT,
              f"with a limit of {SOME_LIMIT} s it took {seconds} s")
    quick = quickest(world, 1, "status", "--helper-timeout", "0.2")
    check(0.2 <= quick < 1, f"with a shorter limit it took {quick} s")
    daemon.send_signal(signal.SIGCONT)
    equal(world.run("status").stderr, "", "the daemon answers again")


def a_daemon_whose_answers_are_late_costs_its_time_once(world):
    """Each answer is in time, but a command that is refused asks again, in another way."""
    if importlib.util.find_spec("dbus") is None:
        print("without a daemon whose answers are late, as python3-dbus is not installed")
        return
    daemon = Driven("/usr/bin/python3", "-B", str(pathlib.Path(__file__).with_name("clients.py")),
                    str(os.getuid()), "answer_late_as_the_daemon", str(0.9 * SOME_LIMIT),
                    env=world.environment)
    daemon.expect("connected", "ready")
    done, seconds = seconds_of(lambda: world.run(*MANUAL, "--helper-timeout", str(SOME_LIMIT)))
    equal(done.returncode, 0, "the exit status")
    contains(done.stderr, "helper unavailable (Helper request timed out)", "what is said")
    check(SOME_LIMIT <= seconds < 1.5 * SOME_LIMIT,
          f"with a limit of {SOME_LIMIT} s it took {seconds} s")
    daemon.expect("EnableManualV2", "Status")


def a_bus_that_hangs_costs_little_more(world):
    """The machine's own senses ask on the same bus, for what blocks sleep and for the lid, and take
    half a second each to give up."""
    world.start_daemon()
    world.bus.process.send_signal(signal.SIGSTOP)
    hook_takes(world, "a bus")
    check(quickest(world, 2, *MANUAL) < 2, "a timer takes little more")
    check(quickest(world, 3, "doctor") < 3, "the health check takes a second more")


def a_daemon_that_dies_during_a_request_is_noticed_at_once(world):
    daemon = world.start_daemon()
    daemon.send_signal(signal.SIGSTOP)
    outcome = []
    asking = threading.Thread(
        target=lambda: outcome.append(
            seconds_of(lambda: world.run("status", "--helper-timeout", "20"))
        )
    )
    asking.start()
    wait_until(lambda: asks(world), "the tool asks")
    daemon.kill()
    asking.join()
    done, seconds = outcome[0]
    equal(done.returncode, 0, "the exit status")
    check("(the daemon nodod " in done.stderr, done.stderr)
    check(seconds < 10, f"it took {seconds} s")


def asks(world):
    """Whether the tool is connected to the bus."""
    names = subprocess.run(
        ["busctl", f"--address={world.address}", "list", "--unique", "--no-legend"],
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    return any(name.split()[2] == "nodoctl" for name in names.splitlines())


def a_state_that_cannot_be_read_is_the_reason(world):
    daemon = world.start_daemon()
    world.run(*MANUAL)
    path = f"{world.folder}/daemon/state.json"
    with open(path, "w", encoding="utf-8") as state:
        state.write("[")
    done = world.run("status")
    equal(done.returncode, 0, "the exit status")
    reason = f"nodoctl: helper unavailable (the state file {path} cannot be read: "
    check(done.stderr.startswith(reason), done.stderr)
    equal(daemon.poll(), None, "the daemon lives")


def minutes_that_the_daemon_refuses_are_refused(world):
    world.start_daemon()
    done = world.run("manual", "--minutes", "721")
    equal((done.returncode, done.stdout), (2, ""), "the outcome")
    check(done.stderr.startswith("nodoctl: 721 minutes are too many, at most 720 (12 h)\n"),
          done.stderr)
    check(not os.path.exists(f"{world.folder}/.nodo/state.json"), "nothing local happens")


def a_timer_through_the_daemon_ends_a_fallback(world):
    world.start_daemon()
    with open(f"{world.folder}/hook.log", "w", encoding="utf-8") as log:
        log.write(time.strftime("%Y-%m-%d %H:%M:%S") + " fallback caffeinate started seconds=600\n")
    check("\nHook fallback: active\n" in world.run("doctor").stdout, "the fallback is active")
    equal(world.run(*MANUAL).returncode, 0, "the exit status")
    with open(f"{world.folder}/hook.log", encoding="utf-8") as log:
        check(log.read().endswith(" fallback resolved reason=helper manual\n"), "it is resolved")
    check("\nHook fallback: inactive\n" in world.run("doctor").stdout, "the fallback has ended")


main(
    the_daemon_keeps_the_state,
    without_a_daemon_the_own_state_serves,
    changes_of_the_own_state_lose_nothing_of_each_other,
    a_change_waits_for_another_a_second_at_most,
    a_pause_keeps_hooks_from_asking,
    a_stop_keeps_hooks_from_asking_for_two_minutes,
    a_stop_tells_what_it_could_not_do,
    times_are_taken_as_people_write_them,
    a_daemon_that_hangs_costs_its_time_once,
    a_daemon_whose_answers_are_late_costs_its_time_once,
    a_bus_that_hangs_costs_little_more,
    a_daemon_that_dies_during_a_request_is_noticed_at_once,
    a_state_that_cannot_be_read_is_the_reason,
    minutes_that_the_daemon_refuses_are_refused,
    a_timer_through_the_daemon_ends_a_fallback,
)
