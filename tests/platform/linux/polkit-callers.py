#!/usr/bin/python3 -B
"""Whose requests the daemon's bus service serves while polkit thinks and after it. Run by
with-logind.

usage: polkit-callers.py DRIVER TEST
"""
import json
import os
import pathlib
import signal

import clients
from buses import HELPER, busctl, call
from clients import Caller, Client
from driven import ask, end_well, refused, start_loop, the_test
from expectations import PATIENCE, check, contains, equal, wait_until
from laptop import FOLDER
from processes import NOBODY, Driven

STRANGERS = (NOBODY, 1, 2, 3, 4)  # users that exist
GATE = FOLDER / "gate"
FOR_OTHERS = ("only somebody logged in at this computer, or a member of the group nodo, may do "
              "this; see man nodod")
ROOT_ONLY = "; without it only root may do this"


class Polkit:
    """A stand-in that answers as it is told, and notes what it is asked."""

    def __init__(self):
        self.says, self.log = FOLDER / "polkit.answer", FOLDER / "polkit.log"
        self.answer("yes")
        self.log.touch()
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


def test_polkit_is_asked_about_changes_of_others_alone(loop, polkit):
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


def test_what_polkit_says_is_the_reason_of_a_refusal(loop, polkit):
    for says, reason in (
            ("no", "polkit does not allow com.quintavel.nodo.keep-awake: "
                   "a rule of the administrator's forbids it"),
            ("challenge", FOR_OTHERS),
            ("error", "polkit cannot be asked: not\\ntoday" + ROOT_ONLY),
            ("never", "polkit cannot be asked: Method call timed out" + ROOT_ONLY)):
        polkit.answer(says)
        equal(refused(loop, "Stop"), reason, f"polkit says {says}")
        if says != "error":  # busctl shows a line end otherwise than the log does
            equal(ask("Permission", user=NOBODY), [False, reason], f"permission by {says}")


def test_permission_is_asked_for_as_a_change_is(loop, polkit):
    for user in (NOBODY, None):
        equal(ask("Permission", user=user), [True, ""], f"that of {user}")
    equal(len(polkit.questions()), 1, "root's is no question")
    polkit.answer("challenge")
    equal(ask("Permission", user=NOBODY), [False, FOR_OTHERS], "that of a stranger")
    silent = busctl("--expect-reply=no", "call", *HELPER, "Permission", user=NOBODY)
    equal(silent.returncode, 0, "one who wants no answer is heard")
    ask("Status")
    loop.expect("request status")  # nothing else has reached the service
    equal((len(polkit.questions()), loop.errors.qsize()), (2, 0), "no question, and no line")


def test_those_who_ask_for_permission_take_the_places_of_changes(loop, polkit):
    polkit.answer(f"late {GATE}")
    many = Caller()
    start_flood(loop, [many], 26)
    error_with(loop, "too many requests of this user wait")
    beyond = call(HELPER, "Permission", user=NOBODY)
    check(beyond.returncode != 0, f"is not told what is not known: {beyond.stdout}")
    contains(beyond.stderr, "too many requests of this user wait for polkit", "the error")
    end_floods(loop, polkit, [many])


def test_descriptors_do_not_come_in(loop, polkit):
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


def is_served(caller, what):
    contains(caller.next_line(), "answer ", what)


def test_nobody_waits_for_another(loop, polkit):
    polkit.answer(f"late {GATE}")
    waits, looks, root = Caller(), Caller(), Caller(user=0)
    waits.call("Stop")
    polkit.expect_questions(1, "polkit thinks")
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


def test_requests_of_the_vanished_are_dropped(loop, polkit):
    polkit.answer(f"late {GATE}")
    vanishes, stays = Caller(), Caller()
    vanishes.call("Repair")
    stays.call("Reconcile")
    polkit.expect_questions(2, "polkit thinks")
    vanishes.end(signal.SIGKILL)
    GATE.touch()
    is_served(stays, "the one who stays is served")
    loop.expect("request reconcile")
    ask("Status")
    loop.expect("request status")  # and no "repair" before it
    GATE.unlink()
    stays.end()


def test_large_requests_do_not_wait(loop, polkit):
    """As they would be kept in memory until polkit answers."""
    polkit.answer("yes")
    texts = ("EnableManualV2", "xba{sv}", "5", "true", "2", "name", "s", "pi", "context", "s")
    equal(refused(loop, *texts, 17000 * "a"), "its arguments take more than 16384 bytes", "a text")
    numbers = ("EnableManualV2", "xba{sv}", "5", "true", "1", "numbers", "v", "a(yi)", "3000")
    result = call(HELPER, *numbers, *(3000 * ("1", "2")), user=NOBODY)
    check(result.returncode != 0, f"what nobody reads was served: {result.stdout}")
    unread = Client(clients.send_a_noncharacter)
    contains(unread.next_line(), "InvalidArgs: nodod refuses this: cannot read the arguments",
             "no text")
    unread.end()
    contains(loop.next_error(), "cannot read the arguments: Bad message", "its line")
    equal(polkit.questions(), [], "questions about these")
    nested = ("EnableManualV2", "xba{sv}", "5", "true", "2", "x", "v", "a{s(vad)}", "1", "y", "g",
              "as", "2", "1", "2", "name", "s", "pi")
    ask(*nested, user=NOBODY)
    loop.expect("request enableManualV2 5 extend 'pi' - -")
    ask(*texts, 17000 * "a")
    loop.expect(f"request enableManualV2 5 extend 'pi' '{17000 * 'a'}' -")


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


def test_one_user_keeps_nobody_out(loop, polkit):
    polkit.answer(f"late {GATE}")
    many, other = Caller(), Caller(user=STRANGERS[1])
    start_flood(loop, [many], 60)
    contains(error_with(loop, "too many"), f"(uid {NOBODY}): too many requests of this user wait",
             "beyond a user's limit")
    other.call("Stop")
    polkit.expect_questions(26, "polkit is asked about another")
    contains(ask("Repair"), "answer ", "root is served all the same")
    loop.expect("request repair")
    end_floods(loop, polkit, [many, other])


def test_more_than_can_wait_are_refused(loop, polkit):
    polkit.answer(f"late {GATE}")
    floods = [Caller(user) for user in STRANGERS]
    start_flood(loop, floods, 60)
    polkit.expect_questions(100, "all places are taken")
    error_with(loop, "too many requests wait for polkit")
    contains(ask("Repair"), "answer ", "root is served all the same")
    loop.expect("request repair")
    end_floods(loop, polkit, floods)


def main():
    loop, polkit = start_loop(), Polkit()
    the_test(globals())(loop, polkit)
    end_well(loop)


main()
