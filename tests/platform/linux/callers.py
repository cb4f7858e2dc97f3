#!/usr/bin/python3 -B
"""Who may ask what of the daemon's bus service, and what it answers. Run by with-logind.

usage: callers.py DRIVER
"""
import json
import os
import signal
import subprocess
import sys
import threading

import dbus
import dbus.bus
import dbus.lowlevel
import dbus.mainloop.glib
from gi.repository import GLib

from driven import HELPER, PATIENCE, Driven, busctl, call, reply_of
from expectations import check, contains, equal, wait_until

STRANGER = 65534  # the bus wants users that exist
OTHER_STRANGERS = (1, 2, 3, 4)
folder = os.environ["NODO_E2E_DIR"]
here = os.path.dirname(os.path.abspath(__file__))
driver = sys.argv[1]


def introspection():
    return reply_of(call((HELPER[0], HELPER[1], "org.freedesktop.DBus.Introspectable"),
                         "Introspect"))


def ask(member, *arguments, **options):
    return reply_of(call(HELPER, member, *arguments, **options))


def refused(loop, member, *arguments, user=STRANGER):
    """Makes a call that must be refused; returns the reason in the log."""
    result = call(HELPER, member, *arguments, user=user)
    check(result.returncode != 0, f"{member} was served: {result.stdout}")
    line = loop.next_error("the line about a refusal")
    start = "nodod: rejected D-Bus caller :1."
    equal(line[:len(start)], start, "the line's start")
    number, rest = line[len(start):].split(" ", 1)
    check(number.isdigit(), "the caller's number")
    user_text = f"(uid {user}): "
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
    second = Driven(driver, "loop", "system")
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
    bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"],
                                 mainloop=dbus.mainloop.glib.DBusGMainLoop())
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
            message = dbus.lowlevel.MethodCallMessage(*HELPER, member)
            message.append(*arguments, signature=signature)
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
    contains(call(HELPER, "EnableManual", "x", "-2").stderr, "the answer is not valid UTF-8", "no text")
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
    late = subprocess.Popen(["busctl", "--system", "call", "--", *HELPER, "EnableManual", "x",
                             "-5"],
                            stdout=subprocess.PIPE, text=True)
    # Each answer counts up; the kept one comes with Stop, once it has reached the service.
    wait_until(lambda: stop(loop) and late.poll() is not None, "a late answer", PATIENCE)
    equal(late.stdout.read(), 's "late"\n', "a late answer")


def stop(loop):
    answer = ask("Stop")
    loop.expect("request stop")
    return answer


def without_polkit(loop):
    contains(ask("Status", user=STRANGER), "answer ", "anyone may look")
    loop.expect("request status")
    for member, arguments in (("EnableManual", ("x", "5")), ("Stop", ()), ("Reconcile", ()),
                              ("Repair", ()), ("EnableManualV2", ("xba{sv}", "5", "true", "0"))):
        contains(refused(loop, member, *arguments), "polkit cannot be asked: ", "without polkit")
    # busctl has a text of its own for this error.
    told = subprocess.run(
        ["dbus-send", "--system", "--print-reply", "--dest=" + HELPER[0], HELPER[1],
         HELPER[2] + ".Stop"], text=True, capture_output=True, check=False, user=STRANGER,
        group=STRANGER, extra_groups=[])
    error = "org.freedesktop.DBus.Error.AccessDenied: nodod refuses this: polkit cannot be asked: "
    contains(told.stderr, error, "the caller's error")
    contains(loop.next_error(), "polkit cannot be asked: ", "its line")


