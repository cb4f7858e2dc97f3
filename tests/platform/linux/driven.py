"""nodo_daemon_driver, which the scripts here drive: it is their first argument."""

import sys

from buses import HELPER, call, reply_of
from expectations import equal
from laptop import FOLDER
from processes import Driven

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
