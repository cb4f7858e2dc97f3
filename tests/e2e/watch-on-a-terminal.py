#!/usr/bin/python3 -B
"""'nodoctl watch' on a real terminal: it draws in place, gives the terminal back whatever ends it,
shows at once what others do, asks nothing while nothing changes, and costs next to nothing.

usage: watch-on-a-terminal.py NODOCTL NODOD
"""

import json
import os
import pathlib
import select
import signal
import statistics
import time

from tool_world import Terminal, main
from expectations import check, equal, wait_until
from processes import settled_switches, switches

BEGIN = b"\x1b[?1049h\x1b[?25l\x1b[?7l"
END = b"\x1b[?7h\x1b[?25h\x1b[?1049l"
MOST_LATENESS = 0.2  # seconds between a change and its showing, on a machine that is not busy
QUIET = 7  # seconds: longer than it waits where nobody tells it of changes
MOST_OF_A_CORE = 0.01
MEASURED = 5  # seconds


def watch(world, *arguments, **options):
    terminal = Terminal(world.environment, [world.nodoctl, "watch", *arguments], **options)
    terminal.expect(b"Ctrl-C ends.")
    return terminal


def an_interrupt_ends_it_well(world):
    world.start_daemon()
    terminal = watch(world)
    check(not terminal.echoes(), "what is typed does not show up")
    terminal.press(b"\x03")
    equal(terminal.finish(), 0, "the exit status")
    check(terminal.output.startswith(BEGIN), terminal.output)
    check(terminal.output.endswith(END), terminal.output)
    equal(terminal.output.count(b"\x1b[2J"), 0, "screens that were cleared")


def a_key_ends_it_well(world):
    world.start_daemon()
    terminal = watch(world)
    terminal.press(b"xq")
    equal(terminal.finish(), 0, "the exit status")
    check(terminal.output.endswith(END), terminal.output)
    check(b"xq" not in terminal.output, "what is typed does not show up")


def other_signals_end_it_as_signals_do(world):
    world.start_daemon()
    for number in [signal.SIGTERM, signal.SIGHUP]:
        terminal = watch(world)
        os.kill(terminal.pid, number)
        equal(terminal.finish(), -number, "the exit status")
        check(terminal.output.endswith(END), terminal.output)


def a_shell_stops_and_continues_it(world):
    world.start_daemon()
    world.environment["PS1"] = "prompt> "
    shell = Terminal(world.environment, ["bash", "--norc", "--noprofile", "--noediting", "-i"])
    shell.expect(b"prompt>")
    shell.press(f"{world.nodoctl} watch\n".encode())
    shell.expect(b"Ctrl-C ends.")
    shell.press(b"\x1a")
    shell.expect(b"Stopped")
    check(shell.output.rindex(END) < shell.output.index(b"Stopped"), shell.output)
    check(shell.echoes(), "what is typed shows up")
    shell.press(b"fg\n")
    shell.expect(BEGIN, count=2)
    shell.expect(b"Ctrl-C ends.", count=2)
    shell.press(b"\x03")
    shell.expect(END, count=2)
    shell.press(b"exit\n")
    shell.finish()


def it_fits_a_narrow_window_and_follows_it(world):
    world.start_daemon()
    world.environment["NO_COLOR"] = "1"
    terminal = watch(world, columns=40, rows=12)
    for line in frame_of(terminal):
        check(len(line) <= 40, f"too long: {line!r}")
    terminal.output = b""
    terminal.resize(20, 5)
    terminal.expect(b"\x1b[J")
    lines = frame_of(terminal)
    equal(len(lines), 5, "lines on a small terminal")
    for line in lines:
        check(len(line) <= 20, f"too long: {line!r}")
    terminal.press(b"\x03")
    equal(terminal.finish(), 0, "the exit status")
    check(b"\x1b[3" not in terminal.output, "there is no colour")


def frame_of(terminal):
    """The lines of the last frame."""
    frame = terminal.output.rpartition(b"\x1b[H")[2]
    for control in [b"\x1b[K", b"\x1b[J", b"\r"]:
        frame = frame.replace(control, b"")
    return frame.decode().split("\n")


def without_utf8_it_is_ascii(world):
    world.start_daemon()
    world.environment["LANG"] = "C"
    terminal = watch(world)
    terminal.press(b"\x03")
    equal(terminal.finish(), 0, "the exit status")
    check(terminal.output.isascii(), terminal.output)


def a_frame_replaces_the_one_before(world):
    world.start_daemon()
    terminal = watch(world, columns=140)
    for minutes in range(5, 65, 10):
        terminal.output = b""
        world.run("manual", "--minutes", str(minutes))
        terminal.expect(f"({minutes} min left)".encode())
        terminal.expect(b"\x1b[J")
        check(terminal.output.startswith(b"\x1b[H"), terminal.output)
        equal(terminal.output.count(b"\x1b[H"), 1, "frames for one change")
    terminal.press(b"\x03")
    terminal.finish()