def with_polkit(loop):
    answer, log = folder + "/polkit.answer", folder + "/polkit.log"

    def polkit_says(text):
        with open(answer + ".new", "w", encoding="utf-8") as file:
            file.write(text)
        os.rename(answer + ".new", answer)

    def questions():
        with open(log, encoding="utf-8") as file:
            # The last one may be under way.
            return [json.loads(line) for line in file if line.endswith("\n")]

    polkit_says("yes")
    polkit = Driven(here + "/polkit-stand-in.py", answer, log)
    polkit.expect("ready")
    contains(ask("Stop", user=STRANGER), "answer ", "allowed by polkit")
    loop.expect("request stop")
    (kind, subject, action, details, flags, cancellation), = questions()
    equal(kind, "system-bus-name", "the subject's kind")
    equal((list(subject), subject["name"][:3]), (["name"], ":1."), "the subject")
    equal((action, details, flags, cancellation), ("com.quintavel.nodo.keep-awake", {}, 0, ""),
          "the question")
    ask("Stop")
    ask("Status", user=STRANGER)
    loop.expect("request stop", "request status")
    equal(len(questions()), 1, "root and looking ask nobody")

    for says, reason in (
            ("no", "polkit does not allow com.quintavel.nodo.keep-awake"),
            ("challenge",
             "polkit wants an administrator's password for com.quintavel.nodo.keep-awake"),
            ("error", "polkit cannot be asked: not\\ntoday"),
            ("never", "polkit cannot be asked: Method call timed out")):
        polkit_says(says)
        equal(refused(loop, "Stop"), reason, f"polkit says {says}")

    descriptors_do_not_come_in(loop, polkit_says)
    nobody_waits_for_another(loop, polkit_says, questions)
    the_vanished_are_dropped(loop, polkit_says, questions)
    large_ones_do_not_wait(loop, polkit_says, questions)
    one_user_keeps_nobody_out(loop, polkit_says, questions)
    too_many_are_refused(loop, polkit_says, questions)
    polkit.end()


class Caller(Driven):
    """A process that is on the bus already: nodod gives polkit two seconds, in which a busy machine
    may not get a process started."""

    CODE = f"""
import dbus, dbus.bus, dbus.lowlevel, os, sys
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
print("connected", flush=True)
for line in sys.stdin:
    member, count = line.split()
    calls = [dbus.lowlevel.MethodCallMessage(*{HELPER!r}, member) for _ in range(int(count))]
    if len(calls) == 1:
        print(*bus.send_message_with_reply_and_block(calls[0]).get_args_list(), flush=True)
        continue
    for call in calls:
        bus.send_message(call)
    bus.flush()
    print("sent", flush=True)
"""

    def __init__(self, user=STRANGER):
        super().__init__("/usr/bin/python3", "-c", self.CODE, user=user, group=user,
                         extra_groups=[])
        self.expect("connected")

    def call(self, member):
        """Its answer is the next line."""
        self.process.stdin.write(member + " 1\n")

    def flood(self, member, count):
        """Sends them without waiting for answers."""
        self.process.stdin.write(f"{member} {count}\n")

    def hear(self, what):
        contains(self.next_line(what) or "", "answer ", what)


def descriptors_do_not_come_in(loop, polkit_says):
    """Another user's descriptors would count as the daemon's for as long as polkit thinks."""
    polkit_says("never")
    code = f"""
import dbus, dbus.bus, os, sys
os.setgid({STRANGER}); os.setuid({STRANGER})
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
def message():
    made = dbus.lowlevel.MethodCallMessage({HELPER[0]!r}, {HELPER[1]!r}, {HELPER[2]!r},
                                           "EnableManualV2")
    lent = {{str(number): dbus.types.UnixFd(0) for number in range(16)}}
    made.append(5, True, lent, signature="xba{{sv}}")
    return made
def answer():
    try:
        bus.send_message_with_reply_and_block(message(), {PATIENCE})
        return "served"
    except dbus.DBusException as error:
        return error.get_dbus_name()
print(answer())
for _ in range(300):
    bus.send_message(message())
answer()
print("sent", flush=True)
sys.stdin.read()
"""
    before = loop.descriptors()
    sender = Driven("/usr/bin/python3", "-c", code)
    sender.expect("org.freedesktop.DBus.Error.NotSupported", "sent")
    equal(loop.descriptors(), before, "descriptors while polkit thinks")
    sender.process.stdin.close()
    sender.process.wait()
    contains(ask("Status", user=STRANGER), "answer ", "the daemon lives")
    loop.expect("request status")


