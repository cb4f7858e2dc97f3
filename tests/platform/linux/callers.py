#!/usr/bin/python3 -B
"""Who may ask what of the daemon's bus service, and what it answers. Run by with-logind.

usage: callers.py DRIVER
"""
import json
import os
import pathlib
import signal
import subprocess

import dbus.mainloop.glib
from gi.repository import GLib

import clients
from buses import BUS, HELPER, busctl, call, process_of, reply_of, start_call
from clients import Caller, Client, connect, request
from driven import DRIVER, end_well, start_loop
from expectations import PATIENCE, check, contains, equal, wait_until
from laptop import FOLDER
from processes import NOBODY, Driven, as_user

STRANGERS = (NOBODY, 1, 2, 3, 4)  # users that exist
GATE = FOLDER / "gate"


def introspection():
    return reply_of(call((HELPER[0], HELPER[1], "org.freedesktop.DBus.Introspectable"),
                         "Introspect"))


def ask(member, *arguments, **options):
    return reply_of(call(HELPER, member, *arguments, **options))


def refused(loop, member, *arguments):
    """Makes a call that must be refused; returns the reason in the log."""
    result = call(HELPER, member, *arguments, user=NOBODY)
    check(result.returncode != 0, f"{member} was served: {result.stdout}")
    line = loop.next_error("the line about a refusal")
    start = "nodod: rejected D-Bus caller :1."
    equal(line[:len(start)], start, "the line's start")
    number, rest = line[len(start):].split(" ", 1)
    check(number.isdigit(), "the caller's number")
    user_text = f"(uid {NOBODY}): "
    equal(rest[:len(user_text)], user_text, "the user in the line")
    return rest[len(user_text):]


def what_is_offered(loop):
    text = introspection()
    for part in ('<interface name="com.quintavel.nodo.Helper1">', '<method name="Status">',
                 '<arg type="x" name="minutes" direction="in"/>',
                 '<arg type="b" name="extendOnly" direction="in"/>',
                 '<arg type="a{sv}" name="requester" direction="in"/>',
                 '<arg type="s" name="reply" direction="out"/>'):
        contains(text, part, "the introspection")
    equal(text.count('name="reply"'), 6, "methods")
    check(call(HELPER, "Sleep").returncode != 0, "a request that is none")
    second = Driven(DRIVER, "loop", "system")
    contains(second.next_error(), "com.quintavel.nodo.helper is taken on the system bus",
             "a second one")
    equal(second.process.wait(), 1, "a second one's status")
    check(ask("Status").startswith("answer "), "the first one still answers")
    loop.expect("request status")


def arguments_and_answers(loop):
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

    for arguments in (("EnableManualV2", "xba{sv}", "5", "true", "1", "name", "u", "7"),
                      ("EnableManualV2", "xba{sv}", "5", "true", "1", "event", "as", "0"),
                      ("EnableManualV2", "xb", "5", "true"), ("EnableManual", "s", "5"),
                      ("EnableManual", "i", "5"), ("Status", "s", "x")):
        result = call(HELPER, *arguments)
        equal(result.returncode, 1, f"{arguments} fails")
    contains(call(HELPER, "EnableManualV2", "xba{sv}", "5", "true", "1", "name", "u", "7").stderr,
             "name", "a requester's name that is no text")


def what_is_sent_at_once_is_answered_in_order(loop):
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


def misdeeds_of_the_service(loop):
    contains(call(HELPER, "EnableManual", "x", "-1").stderr, "the driver fails",
             "a request that throws")
    equal(loop.next_error(), "nodod: request failed: the driver fails", "its line")
    contains(call(HELPER, "EnableManual", "x", "-2").stderr, "the answer is not valid UTF-8",
             "no text")
    contains(call(HELPER, "EnableManual", "x", "-3").stderr, "cannot be sent", "no UTF-8")
    equal(ask("EnableManual", "x", "-6"), '"\\uffff"', "JSON that the bus's library would not send")
    contains(call(HELPER, "EnableManual", "x", "-7").stderr, "no \ufffd, no \ufffd",
             "an error that it would not send")
    equal(loop.next_error(), "nodod: request failed: no \ufffd, no \uffff", "its line")
    for minutes in ("-8", "-9"):
        contains(call(HELPER, "EnableManual", "x", minutes).stderr, "too long for the bus",
                 "more than the bus takes")
    contains(loop.next_error(), "nodod: request failed: eee", "the line about a long reason")
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


