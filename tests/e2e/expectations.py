"""What the end-to-end tests expect, and how they say so. with-logind lets its scripts import it."""

import socket
import sys
import time

PATIENCE = 20  # seconds, for machines that have much else to do


def skip(reason):
    print(f"skipped: {reason}", file=sys.stderr)
    sys.exit(77)


def check(condition, what):
    if not condition:
        raise AssertionError(what)


def equal(actual, expected, what):
    check(actual == expected, f"{what}: expected {expected!r}, got {actual!r}")


def contains(text, part, what):
    check(part in (text or ""), f"{what}: no {part!r} in {text!r}")


def listens(path):
    """Whether somebody listens at a socket, whose file is there a moment earlier."""
    with socket.socket(socket.AF_UNIX) as client:
        return client.connect_ex(path) == 0


def wait_until(condition, what, limit=10.0):
    """Returns what `condition` gives once that is true."""
    end = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        check(time.monotonic() < end, f"not within {limit} s: {what}")
        time.sleep(0.005)
