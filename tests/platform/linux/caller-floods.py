#!/usr/bin/python3 -B
"""What one who may not change anything can do to the daemon by the mass of messages. Run by
with-logind.

usage: caller-floods.py DRIVER
"""
import os
import signal

import clients
from buses import HELPER, call
from clients import Client
from driven import end_well, start_loop
from expectations import check, contains, equal
from processes import environment, number_in

LARGE = 2 * 1024 * 1024
LARGE_ONES = 50
ROOM = 64 * 1024 * 1024  # for some of the large ones, and what a sanitizer notes about them
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
    for _ in range(LARGE_ONES):
        contains(loop.next_error(), "its arguments take more than 16384 bytes", "a refusal")
    serves_root(loop)
    grown = memory_peak(loop) - before
    check(grown < ROOM, f"it grew by {grown} bytes")
    large.end()


def who_wants_no_answer_gets_no_status(loop):
    silent = Client(clients.look_without_an_answer, FLOOD)
    send_while_it_sleeps(loop, silent)
    serves_root(loop)  # and no "request status" before it
    silent.end()


def many_share_one_look(loop):
    """Each is answered, yet the machine is not looked at for each."""
    askers = [Client(clients.ask_at_once, FLOOD) for _ in range(SENDERS)]
    send_while_it_sleeps(loop, *askers)
    for asker in askers:
        asker.expect(str(FLOOD))
        asker.end()
    equal(call(HELPER, "Stop").returncode, 0, "a request of root's")
    looks = 0
    while loop.next_line("the looks") == "request status":
        looks += 1
    check(0 < looks <= SENDERS * FLOOD / 2, f"{looks} looks for {SENDERS * FLOOD} requests")


def main():
    # What is freed is to show as freed under that sanitizer, too.
    options = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"
    loop = start_loop(env=environment(ASAN_OPTIONS=options))
    large_messages_do_not_gather(loop)
    who_wants_no_answer_gets_no_status(loop)
    many_share_one_look(loop)
    end_well(loop)


main()