def without_polkit(loop):
    contains(ask("Status", user=NOBODY), "answer ", "anyone may look")
    loop.expect("request status")
    for member, arguments in (("EnableManual", ("x", "5")), ("Stop", ()), ("Reconcile", ()),
                              ("Repair", ()), ("EnableManualV2", ("xba{sv}", "5", "true", "0"))):
        contains(refused(loop, member, *arguments), "polkit cannot be asked: ", "without polkit")
    # busctl has a text of its own for this error.
    told = subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=" + HELPER[0], HELPER[1],
         HELPER[2] + ".Stop"], text=True, capture_output=True, check=False, **as_user(NOBODY))
    error = "org.freedesktop.DBus.Error.AccessDenied: nodod refuses this: polkit cannot be asked: "
    contains(told.stderr, error, "the caller's error")
    contains(loop.next_error(), "polkit cannot be asked: ", "its line")


class Polkit:
    """A stand-in that answers as it is told, and notes what it is asked."""

    def __init__(self):
        self.says, self.log = FOLDER / "polkit.answer", FOLDER / "polkit.log"
        self.answer("yes")
        self.process = Driven(pathlib.Path(__file__).with_name("polkit-stand-in.py"), self.says,
                              self.log)
        self.process.expect("ready")

    def answer(self, text):
        new = self.says.with_suffix(".new")
        new.write_text(text, encoding="utf-8")
        new.rename(self.says)

    def questions(self):
        with open(self.log, encoding="utf-8") as file:
            # The last one may be under way.
            return [json.loads(line) for line in file if line.endswith("\n")]

    def expect_questions(self, count, what):
        wait_until(lambda: len(self.questions()) == count, what, PATIENCE)


def with_polkit(loop):
    polkit = Polkit()
    contains(ask("Stop", user=NOBODY), "answer ", "allowed by polkit")
    loop.expect("request stop")
    (kind, subject, action, details, flags, cancellation), = polkit.questions()
    equal(kind, "system-bus-name", "the subject's kind")
    equal((list(subject), subject["name"][:3]), (["name"], ":1."), "the subject")
    equal((action, details, flags, cancellation), ("com.quintavel.nodo.keep-awake", {}, 0, ""),
          "the question")
    ask("Stop")
    ask("Status", user=NOBODY)
    loop.expect("request stop", "request status")
    equal(len(polkit.questions()), 1, "root and looking ask nobody")

    for says, reason in (
            ("no", "polkit does not allow com.quintavel.nodo.keep-awake"),
            ("challenge",
             "polkit wants an administrator's password for com.quintavel.nodo.keep-awake"),
            ("error", "polkit cannot be asked: not\\ntoday"),
            ("never", "polkit cannot be asked: Method call timed out")):
        polkit.answer(says)
        equal(refused(loop, "Stop"), reason, f"polkit says {says}")

    descriptors_do_not_come_in(loop, polkit)
    nobody_waits_for_another(loop, polkit)
    the_vanished_are_dropped(loop, polkit)
    large_ones_do_not_wait(loop, polkit)
    one_user_keeps_nobody_out(loop, polkit)
    too_many_are_refused(loop, polkit)
    polkit.process.end()


def is_served(caller, what):
    contains(caller.next_line(), "answer ", what)


def descriptors_do_not_come_in(loop, polkit):
    """Another user's descriptors would count as the daemon's for as long as polkit thinks."""
    polkit.answer("never")
    before = loop.descriptors()
    lender = Client(clients.lend_descriptors)
    contains(lender.next_line(), "org.freedesktop.DBus.Error.NotSupported", "the answer")
    lender.expect("done")
    equal(loop.descriptors(), before, "descriptors while polkit thinks")
    lender.end()
    contains(ask("Status", user=NOBODY), "answer ", "the daemon lives")
    loop.expect("request status")


def nobody_waits_for_another(loop, polkit):
    polkit.answer(f"late {GATE}")
    asked = len(polkit.questions())
    waits, looks, root = Caller(), Caller(), Caller(user=0)
    waits.call("Stop")
    polkit.expect_questions(asked + 1, "polkit thinks")
    root.call("Repair")
    is_served(root, "root is served meanwhile")
    looks.call("Status")
    is_served(looks, "the same user may look meanwhile")
    loop.expect("request repair", "request status")
    GATE.touch()
    is_served(waits, "served in the end")
    loop.expect("request stop")
    GATE.unlink()
    for caller in waits, looks, root:
        caller.end()


def the_vanished_are_dropped(loop, polkit):
    polkit.answer(f"late {GATE}")
    asked = len(polkit.questions())
    vanishes, stays = Caller(), Caller()
    vanishes.call("Repair")
    stays.call("Reconcile")
    polkit.expect_questions(asked + 2, "polkit thinks")
    vanishes.end(signal.SIGKILL)
    GATE.touch()
    is_served(stays, "the one who stays is served")
    loop.expect("request reconcile")
    ask("Status")
    loop.expect("request status")  # and no "repair" before it
    GATE.unlink()
    stays.end()


