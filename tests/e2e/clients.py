#!/usr/bin/python3 -B
"""What others on the bus do, each in a process of its own.

usage: clients.py USER FUNCTION [JSON ...]

As that user, connects to the system bus and calls one of the functions below. Says "connected"
before it and "done" after it, and stays until its input ends.
"""

import json
import os
import signal
import sys
import time

import dbus
import dbus.bus
import dbus.lowlevel
import dbus.mainloop.glib
from gi.repository import GLib

from buses import BUS, HELPER, LOGIND
from expectations import PATIENCE
from processes import NOBODY, Driven


class Client(Driven):
    """A process that calls one of the functions below."""

    def __init__(self, function, *arguments, user=NOBODY, **options):
        super().__init__("/usr/bin/python3", "-B", __file__, str(user), function.__name__,
                         *map(json.dumps, arguments), **options)
        self.expect("connected")


class Caller(Client):
    """One that is on the bus already, and calls when it is told: the daemon gives polkit two
    seconds, in which a busy machine may not get a process started."""

    def __init__(self, user=NOBODY):
        super().__init__(call_when_told, user=user)

    def call(self, member):
        """Its answer is the next line."""
        self.tell(f"{member} 1")

    def flood(self, member, count):
        """Sends them without waiting for answers."""
        self.tell(f"{member} {count}")
        self.expect("sent")


def connect(**options):
    return dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"], **options)


def request(member, *arguments, signature=""):
    message = dbus.lowlevel.MethodCallMessage(*HELPER, member)
    message.append(*arguments, signature=signature)
    return message


def say(*words):
    print(*words, flush=True)


def say_error(bus, message):
    """Sends what must be refused, and tells how it is."""
    try:
        bus.send_message_with_reply_and_block(message, PATIENCE)
        say("served")
    except dbus.DBusException as error:
        say(f"{error.get_dbus_name()}: {error.get_dbus_message()}")


def reach(bus):
    """Returns when all that was sent has reached the bus."""
    bus.flush()
    bus.get_name_owner(BUS[0])


def call_when_told(bus):
    for line in sys.stdin:
        member, count = line.split()
        if count == "1":
            reply = bus.send_message_with_reply_and_block(request(member))
            say(*reply.get_args_list())
            continue
        for _ in range(int(count)):
            bus.send_message(request(member))
        bus.flush()
        say("sent")


def lend_descriptors(bus):
    """In requests by which many arrive at once; tells how the first is answered."""
    def message():
        lent = {str(number): dbus.types.UnixFd(0) for number in range(16)}
        return request("EnableManualV2", 5, True, lent, signature="xba{sv}")

    say_error(bus, message())
    for _ in range(300):
        bus.send_message(message())
    reach(bus)


def lend_descriptors_by_signals(bus, name):
    for _ in range(100):
        message = dbus.lowlevel.SignalMessage("/a", "com.example.A", "Lent")
        message.set_destination(name)
        message.append(*[dbus.types.UnixFd(0) for _ in range(16)], signature=16 * "h")
        bus.send_message(message)
    reach(bus)


def pretend_to_be_logind(bus, name):
    """Signals as its own, to that one alone."""
    for interface, signal_name, signature, arguments in (
            (LOGIND[2], "PrepareForSleep", "b", (False,)),
            ("org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
             (LOGIND[2], {"LidClosed": True}, []))):
        message = dbus.lowlevel.SignalMessage(LOGIND[1], interface, signal_name)
        message.set_destination(name)
        message.append(*arguments, signature=signature)
        bus.send_message(message)
    reach(bus)


def lend_to_the_only_other(bus):
    """A descriptor, to who else is on the bus, once somebody is."""
    def others():
        return [name for name in bus.list_names()
                if name[0] == ":" and name != bus.get_unique_name()]

    while not others():
        time.sleep(0.01)
    message = dbus.lowlevel.MethodCallMessage(others()[0], "/a", "com.example.A", "Lend")
    message.append(dbus.types.UnixFd(0), signature="h")
    say_error(bus, message)


def send_a_noncharacter(bus):
    """A text that the bus carries, but the daemon's library does not read."""
    say_error(bus, request("EnableManualV2", 5, True, {"name": chr(0xFFFF)}, signature="xba{sv}"))


def die_often(_bus, count):
    """Connects, asks and is gone before the answers."""
    for _ in range(count):
        bus = connect()
        bus.send_message(request("Status"))
        bus.send_message(request("Stop"))
        bus.flush()
        bus.close()


def send_large_ones(bus, count, size):
    send_without_an_answer(bus, count, lambda: request(
        "EnableManualV2", 5, True, {"context": size * "a"}, signature="xba{sv}"))


def send_changes(bus, count):
    send_without_an_answer(bus, count, lambda: request("Stop"))


def send_changes_and_leave(bus, count):
    send_changes(bus, count)
    name = bus.get_unique_name()
    bus.close()
    say(name)


def look_without_an_answer(bus, count):
    send_without_an_answer(bus, count, lambda: request("Status"))


def send_without_an_answer(bus, count, make):
    """When told."""
    sys.stdin.readline()
    for _ in range(count):
        message = make()
        message.set_no_reply(True)
        bus.send_message(message)
    reach(bus)
    say("sent")


def ask_at_once(_bus, count):
    """When told; tells how many of its requests were answered."""
    sys.stdin.readline()
    bus = connect(mainloop=dbus.mainloop.glib.DBusGMainLoop())
    answers, waiting = [], GLib.MainLoop()

    def hear(answer):
        answers.append(answer.get_args_list()[0])
        if len(answers) == count:
            waiting.quit()

    for _ in range(count):
        bus.send_message_with_reply(request("Status"), hear, PATIENCE)
    bus.flush()
    say("sent")
    GLib.timeout_add_seconds(PATIENCE, waiting.quit)
    waiting.run()
    say(sum(answer.startswith("answer ") for answer in answers))


def hang_as(bus, *names):
    """Has those names, and never answers."""
    for name in names:
        bus.request_name(name)
    say("ready")
    signal.pause()


def answer_late_as_the_daemon(_bus, seconds):
    """Has the daemon's name, tells what it is asked, and refuses that after so many seconds."""
    bus = connect(mainloop=dbus.mainloop.glib.DBusGMainLoop())

    def serve(_bus, message):
        if message.get_interface() != HELPER[2]:
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        say(message.get_member())
        time.sleep(seconds)
        bus.send_message(dbus.lowlevel.ErrorMessage(message, "com.example.Unknown", "unknown"))
        return dbus.lowlevel.HANDLER_RESULT_HANDLED

    bus.add_message_filter(serve)
    bus.request_name(HELPER[0])
    say("ready")
    GLib.MainLoop().run()


def main():
    user, function, *arguments = sys.argv[1:]
    if os.getuid() != int(user):
        # Only now, as another user need not be able to read this file.
        os.setgroups([])
        os.setgid(int(user))
        os.setuid(int(user))
    bus = connect()
    say("connected")
    globals()[function](bus, *map(json.loads, arguments))
    say("done")
    sys.stdin.read()


if __name__ == "__main__":
    main()
