#!/usr/bin/python3 -B
"""What one who may not change anything can do to the daemon by the mass of messages. Run by
with-logind.

usage: caller-floods.py DRIVER
"""
import os
import signal

import clients
from buses import BUS, HELPER, call, reply_of
from clients import Client, connect
from driven import end_well, start_loop
from expectations import PATIENCE, check, contains, equal, wait_until
from processes import environment, number_in

LARGE = 2 * 1024 * 1024
LARGE_ONES = 50
ROOM = 64 * 1024 * 1024  # for some of the large ones, and what a sanitizer notes about them
REFUSED = 2000
FLOOD = 100  # a bus may let each wait for 128 answers
SENDERS = 3


def send_while_it_sleeps(loop, *senders):
    """All that is sent is there before the daemon looks."""
    os.kill(loop.pid, signal.SIGSTOP)
    for one in senders:
        equal(one.ask("go"), "sent", "a flood")
    os.kill(loop.pid, signal.SIGCONT)


def memory_peak(loop):
    return 1024 * number_in(f"/proc/{loop.pid}/status", "VmHWM")


def serves_root(loop):
    equal(call(HELPER, "Stop").returncode, 0, "a request of root's")
    loop.expect("request stop")


def large_messages_do_not_gather(loop):
    """Each of them makes the daemon ask the bus who sent it; the others must not come in
    meanwhile."""
    before = memory_peak(loop)
    large = Client(clients.send_large_ones, LARGE_ONES, LARGE)
    send_while_it_sleeps(loop, large)
    contains(loop.next_error(), "its arguments take more than 16384 bytes", "their refusal")
    serves_root(loop)
    grown = memory_peak(loop) - before
    check(grown < ROOM, f"it grew by {grown} bytes")
    large.end()


def number_of_connections(bus):
    """How many there were before this one: the bus counts them in the names that it gives."""
    return int(bus.get_unique_name().split(".")[1])


def those_who_are_gone_cost_no_more(loop):
    """The bus is asked about them once, not for each of their messages."""
    gone = Client(clients.send_changes_and_leave, FLOOD)
    os.kill(loop.pid, signal.SIGSTOP)
    equal(gone.ask("go"), "sent", "a flood")
    name = gone.next_line("its name")
    wait_until(lambda: not reply_of(call(BUS, "NameHasOwner", "s", name)), "it has left", PATIENCE)
    before = number_of_connections(connect())
    os.kill(loop.pid, signal.SIGCONT)
    serves_root(loop)
    made = number_of_connections(connect()) - before
    check(made < FLOOD / 10, f"{made} connections for them")
    equal(loop.errors.qsize(), 0, "lines about those who are gone")
    gone.end()


def refusals_do_not_fill_the_log(loop):
    """Nor does each take a connection to the bus."""
    refused = Client(clients.send_changes, REFUSED)
    before = number_of_connections(connect())
    send_while_it_sleeps(loop, refused)
    serves_root(loop)
    made = number_of_connections(connect()) - before
    check(made < FLOOD / 10, f"{made} connections for them")
    lines = [loop.next_error(), *[loop.next_error() for _ in range(loop.errors.qsize())]]
    check(len(set(line.split("(uid ")[1] for line in lines)) == len(lines),
          f"a line for each reason: {lines}")
    refused.end()


def who_wants_no_answer_gets_no_status(loop):
    silent = Client(clients.look_without_an_answer, FLOOD)
    send_while_it_sleeps(loop, silent)
    serves_root(loop)  # and no "request status" before it
    silent.end()


def many_looks_are_all_answered(loop):
    """And a change that comes behind them is not forgotten."""
    askers = [Client(clients.ask_at_once, FLOOD) for _ in range(SENDERS)]
    send_while_it_sleeps(loop, *askers)
    for asker in askers:
        asker.expect(str(FLOOD))
        asker.end()
    equal(call(HELPER, "Stop").returncode, 0, "a request of root's")
    for _ in range(SENDERS * FLOOD):
        loop.expect("request status")
    loop.expect("request stop")


def main():
    # What is freed is to show as freed under that sanitizer, too.
    options = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"
    loop = start_loop(env=environment(ASAN_OPTIONS=options))
    large_messages_do_not_gather(loop)
    those_who_are_gone_cost_no_more(loop)
    refusals_do_not_fill_the_log(loop)
    who_wants_no_answer_gets_no_status(loop)
    many_looks_are_all_answered(loop)
    end_well(loop)


main()
