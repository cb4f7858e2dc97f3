"""nodo_daemon_driver, which the scripts here drive: it is their first argument. A second one names
the test that is to be run, where each is run alone."""

import sys

from buses import HELPER, call, reply_of
from expectations import check, equal
from laptop import FOLDER
from processes import NOBODY, Driven

DRIVER = sys.argv[1]
NOWHERE = f"unix:path={FOLDER}/nowhere"


def start_loop(bus="system", **options):
    loop = Driven(DRIVER, "loop", bus, **options)
    loop.expect("serving")
    return loop


def set_timer(loop, milliseconds, **options):
    """Has the loop's timer fire then; it tells of that by a line."""
    request_by_name(loop, "timer", milliseconds, **options)


def hold_lock(loop, held):
    request_by_name(loop, "lock", held)


def request_by_name(loop, name, number, **options):
    reply_of(call(HELPER, "EnableManualV2", "xba{sv}", str(number), "true", "1", "name", "s", name,
                  **options))
    loop.expect(f"request enableManualV2 {number} extend '{name}' - -")


def end_well(loop):
    equal(loop.end(), 0, "its end")


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


def the_test(functions):
    return functions[sys.argv[2]]
