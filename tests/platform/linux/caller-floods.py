#!/usr/bin/python3 -B
"""What one who may not change anything can do to the daemon by the mass of messages. Run by
with-logind.

usage: caller-floods.py DRIVER
"""
import os
import signal
import sys

# What is freed is to show as freed under that sanitizer, too.
os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1"

from driven import HELPER, PATIENCE, Driven, call
from expectations import check, contains, equal

STRANGER = 65534  # the bus wants users that exist
LARGE = 2 * 1024 * 1024
LARGE_ONES = 50
ROOM = 64 * 1024 * 1024  # for some of the large ones, and what a sanitizer notes about them
FLOOD = 100  # a bus may let each wait for 128 answers
SENDERS = 3


def sender(code, user=STRANGER):
    """A process on the bus that does `code` at the next line of its input, and stays there."""
    begin = f"""
import dbus, dbus.bus, dbus.lowlevel, os, sys
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
def request(member):
    return dbus.lowlevel.MethodCallMessage(*{HELPER!r}, member)
print("connected", flush=True)
sys.stdin.readline()
"""
    process = Driven("/usr/bin/python3", "-c", begin + code + '\nprint("done", flush=True)\nsys.stdin.read()\n',
                     user=user, group=user, extra_groups=[])
    process.expect("connected")
    return process


def send_while_it_sleeps(loop, *senders):
    """All that is sent is there before the daemon looks."""
    os.kill(loop.pid, signal.SIGSTOP)
    for one in senders:
        one.process.stdin.write("go\n")
        one.expect("done")
    os.kill(loop.pid, signal.SIGCONT)


def memory_peak(loop):
    with open(f"/proc/{loop.pid}/status", encoding="ascii") as status:
        return next(1024 * int(line.split()[1]) for line in status if line.startswith("VmHWM:"))


def serves_root(loop):
    equal(call(HELPER, "Stop").returncode, 0, "a request of root's")
    loop.expect("request stop")


def large_messages_do_not_gather(loop):
    """Each of them makes the daemon ask the bus who sent it; the others must not come in meanwhile."""
    before = memory_peak(loop)
    large = sender(f"""
for _ in range({LARGE_ONES}):
    call = request("EnableManualV2")
    call.append(5, True, dict(context={LARGE} * "a"), signature="xba{{sv}}")
    call.set_no_reply(True)
    bus.send_message(call)
bus.flush()
bus.get_name_owner("org.freedesktop.DBus")
""")
    send_while_it_sleeps(loop, large)
    for _ in range(LARGE_ONES):
        contains(loop.next_error(), "its arguments take more than 16384 bytes", "a refusal")
    serves_root(loop)
    grown = memory_peak(loop) - before
    check(grown < ROOM, f"it grew by {grown} bytes")
    large.end()


def who_wants_no_answer_gets_no_status(loop):
    silent = sender(f"""
for _ in range({FLOOD}):
    call = request("Status")
    call.set_no_reply(True)
    bus.send_message(call)
bus.get_name_owner("org.freedesktop.DBus")
""")
    send_while_it_sleeps(loop, silent)
    serves_root(loop)  # and no "request status" before it
    silent.end()


def many_share_one_look(loop):
    """Each is answered, yet the machine is not looked at for each."""
    askers = [sender(f"""
import dbus.mainloop.glib
from gi.repository import GLib
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"],
                             mainloop=dbus.mainloop.glib.DBusGMainLoop())
answers, waiting = [], GLib.MainLoop()
def hear(answer):
    answers.append(answer.get_args_list()[0])
    if len(answers) == {FLOOD}:
        waiting.quit()
for _ in range({FLOOD}):
    bus.send_message_with_reply(request("Status"), hear, {PATIENCE})
bus.flush()
print("done", flush=True)
GLib.timeout_add_seconds({PATIENCE}, waiting.quit)
waiting.run()
print(len([answer for answer in answers if answer.startswith("answer ")]), flush=True)
""") for _ in range(SENDERS)]
    send_while_it_sleeps(loop, *askers)
    for asker in askers:
        asker.expect(str(FLOOD), "done")
        asker.end()
    equal(call(HELPER, "Stop").returncode, 0, "a request of root's")
    looks = 0
    while loop.next_line("the looks") == "request status":
        looks += 1
    check(0 < looks <= SENDERS * FLOOD / 2, f"{looks} looks for {SENDERS * FLOOD} requests")


loop = Driven(sys.argv[1], "loop", "system")
loop.expect("serving")
large_messages_do_not_gather(loop)
who_wants_no_answer_gets_no_status(loop)
many_share_one_look(loop)
equal(loop.end(), 0, "its end")
