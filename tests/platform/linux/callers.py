#!/usr/bin/python3 -B
"""What callers ask of the daemon's bus service, and what it answers. Run by with-logind.

usage: callers.py DRIVER TEST
"""
import json
import subprocess

import dbus.mainloop.glib
from gi.repository import GLib

import clients
from buses import HELPER, busctl, call, reply_of, start_call
from clients import Client, connect, request
from driven import DRIVER, ask, end_well, refused, start_loop, the_test
from expectations import PATIENCE, check, contains, equal, wait_until
from processes import NOBODY, Driven, as_user


def test_whoever_looks_finds_the_requests_and_their_arguments(loop):
    text = reply_of(call((HELPER[0], HELPER[1], "org.freedesktop.DBus.Introspectable"),
                         "Introspect"))
    for part in ('<interface name="com.quintavel.nodo.Helper1">', '<method name="Status">',
                 '<arg type="x" name="minutes" direction="in"/>',
                 '<arg type="b" name="extendOnly" direction="in"/>',
                 '<arg type="a{sv}" name="requester" direction="in"/>',
                 '<arg type="s" name="reply" direction="out"/>', '<method name="Permission">',
                 '<arg type="b" name="isGranted" direction="out"/>',
                 '<arg type="s" name="refusal" direction="out"/>', '<method name="Settings">',
                 '<arg type="s" name="settings" direction="out"/>', '<signal name="Changed">'):
        contains(text, part, "the introspection")
    equal(text.count('name="reply"'), 6, "methods")
    check(call(HELPER, "Sleep").returncode != 0, "a request that is none")
    nothing_has_reached_the_service(loop)


def nothing_has_reached_the_service(loop):
    ask("Status")
    loop.expect("request status")  # and no other before it


def test_a_second_daemon_finds_the_name_taken(loop):
    second = Driven(DRIVER, "loop", "system")
    contains(second.next_error(), "com.quintavel.nodo.helper is taken on the system bus",
             "a second one")
    equal(second.process.wait(), 1, "a second one's status")
    check(ask("Status").startswith("answer "), "the first one still answers")
    loop.expect("request status")


def test_requests_and_their_arguments_reach_the_service(loop):
    for member in ("Status", "Stop", "Reconcile", "Repair"):
        contains(ask(member), "answer ", "an answer")
        loop.expect("request " + member.lower())
    ask("EnableManual", "x", "20")
    loop.expect("request enableManual 20")
    ask("EnableManual", "x", "-9223372036854775808")
    loop.expect("request enableManual -9223372036854775808")
    for arguments, line in (
            (("30", "true", "0"), "30 extend - - -"),
            (("30", "false", "1", "name", "s", "codex"), "30 replace 'codex' - -"),
            (("5", "true", "3", "event", "s", "Stop", "context", "s", "a b", "name", "s", ""),
             "5 extend '' 'a b' 'Stop'"),
            (("5", "true", "2", "colour", "(is)", "3", "x", "name", "s", "pi"),
             "5 extend 'pi' - -")):
        ask("EnableManualV2", "xba{sv}", *arguments)
        loop.expect("request enableManualV2 " + line)


def test_arguments_that_make_no_sense_are_refused(loop):
    for arguments in (("EnableManualV2", "xba{sv}", "5", "true", "1", "name", "u", "7"),
                      ("EnableManualV2", "xba{sv}", "5", "true", "1", "event", "as", "0"),
                      ("EnableManualV2", "xb", "5", "true"), ("EnableManual", "s", "5"),
                      ("EnableManual", "i", "5"), ("Status", "s", "x")):
        result = call(HELPER, *arguments)
        equal(result.returncode, 1, f"{arguments} fails")
    contains(call(HELPER, "EnableManualV2", "xba{sv}", "5", "true", "1", "name", "u", "7").stderr,
             "name", "a requester's name that is no text")
    nothing_has_reached_the_service(loop)


