"""What the scripts of this folder expect, and how they say so."""

import sys
import time


def skip(reason):
    print(f"skipped: {reason}", file=sys.stderr)
    sys.exit(77)


def check(condition, what):
    if not condition:
        raise AssertionError(what)


def equal(actual, expected, what):
    check(actual == expected, f"{what}: expected {expected!r}, got {actual!r}")


def wait_until(condition, what, limit=10.0):
    """Returns what `condition` gives once that is true."""
    end = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        check(time.monotonic() < end, f"not within {limit} s: {what}")
        time.sleep(0.005)
