#!/usr/bin/python3 -B
"""'nodoctl run' passes on what a terminal and other processes do, each of it once, and never leaves
its command behind.

usage: run-on-a-terminal.py NODOCTL NODOD
       run-on-a-terminal.py --tell         as the command says which signals come
"""

import functools
import os
import select
import shlex
import signal
import sys

from tool_world import Terminal, main
from expectations import check, equal, wait_until


def tell_signals():
    """Leaves with status 9 on "q". Told by a pipe, as Python puts off its own handlers until a read
    has ended when a signal comes right before it."""
    come, wake = os.pipe()
    os.set_blocking(wake, False)
    signal.set_wakeup_fd(wake)
    for name in ["SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT", "SIGWINCH", "SIGCONT", "SIGUSR1"]:
        signal.signal(getattr(signal, name), lambda number, frame: None)
    os.write(1, b"<ready %d>" % os.getpid())
    while True:
        for source in select.select([come, 0], [], [])[0]:
            data = os.read(source, 1024)
            if source == come:
                for number in data:
                    os.write(1, b"<" + signal.Signals(number).name.encode() + b">")
            elif data in [b"q\n", b""]:
                sys.exit(9 if data else 8)


def telling(world):
    return [world.nodoctl, "run", "--", __file__, "--tell"]


def keys_reach_the_command_once(world):
    world.start_daemon()
    terminal = Terminal(world.environment, telling(world))
    terminal.expect(b"<ready")
    terminal.press(b"\x03")
    terminal.expect(b"<SIGINT>")
    terminal.press(b"\x1c")
    terminal.expect(b"<SIGQUIT>")
    terminal.resize(40, 10)
    terminal.expect(b"<SIGWINCH>")
    # Passed on in the order of their coming, so whatever was passed on is there before this one.
    os.kill(terminal.pid, signal.SIGUSR1)
    terminal.expect(b"<SIGUSR1>")
    terminal.press(b"q\n")
    equal(terminal.finish(), 9, "the exit status")
    for name in [b"INT", b"QUIT", b"WINCH", b"USR1"]:
        equal(terminal.output.count(b"<SIG" + name + b">"), 1, f"signals {name}")


def signals_of_others_are_passed_on(world):
    world.start_daemon()
    terminal = Terminal(world.environment, telling(world))
    terminal.expect(b"<ready")
    for name in ["SIGINT", "SIGTERM", "SIGHUP", "SIGWINCH"]:
        os.kill(terminal.pid, getattr(signal, name))
        terminal.expect(f"<{name}>".encode())
    terminal.press(b"q\n")
    equal(terminal.finish(), 9, "the exit status")


def a_stop_by_another_process_stops_both(world):
    world.start_daemon()
    output, end = os.pipe()
    os.mkfifo(f"{world.folder}/input")
    # In a group of its own, as shells start it; in one without a shell nothing can be stopped.
    tool = world.start(
        ["sh", "-c", 'exec "$@" <> "$0"', f"{world.folder}/input", *telling(world)],
        stdout=end,
        process_group=0,
    )
    said = os.read(output, 4096)
    child = int(said.split(b"<ready ")[1].split(b">")[0])
    for _ in range(20):
        tool.send_signal(signal.SIGTSTP)
        wait_until(lambda: state_of(child) == "T" and state_of(tool.pid) == "T", "both stop")
        tool.send_signal(signal.SIGCONT)
        equal(os.read(output, 4096), b"<SIGCONT>", "what the command hears")
        wait_until(lambda: state_of(tool.pid) != "T", "the tool goes on")


def a_shell_stops_and_continues_both(world):
    world.start_daemon()
    world.environment["PS1"] = "prompt> "
    shell = Terminal(world.environment, ["bash", "--norc", "--noprofile", "--noediting", "-i"])
    shell.expect(b"prompt>")
    shell.press(f"{shlex.join(telling(world))}; echo status=$?\n".encode())
    shell.expect(b"<ready")
    child = int(shell.output.split(b"<ready ")[1].split(b">")[0])
    for stop in range(1, 21):
        shell.press(b"\x1a")
        shell.expect(b"Stopped", count=stop)
        wait_until(lambda: state_of(child) == "T", "the command stops")
        shell.press(b"fg\n")
        shell.expect(b"<SIGCONT>", count=stop)
        wait_until(lambda: state_of(child) != "T", "the command goes on")
    shell.press(b"q\n")
    shell.press(b"echo status=$?\n")
    shell.expect(b"status=9")
    shell.press(b"exit\n")
    shell.finish()