def a_change_shows_at_once(world):
    world.start_daemon()
    terminal = watch(world)
    lateness = []
    for change, shown in [
        (["manual", "--minutes", "30", "--requester", "Somebody"], b"Somebody"),
        (["stop"], b"Not kept awake"),
    ] * 3:
        terminal.output = b""
        world.run(*change)
        begin = time.monotonic()
        terminal.expect(shown)
        lateness.append(time.monotonic() - begin)
    print(f"a change showed after {min(lateness):.2f} to {max(lateness):.2f} s")
    check(statistics.median(lateness) < MOST_LATENESS, f"changes showed after {lateness} s")
    terminal.press(b"\x03")
    terminal.finish()


def the_end_and_the_return_of_the_daemon_show_at_once(world):
    daemon = world.start_daemon()
    terminal = watch(world)
    terminal.output = b""
    daemon.kill()
    begin = time.monotonic()
    terminal.expect(b"helper unavailable")
    print(f"a daemon that went showed after {time.monotonic() - begin:.2f} s")
    terminal.output = b""
    world.start_daemon()
    terminal.expect(b"Ctrl-C ends.")
    check(b"helper unavailable" not in terminal.output, terminal.output)
    terminal.press(b"\x03")
    terminal.finish()


def while_nothing_changes_nothing_is_asked(world):
    daemon = world.start_daemon()
    world.run("manual", "--minutes", "30")
    calls = pathlib.Path(world.folder, "calls")
    with calls.open("wb") as output:
        world.start(["busctl", f"--address={world.address}", "monitor", "--json=short",
                     "com.quintavel.nodo.helper"], stdout=output)

    def requests():
        return calls.read_text(encoding="utf-8").count('"member":"Status"')

    def is_listening():
        world.run("status")
        return requests() > 0

    wait_until(is_listening, "the monitor sees requests")
    terminal = watch(world)
    awakened = settled_switches(daemon.pid)
    before = requests()
    time.sleep(QUIET)  # a measurement of quiet takes its time
    equal(requests() - before, 0, f"requests in {QUIET} s")
    equal(switches(daemon.pid) - awakened, 0, f"the daemon's wake-ups in {QUIET} s")
    terminal.output = b""
    world.run("stop")
    terminal.expect(b"Not kept awake")
    wait_until(lambda: requests() == before + 1, "one question for one change")
    terminal.press(b"\x03")
    terminal.finish()


def it_costs_next_to_nothing(world):
    """Its start and end included, as only a process that has ended tells of its threads to the
    microsecond."""
    world.start_daemon()
    terminal = watch(world)
    end = time.monotonic() + MEASURED
    while time.monotonic() < end:
        terminal.read(end - time.monotonic())
    terminal.press(b"\x03")
    terminal.finish()
    share = (terminal.usage.ru_utime + terminal.usage.ru_stime) / MEASURED
    print(f"watch takes {share:.2%} of a core")
    # A sanitizer's own work would be what is seen.
    if "NODO_E2E_SANITIZED" not in os.environ:
        check(share < MOST_OF_A_CORE, f"watch takes {share:.2%} of a core")


def in_a_pipe_a_line_for_each_change(world):
    world.start_daemon()
    for arguments in [[], ["--json"]]:
        output, end = os.pipe()
        tool = world.start([world.nodoctl, "watch", *arguments], stdout=end)
        os.close(end)
        with os.fdopen(output, encoding="utf-8") as lines:
            first = lines.readline()
            world.run("manual", "--minutes", "30", "--requester", "Somebody")
            second = lines.readline()
            check("Somebody" not in first and "Somebody" in second, f"{first!r} {second!r}")
            if arguments:
                equal(json.loads(second)["requester"], "Somebody", "the document")
            check(not select.select([lines], [], [], 1.2)[0], "nothing comes without a change")
            tool.send_signal(signal.SIGINT)
            equal(tool.wait(), 0, "the exit status")
            equal(lines.read(), "", "what comes at the end")
        world.run("manual", "--minutes", "1", "--requester", "Another")
        world.run("stop")


def a_reader_that_went_away_ends_it(world):
    world.start_daemon()
    output, end = os.pipe()
    tool = world.start([world.nodoctl, "watch"], stdout=end)
    os.close(end)
    os.read(output, 65536)
    os.close(output)
    wait_until(lambda: tool.poll() is not None, "watch ends though nothing changes")
    equal(tool.returncode, 0, "the exit status")


main(
    an_interrupt_ends_it_well,
    a_key_ends_it_well,
    other_signals_end_it_as_signals_do,
    a_shell_stops_and_continues_it,
    it_fits_a_narrow_window_and_follows_it,
    without_utf8_it_is_ascii,
    a_frame_replaces_the_one_before,
    a_change_shows_at_once,
    the_end_and_the_return_of_the_daemon_show_at_once,
    while_nothing_changes_nothing_is_asked,
    it_costs_next_to_nothing,
    in_a_pipe_a_line_for_each_change,
    a_reader_that_went_away_ends_it,
)
