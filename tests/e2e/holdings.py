"""What a daemon holds, for checks that it gives back what its clients cost it."""

import os
import struct
import time

from daemon_world import date
from expectations import wait_until
from laptop import FOLDER
from processes import environment

STEADY = 40  # looks, 5 ms apart
# What comes with the first that needs it and stays, as a queue's room, is no leak.
MADE_ONCE = {"descriptors": 0, "mappings": 0, "blocks of memory": 10}


class Holdings:
    """Of a daemon that is started with `environment`, in which the module counts its blocks."""

    def __init__(self, tally_module):
        self.tally = FOLDER / f"heap.{os.getpid()}"
        self.environment = environment(LD_PRELOAD=str(tally_module),
                                       NODO_HEAP_TALLY=str(self.tally))

    def now(self, pid):
        with open(f"/proc/{pid}/maps", encoding="ascii") as mappings:
            return {"descriptors": len(os.listdir(f"/proc/{pid}/fd")),
                    "mappings": sum("[heap]" not in mapping for mapping in mappings),
                    "blocks of memory": struct.unpack("q", self.tally.read_bytes())[0]}

    def at_rest(self, pid):
        """Once they stay the same: the last of those who are gone may still be served."""
        seen = []

        def stays():
            seen.append(self.now(pid))
            return len(seen) >= STEADY and all(value == seen[-1] for value in seen[-STEADY:])

        wait_until(stays, "the daemon is at rest")
        return seen[-1]

    def await_return_to(self, before, pid):
        """Returns what it holds then."""
        after = {}

        def is_given_back():
            after.update(self.now(pid))
            return all(held <= before[what] + MADE_ONCE[what] for what, held in after.items())

        try:
            wait_until(is_given_back, "what was taken is given back")
        except AssertionError as error:
            raise AssertionError(f"{error}: before {before}, after {after}") from None
        return after


def full_history():
    """As many requests as a state remembers, so that it does not grow while it is watched."""
    now = time.time()
    return [{"name": f"dying {index % 7}", "requestedAt": date(now - index)}
            for index in reversed(range(500))]