def state_of(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
        return file.read().rpartition(") ")[2].split()[0]


def has_ended(pid):
    try:
        return state_of(pid) == "Z"
    except FileNotFoundError:
        return True


def the_command_never_outlives_the_tool(world):
    world.start_daemon()
    for deaf in ["", "trap '' TERM INT HUP; "]:
        gate = f"{world.folder}/gate"
        script = f"{deaf}echo $$ > {world.folder}/pid; while :; do read -r line < {gate}; done"
        if not os.path.exists(gate):
            os.mkfifo(gate)
        tool = world.start([world.nodoctl, "run", "--", "sh", "-c", script])
        command = wait_until(lambda: read_pid(world), "the command runs")
        check(not has_ended(command), "the command lives")
        tool.kill()
        tool.wait()
        wait_until(functools.partial(has_ended, command), "the command has ended")
        os.unlink(f"{world.folder}/pid")


def read_pid(world):
    try:
        with open(f"{world.folder}/pid", encoding="utf-8") as file:
            return int(file.read())
    except (FileNotFoundError, ValueError):
        return None


def streams_are_the_commands_own(world):
    world.start_daemon()
    done = world.run("run", "--", "sh", "-c", "cat; echo oops >&2", stdin=None, input="in\n")
    equal((done.returncode, done.stdout, done.stderr), (0, "in\n", "oops\n"), "the outcome")


def without_a_daemon_it_warns(world):
    done = world.run("run", "--", "echo", "done")
    equal((done.returncode, done.stdout), (0, "done\n"), "the outcome")
    check(done.stderr.startswith("nodoctl: helper unavailable ("), done.stderr)
    equal(done.stderr.count("\n"), 1, "the lines of the warning")


def the_timer_runs_in_the_commands_name(world):
    world.start_daemon()
    done = world.run("run", "--keep", "--minutes", "7", "--", "true")
    equal(done.returncode, 0, "the exit status")
    status = world.status()
    equal(status["state"]["lastRequester"]["name"], "true", "the requester")
    check(400 < status["manualRemainingSeconds"] <= 420, f"the timer: {status}")


def timer(world):
    """What is left of it in seconds, and who asked last."""
    status = world.status()
    return (status.get("manualRemainingSeconds", 0),
            status["state"].get("lastRequester", {}).get("name"))


def is_taken(world, minutes):
    return timer(world)[0] > (minutes - 1) * 60


def afterwards_the_timer_is_what_it_was(world):
    world.start_daemon()
    equal(world.run("run", "--", "true").returncode, 0, "the exit status")
    equal(timer(world)[0], 0, "the timer that was off")
    world.run("manual", "--minutes", "5", "--requester", "Codex")
    equal(world.run("run", "--minutes", "90", "--", "false").returncode, 1, "the exit status")
    left, requester = timer(world)
    check(270 < left <= 300 and requester == "Codex", f"an earlier timer: {left}, {requester}")


def a_signal_to_the_tool_gives_back_as_well(world):
    world.start_daemon()
    tool = world.start([world.nodoctl, "run", "--", "sleep", "1000"])
    wait_until(lambda: is_taken(world, 20), "the timer is set")
    wait_until(lambda: command_of(tool.pid) is not None, "the command runs")
    tool.terminate()
    equal(tool.wait(), 128 + signal.SIGTERM, "the exit status")
    equal(timer(world)[0], 0, "the timer")


def command_of(tool):
    """The process that the tool runs."""
    with open(f"/proc/{tool}/task/{tool}/children", encoding="utf-8") as children:
        for child in children.read().split():
            with open(f"/proc/{child}/comm", encoding="utf-8") as name:
                if name.read() != "nodoctl\n":
                    return int(child)
    return None


def of_two_at_once_the_last_gives_back(world):
    world.start_daemon()
    tools = []
    for minutes in [5, 90]:
        os.mkfifo(f"{world.folder}/gate-{minutes}")
        tools.append(world.start([world.nodoctl, "run", "--minutes", str(minutes), "--", "sh", "-c",
                                  f"read line < {world.folder}/gate-{minutes}"]))
        wait_until(functools.partial(is_taken, world, minutes), "the timer is set")
    for tool, minutes in zip(tools, [5, 90]):
        before = timer(world)
        with open(f"{world.folder}/gate-{minutes}", "w", encoding="utf-8") as gate:
            gate.write("\n")
        equal(tool.wait(), 0, "the exit status")
        if minutes == 5:
            check(timer(world)[0] > before[0] - 60, "the first leaves the other's timer")
        else:
            check(0 < timer(world)[0] <= 300, f"the last gives back: {timer(world)}")


def a_process_is_waited_for(world):
    world.start_daemon()
    process = world.start(["sleep", "1000"])
    tool = world.start([world.nodoctl, "run", "--pid", str(process.pid)])
    wait_until(lambda: is_taken(world, 20), "the timer is set")
    equal(timer(world)[1], f"process {process.pid}", "the requester")
    check(tool.poll() is None, "it waits")
    process.kill()
    equal(tool.wait(), 0, "the exit status")
    equal(timer(world)[0], 0, "the timer")


def a_signal_ends_the_waiting_alone(world):
    world.start_daemon()
    process = world.start(["sleep", "1000"])
    for number in [signal.SIGINT, signal.SIGTERM]:
        tool = world.start([world.nodoctl, "run", "--pid", str(process.pid)])
        wait_until(lambda: is_taken(world, 20), "the timer is set")
        tool.send_signal(number)
        equal(tool.wait(), -number, "the exit status")
        equal(timer(world)[0], 0, "the timer")
    check(process.poll() is None, "the process runs on")


if sys.argv[1:] == ["--tell"]:
    tell_signals()
main(
    keys_reach_the_command_once,
    signals_of_others_are_passed_on,
    a_stop_by_another_process_stops_both,
    a_shell_stops_and_continues_both,
    the_command_never_outlives_the_tool,
    streams_are_the_commands_own,
    without_a_daemon_it_warns,
    the_timer_runs_in_the_commands_name,
    afterwards_the_timer_is_what_it_was,
    a_signal_to_the_tool_gives_back_as_well,
    of_two_at_once_the_last_gives_back,
    a_process_is_waited_for,
    a_signal_ends_the_waiting_alone,
)