def nobody_waits_for_another(loop, polkit_says, questions):
    gate = folder + "/gate"
    polkit_says("late " + gate)
    asked = len(questions())
    waits, looks, root = Caller(), Caller(), Caller(user=0)
    waits.call("Stop")
    wait_until(lambda: len(questions()) == asked + 1, "polkit thinks", PATIENCE)
    root.call("Repair")
    root.hear("root is served meanwhile")
    looks.call("Status")
    looks.hear("the same user may look meanwhile")
    loop.expect("request repair", "request status")
    with open(gate, "w", encoding="utf-8"):
        pass
    waits.hear("served in the end")
    loop.expect("request stop")
    os.remove(gate)
    for caller in waits, looks, root:
        caller.end()


def the_vanished_are_dropped(loop, polkit_says, questions):
    gate = folder + "/gate"
    polkit_says("late " + gate)
    asked = len(questions())
    vanishes, stays = Caller(), Caller()
    vanishes.call("Repair")
    stays.call("Reconcile")
    wait_until(lambda: len(questions()) == asked + 2, "polkit thinks", PATIENCE)
    vanishes.end(signal.SIGKILL)
    with open(gate, "w", encoding="utf-8"):
        pass
    stays.hear("the one who stays is served")
    loop.expect("request reconcile")
    ask("Status")
    loop.expect("request status")  # and no "repair" before it
    os.remove(gate)
    stays.end()


def start_flood(loop, senders, count):
    """All at once, before the time of the first is over."""
    os.kill(loop.pid, signal.SIGSTOP)
    for one in senders:
        one.flood("Stop", count)
        one.expect("sent")
    os.kill(loop.pid, signal.SIGCONT)


def end_floods(loop, polkit_says, floods):
    for one in floods:
        one.end()
    polkit_says("yes")
    # Those who left are forgotten with their time limits; then there is room again.
    wait_until(lambda: call(HELPER, "Stop", user=STRANGER).returncode == 0, "room again", PATIENCE)
    loop.expect("request stop")
    while loop.errors.qsize():
        contains(loop.next_error(), "rejected D-Bus caller", "until then")


def error_with(loop, part):
    """The next line of the log that holds `part`."""
    line = loop.next_error(part)
    while part not in line:
        line = loop.next_error(part)
    return line


def one_user_keeps_nobody_out(loop, polkit_says, questions):
    polkit_says("late " + folder + "/never-comes")
    asked = len(questions())
    many, other = Caller(), Caller(user=OTHER_STRANGERS[0])
    start_flood(loop, [many], 60)
    contains(error_with(loop, "too many"), f"(uid {STRANGER}): too many requests of this user wait",
             "beyond a user's limit")
    other.call("Stop")
    wait_until(lambda: len(questions()) == asked + 26, "polkit is asked about another", PATIENCE)
    contains(ask("Repair"), "answer ", "root is served all the same")
    loop.expect("request repair")
    end_floods(loop, polkit_says, [many, other])


def too_many_are_refused(loop, polkit_says, questions):
    polkit_says("late " + folder + "/never-comes")
    asked = len(questions())
    floods = [Caller(user) for user in (STRANGER,) + OTHER_STRANGERS]
    start_flood(loop, floods, 60)
    wait_until(lambda: len(questions()) == asked + 100, "all places are taken", PATIENCE)
    error_with(loop, "too many requests wait for polkit")
    contains(ask("Repair"), "answer ", "root is served all the same")
    loop.expect("request repair")
    end_floods(loop, polkit_says, floods)