def start_flood(loop, senders, count):
    """All at once, before the time of the first is over."""
    os.kill(loop.pid, signal.SIGSTOP)
    for one in senders:
        one.flood("Stop", count)
    os.kill(loop.pid, signal.SIGCONT)


def end_floods(loop, polkit, floods):
    for one in floods:
        one.end()
    polkit.answer("yes")
    # Those who left are forgotten with their time limits; then there is room again.
    wait_until(lambda: call(HELPER, "Stop", user=NOBODY).returncode == 0, "room again", PATIENCE)
    loop.expect("request stop")
    while loop.errors.qsize():
        contains(loop.next_error(), "rejected D-Bus caller", "until then")


def error_with(loop, part):
    """The next line of the log that holds `part`."""
    line = loop.next_error(part)
    while part not in line:
        line = loop.next_error(part)
    return line


def one_user_keeps_nobody_out(loop, polkit):
    polkit.answer(f"late {GATE}")
    asked = len(polkit.questions())
    many, other = Caller(), Caller(user=STRANGERS[1])
    start_flood(loop, [many], 60)
    contains(error_with(loop, "too many"), f"(uid {NOBODY}): too many requests of this user wait",
             "beyond a user's limit")
    other.call("Stop")
    polkit.expect_questions(asked + 26, "polkit is asked about another")
    contains(ask("Repair"), "answer ", "root is served all the same")
    loop.expect("request repair")
    end_floods(loop, polkit, [many, other])


def too_many_are_refused(loop, polkit):
    polkit.answer(f"late {GATE}")
    asked = len(polkit.questions())
    floods = [Caller(user) for user in STRANGERS]
    start_flood(loop, floods, 60)
    polkit.expect_questions(asked + 100, "all places are taken")
    error_with(loop, "too many requests wait for polkit")
    contains(ask("Repair"), "answer ", "root is served all the same")
    loop.expect("request repair")
    end_floods(loop, polkit, floods)


def large_ones_do_not_wait(loop, polkit):
    """As they would be kept in memory until polkit answers."""
    polkit.answer("yes")
    asked = len(polkit.questions())
    texts = ("EnableManualV2", "xba{sv}", "5", "true", "2", "name", "s", "pi", "context", "s")
    equal(refused(loop, *texts, 17000 * "a"), "its arguments take more than 16384 bytes", "a text")
    numbers = ("EnableManualV2", "xba{sv}", "5", "true", "1", "numbers", "v", "a(yi)", "3000")
    equal(refused(loop, *numbers, *(3000 * ("1", "2"))),
          "its arguments take more than 16384 bytes", "what nobody reads")
    unread = Client(clients.send_a_noncharacter)
    contains(unread.next_line(), "InvalidArgs: nodod refuses this: cannot read the arguments",
             "no text")
    unread.end()
    contains(loop.next_error(), "cannot read the arguments: Bad message", "its line")
    equal(len(polkit.questions()), asked, "questions about these")
    nested = ("EnableManualV2", "xba{sv}", "5", "true", "2", "x", "v", "a{s(vad)}", "1", "y", "g",
              "as", "2", "1", "2", "name", "s", "pi")
    ask(*nested, user=NOBODY)
    loop.expect("request enableManualV2 5 extend 'pi' - -")
    ask(*texts, 17000 * "a")
    loop.expect(f"request enableManualV2 5 extend 'pi' '{17000 * 'a'}' -")


def messages_to_the_locks_connection():
    """Its calls must not gather what others send to it meanwhile."""
    lock = Driven(DRIVER, "lock")
    contains(lock.ask("take"), "disable_sleep", "a lock")
    contains(lock.ask("release"), "enable_sleep", "its end")
    before = lock.descriptors()
    own, = [name for name in reply_of(call(BUS, "ListNames"))
            if name[0] == ":" and process_of(name) == lock.pid]
    for _ in range(3):
        lender = Client(clients.lend_descriptors_by_signals, own)
        lender.expect("done")
        lender.end()
        contains(lock.ask("take"), "disable_sleep", "a lock")
        contains(lock.ask("release"), "enable_sleep", "its end")
        equal(lock.descriptors(), before, "descriptors")
    lock.process.stdin.close()
    equal(lock.process.wait(), 0, "its end")


def clients_that_die(loop):
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
    what_is_offered(loop)
    arguments_and_answers(loop)
    what_is_sent_at_once_is_answered_in_order(loop)
    misdeeds_of_the_service(loop)
    without_polkit(loop)
    with_polkit(loop)
    clients_that_die(loop)
    messages_to_the_locks_connection()
    end_well(loop)


main()