def test_what_is_sent_at_once_is_answered_in_order(loop):
    """One connection sends all of it before it reads the first answer."""
    bus = connect(mainloop=dbus.mainloop.glib.DBusGMainLoop())
    first = int(ask("Status").split()[1]) + 1
    loop.expect("request status")
    sent, answered, waiting = [], [], GLib.MainLoop()

    def hear(answer):
        answered.append((answer.get_reply_serial(), *answer.get_args_list()))
        if len(answered) == len(sent):
            waiting.quit()

    lines = []
    for minutes in range(25):  # a bus lets each wait for 128 answers
        for member, signature, arguments, line in (
                ("EnableManualV2", "xba{sv}", (minutes, True, {"name": "at once"}),
                 f"enableManualV2 {minutes} extend 'at once' - -"),
                ("Status", "", (), "status"), ("Stop", "", (), "stop"),
                ("EnableManual", "x", (minutes,), f"enableManual {minutes}")):
            message = request(member, *arguments, signature=signature)
            bus.send_message_with_reply(message, hear, PATIENCE)
            sent.append(message.get_serial())
            lines.append("request " + line)
    GLib.timeout_add_seconds(PATIENCE, waiting.quit)
    waiting.run()
    equal(answered, [(serial, f"answer {first + index}") for index, serial in enumerate(sent)],
          "the answers in their order")
    loop.expect(*lines)
    bus.close()


def test_a_request_that_fails_is_an_error_and_a_line_of_the_log(loop):
    contains(call(HELPER, "EnableManual", "x", "-1").stderr, "the driver fails",
             "a request that throws")
    equal(loop.next_error(), "nodod: request failed: the driver fails", "its line")
    contains(call(HELPER, "EnableManual", "x", "-7").stderr, "no \ufffd, no \ufffd",
             "an error that it would not send")
    equal(loop.next_error(), "nodod: request failed: no \ufffd, no \uffff", "its line")


def test_what_the_bus_cannot_carry_is_an_error(loop):
    contains(call(HELPER, "EnableManual", "x", "-2").stderr, "the answer is not valid UTF-8",
             "no text")
    contains(call(HELPER, "EnableManual", "x", "-3").stderr, "cannot be sent", "no UTF-8")
    equal(ask("EnableManual", "x", "-6"), '"\\uffff"', "JSON that the bus's library would not send")
    for minutes in ("-8", "-9"):
        contains(call(HELPER, "EnableManual", "x", minutes).stderr, "too long for the bus",
                 "more than the bus takes")
    contains(loop.next_error(), "nodod: request failed: eee", "the line about a long reason")


def test_an_answer_may_come_late_or_never(loop):
    # Nobody answers this one; the bus's own limit is long, so the caller's is used.
    result = busctl("--timeout=0.2", "call", "--", *HELPER, "EnableManual", "x", "-4")
    equal(result.returncode, 1, "no answer at all")
    late = start_call(HELPER, "EnableManual", "x", "-5")
    # Each answer counts up; the kept one comes with Stop, once it has reached the service.
    wait_until(lambda: stop(loop) and late.poll() is not None, "a late answer", PATIENCE)
    equal(json.loads(late.stdout.read())["data"], ["late"], "a late answer")


def stop(loop):
    answer = ask("Stop")
    loop.expect("request stop")
    return answer


def test_without_polkit_others_may_only_look(loop):
    contains(ask("Status", user=NOBODY), "answer ", "anyone may look")
    loop.expect("request status")
    contains(refused(loop, "EnableManual", "x", "5"), "polkit cannot be asked: ", "the line")
    for member, arguments in (("EnableManual", ("x", "5")), ("Stop", ()), ("Reconcile", ()),
                              ("Repair", ()), ("EnableManualV2", ("xba{sv}", "5", "true", "0"))):
        check(call(HELPER, member, *arguments, user=NOBODY).returncode != 0, f"{member} is refused")
    # busctl has a text of its own for this error.
    told = subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=" + HELPER[0], HELPER[1],
         HELPER[2] + ".Stop"], text=True, capture_output=True, check=False, **as_user(NOBODY))
    error = "org.freedesktop.DBus.Error.AccessDenied: nodod refuses this: polkit cannot be asked: "
    contains(told.stderr, error, "the caller's error")
    equal(loop.errors.qsize(), 0, "further lines for the same reason")


def test_clients_that_die_leave_nothing_behind(loop):
    """A thousand clients that connect, ask and die, and two hundred at once."""
    before = loop.descriptors()
    mortals = Client(clients.die_often, 1000, user=0)
    mortals.expect("done")
    mortals.end()
    many = [start_call(HELPER, "Status", user=NOBODY) for _ in range(200)]
    equal({one.wait() for one in many}, {0}, "two hundred at once")
    check(loop.errors.qsize() < 100, "those who are gone fill no log")
    equal(loop.descriptors(), before, "descriptors")


def main():
    loop = start_loop()
    the_test(globals())(loop)
    end_well(loop)


main()