def large_ones_do_not_wait(loop, polkit_says, questions):
    """As they would be kept in memory until polkit answers."""
    polkit_says("yes")
    asked = len(questions())
    texts = ("EnableManualV2", "xba{sv}", "5", "true", "2", "name", "s", "pi", "context", "s")
    equal(refused(loop, *texts, 17000 * "a"), "its arguments take more than 16384 bytes", "a text")
    numbers = ("EnableManualV2", "xba{sv}", "5", "true", "1", "numbers", "v", "a(yi)", "3000")
    equal(refused(loop, *numbers, *(3000 * ("1", "2"))),
          "its arguments take more than 16384 bytes", "what nobody reads")
    code = f"""
import dbus, dbus.bus, os
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
helper = dbus.Interface(bus.get_object({HELPER[0]!r}, {HELPER[1]!r}, introspect=False), {HELPER[2]!r})
helper.EnableManualV2(5, True, dict(name=chr(0xffff)), signature="xba{{sv}}")
"""
    # The bus carries this text, but the daemon's library does not read it, nor what follows it.
    unread = subprocess.run(["/usr/bin/python3", "-c", code], text=True, capture_output=True,
                            check=False, user=STRANGER, group=STRANGER, extra_groups=[])
    contains(unread.stderr, "InvalidArgs: nodod refuses this: cannot read the arguments", "no text")
    contains(loop.next_error(), "cannot read the arguments: Bad message", "its line")
    equal(len(questions()), asked, "questions about these")
    nested = ("EnableManualV2", "xba{sv}", "5", "true", "2", "x", "v", "a{s(vad)}", "1", "y", "g",
              "as", "2", "1", "2", "name", "s", "pi")
    ask(*nested, user=STRANGER)
    loop.expect("request enableManualV2 5 extend 'pi' - -")
    ask(*texts, 17000 * "a")
    loop.expect(f"request enableManualV2 5 extend 'pi' '{17000 * 'a'}' -")


def start_call(*arguments):
    return subprocess.Popen(["busctl", "--system", "call", *HELPER, *arguments], user=STRANGER,
                            group=STRANGER, extra_groups=[], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)


def messages_to_the_locks_connection():
    """Its calls must not gather what others send to it meanwhile."""
    lock = Driven(driver, "lock")
    contains(lock.ask("take"), "disable_sleep", "a lock")
    contains(lock.ask("release"), "enable_sleep", "its end")
    before = lock.descriptors()
    bus = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")

    def is_the_locks(name):
        result = call(bus, "GetConnectionUnixProcessID", "s", name)
        return result.returncode == 0 and reply_of(result) == lock.pid

    own, = [name for name in reply_of(call(bus, "ListNames")) if name[0] == ":" and is_the_locks(name)]
    code = f"""
import dbus, dbus.bus, os
bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
for _ in range(100):
    signal = dbus.lowlevel.SignalMessage("/a", "com.example.A", "Lent")
    signal.set_destination({own!r})
    signal.append(*[dbus.types.UnixFd(0) for _ in range(16)], signature=16 * "h")
    bus.send_message(signal)
bus.flush()
bus.get_name_owner("org.freedesktop.DBus")
"""
    for _ in range(3):
        subprocess.run(["/usr/bin/python3", "-c", code], check=True, user=STRANGER, group=STRANGER,
                       extra_groups=[])
        contains(lock.ask("take"), "disable_sleep", "a lock")
        contains(lock.ask("release"), "enable_sleep", "its end")
        equal(lock.descriptors(), before, "descriptors")
    lock.process.stdin.close()
    equal(lock.process.wait(), 0, "its end")


def clients_that_die(loop):
    """A thousand clients that connect, ask and die, and two hundred at once."""
    code = f"""
import dbus, dbus.bus, os
for number in range(1000):
    bus = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
    for member in ("Status", "Stop"):
        message = dbus.lowlevel.MethodCallMessage({HELPER[0]!r}, {HELPER[1]!r}, {HELPER[2]!r}, member)
        bus.send_message(message)
    bus.flush()
    bus.close()
"""
    before = loop.descriptors()
    done = threading.Event()

    def die():
        subprocess.run(["/usr/bin/python3", "-c", code], check=True)
        done.set()

    thread = threading.Thread(target=die)
    thread.start()
    wait_until(done.is_set, "a thousand have died", PATIENCE)
    thread.join()
    many = [start_call("Status") for _ in range(200)]
    equal({one.wait() for one in many}, {0}, "two hundred at once")
    check(loop.errors.qsize() < 100, "those who are gone fill no log")
    equal(loop.descriptors(), before, "descriptors")


loop = Driven(driver, "loop", "system")
loop.expect("serving")
what_is_offered(loop)
arguments_and_answers(loop)
what_is_sent_at_once_is_answered_in_order(loop)
misdeeds_of_the_service(loop)
without_polkit(loop)
with_polkit(loop)
clients_that_die(loop)
messages_to_the_locks_connection()
equal(loop.end(), 0, "its end")
