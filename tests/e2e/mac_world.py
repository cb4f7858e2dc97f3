"""The real nodod with the lock of macOS, on a stand-in of a Mac: what the daemon-mac scripts share.

They run by with-mac and 'unshare --net'. Each test has a Mac, a state and a daemon of its own.
"""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import time

from buses import HELPER
from clients import connect
from daemon_world import Daemon
from expectations import equal
from mac_standin import Mac

# As the daemon runs them, without their folders.
SWITCH_ON = "pmset -a disablesleep 1"
SWITCH_OFF = "pmset -a disablesleep 0"
SLEEP_NOW = "pmset sleepnow"
BATTERY = {"source": "Battery Power", "percent": 80}
MARK = pathlib.Path("/var/lib/com.quintavel.nodo.sleep-lock")  # of with-mac's own /var/lib
TOOL_LIMIT = 10  # seconds, which the daemon gives each tool


class MacDaemon(Daemon):
    """The daemon, as launchd starts it but for its bus."""

    def __init__(self, nodod, nodoctl, bus):
        super().__init__(nodod, bus)
        self.nodoctl = nodoctl
        self.mac = Mac(os.environ["NODO_E2E_MAC"])

    def command(self):
        return [self.program, "--bus", "system", "--power", "pmset", "--state-dir",
                self.state_folder]

    def start(self, *options):
        """Its first pass is done then."""
        super().start(*options)
        self.call("Status")

    def renew(self):
        """A Mac and a state that nothing has happened to yet."""
        self.mac.build()
        shutil.rmtree(self.state_folder, ignore_errors=True)
        self.log_file.unlink(missing_ok=True)
        MARK.unlink(missing_ok=True)

    def call(self, method, signature="", arguments=()):
        """The reply's envelope, also of a request for which many tools hang."""
        return json.loads(self.bus.call_blocking(*HELPER, method, signature, arguments,
                                                 timeout=12 * TOOL_LIMIT))

    def run_nodoctl(self, *arguments):
        return subprocess.run(
            [self.nodoctl, *arguments, "--bus", "system", "--helper-timeout", "60"],
            capture_output=True, text=True, check=False, timeout=90)

    def reconcile(self):
        return self.call("Reconcile")

    def expect_lock(self, stands, what):
        """By the kernel's own word."""
        equal(self.mac.sleep_is_disabled(), stands, f"the kernel's flag {what}")

    def end(self):
        if self.process and self.process.poll() is None:
            self.kill()


def main(tests):
    """Runs each of `tests(daemon, mac)`, tells which of them fail, and ends with 1 if one does.
    The arguments are the programs nodod and nodoctl, then the names of the tests if not all."""
    bus = connect()
    failures = 0
    for test in tests:
        if sys.argv[3:] and test.__name__ not in sys.argv[3:]:
            continue
        daemon = MacDaemon(*sys.argv[1:3], bus)
        daemon.renew()
        began = time.monotonic()
        try:
            test(daemon, daemon.mac)
            print(f"passed: {test.__name__} ({time.monotonic() - began:.1f} s)")
        except Exception as error:  # pylint: disable=broad-except  # told, and the next one is run
            failures += 1
            print(f"FAILED: {test.__name__}: {error!r}\nnodod said at last:\n"
                  f"{daemon.log()[-2000:]}", file=sys.stderr)
        finally:
            daemon.end()
    sys.exit(1 if failures else 0)
