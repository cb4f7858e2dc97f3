#!/usr/bin/python3 -B
"""A polkit on the bus that answers as it is told.

usage: polkit-stand-in.py ANSWER_FILE LOG_FILE

The answer file holds "yes", "no", "challenge", "error", "nonsense", "never", or "late" with a file
whose appearance ends the wait, and is read at each question. The log gets a line of JSON for each.
"""
import json
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

NAME = "org.freedesktop.PolicyKit1"
INTERFACE = NAME + ".Authority"


class NotToday(dbus.DBusException):
    _dbus_error_name = NAME + ".Error.Failed"


class Authority(dbus.service.Object):
    @dbus.service.method(INTERFACE, in_signature="(sa{sv})sa{ss}us", out_signature="(bba{ss})",
                         async_callbacks=("reply", "error"))
    # pylint: disable-next=invalid-name,too-many-arguments  # so it is on the bus
    def CheckAuthorization(self, subject, action, details, flags, cancellation, reply, error):
        with open(sys.argv[2], "a", encoding="utf-8") as log:
            log.write(json.dumps([subject[0], dict(subject[1]), action, dict(details), int(flags),
                                  cancellation]) + "\n")
        with open(sys.argv[1], encoding="utf-8") as answer:
            self.answer(answer.read().split(), reply, error)

    def answer(self, words, reply, error):
        if words[0] == "yes":
            reply((True, False, {}))
        elif words[0] == "no":
            reply((False, False, {}))
        elif words[0] == "challenge":
            reply((False, True, {}))
        elif words[0] == "error":
            error(NotToday("not\ntoday"))
        elif words[0] == "late":
            GLib.timeout_add(10, self.look, words[1], reply)

    @staticmethod
    def look(path, reply):
        if not os.path.exists(path):
            return True
        reply((True, False, {}))
        return False


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
authority = Authority(bus, "/org/freedesktop/PolicyKit1/Authority")
name = dbus.service.BusName(NAME, bus)
print("ready", flush=True)
GLib.MainLoop().run()
