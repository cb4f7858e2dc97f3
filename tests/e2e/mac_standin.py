#!/usr/bin/python3 -BES
"""A Mac, as far as its sleep goes, and its tools.

Under the name pmset, ioreg, route or ps this is that tool, of the Mac whose file NODO_E2E_MAC
names. What pmset says and what the kernel does are two things here, as they are on a Mac: pmset
writes a preference and exits 0 even where it could not; powerd makes the preference the kernel's
flag a moment later, and at every start of the machine; while the flag is set nothing puts the
machine to sleep, no lid, no 'pmset sleepnow' (exit 71), no empty battery; and once it is cleared
nobody looks at the lid again.
"""

import contextlib
import fcntl
import json
import os
import signal
import sys
import time

NEW = {
    "preference": None,    # of pmset, on disk; None: never set
    "kernel": None,        # the flag; None: not set since the start
    "powerdDelay": 0,      # seconds from the preference to the flag
    "powerdApplies": None,  # when it will next
    "lidClosed": False,    # None: a Mac without a lid
    "source": "AC Power",
    "percent": 80,
    "route": True,
    "asleep": False,
    "faults": {},          # by command line, else by tool: "lies", "refuses", "hangs"
    "runs": [],            # each command line, the kernel's flag when it ended, its exit status
}
SLEEP_IS_DISABLED = 71
WRONG_USE = 64


class Mac:
    """The machine, in a file, which each process changes alone."""

    def __init__(self, file):
        self.file = file

    @contextlib.contextmanager
    def model(self):
        """What it is by now. Changes are kept."""
        with open(f"{self.file}.lock", "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            with open(self.file, encoding="utf-8") as file:
                model = json.load(file)
            apply_preference(model)
            yield model
            apply_preference(model)
            with open(f"{self.file}.new", "w", encoding="utf-8") as file:
                json.dump(model, file)
            os.replace(f"{self.file}.new", self.file)

    # ---- what happens to it

    def build(self):
        with open(self.file, "w", encoding="utf-8") as file:
            json.dump(NEW, file)

    def change(self, **values):
        with self.model() as model:
            model.update(values)

    def close_lid(self):
        """On battery that puts it to sleep, unless it is kept from it."""
        with self.model() as model:
            model["lidClosed"] = True
            if model["source"] != "AC Power":
                sleep_unless_disabled(model)

    def need_emergency_sleep(self):
        """The battery is empty. Tells whether the machine saves itself."""
        with self.model() as model:
            model["percent"] = 1
            return sleep_unless_disabled(model)

    def restart(self):
        """The kernel forgets, powerd applies what is on disk."""
        with self.model() as model:
            model.update(kernel=None, asleep=False)
            if model["preference"] is not None:
                model["powerdApplies"] = time.monotonic() + model["powerdDelay"]

    # ---- what it is

    def now(self):
        with self.model() as model:
            return model

    def sleep_is_disabled(self):
        return bool(self.now()["kernel"])

    def runs(self, command_line):
        """Each run of it: the kernel's flag when it ended, and its exit status."""
        return [(flag, status) for line, flag, status in self.now()["runs"] if line == command_line]


def apply_preference(model):
    """Powerd does its work, where it is time."""
    if model["powerdApplies"] is not None and model["powerdApplies"] <= time.monotonic():
        model.update(kernel=model["preference"], powerdApplies=None)


def sleep_unless_disabled(model):
    model["asleep"] = model["asleep"] or not model["kernel"]
    return model["asleep"]


# ---- its tools, each of which gives its output and exit status


def switch(model, disabled):
    model.update(preference=disabled, powerdApplies=time.monotonic() + model["powerdDelay"])
    return "", 0


def sleep_now(model):
    if sleep_unless_disabled(model):
        return "Sleeping now...\n", 0
    return "", SLEEP_IS_DISABLED


def live_settings(model):
    """Of the preference alone."""
    shown = "" if model["preference"] is None else f" SleepDisabled\t\t{int(model['preference'])}\n"
    return f"System-wide power settings:\n{shown}Currently in use:\n sleep                1\n", 0


def battery(model):
    how = "charged" if model["source"] == "AC Power" else "discharging"
    return (f"Now drawing from '{model['source']}'\n -InternalBattery-0 (id=4522083)\t"
            f"{model['percent']}%; {how}; 0:00 remaining present: true\n"), 0


def power_domain(model):
    shown = {"AppleClamshellState": model["lidClosed"], "SleepDisabled": model["kernel"]}
    lines = "".join(f'    "{key}" = {"Yes" if value else "No"}\n'
                    for key, value in shown.items() if value is not None)
    return ("+-o IOPMrootDomain  <class IOPMrootDomain, id 0x10000010e, registered, matched>\n"
            f"  {{\n{lines}  }}\n\n"), 0


def power_domain_by_lid(model):
    return ("", 0) if model["lidClosed"] is None else power_domain(model)


def default_route(model):
    if model["route"]:
        return "   route to: default\n    gateway: 192.0.2.1\n  interface: en0\n", 0
    return "", 1


def processes(_model):
    return "    1     0 /sbin/launchd    /sbin/launchd\n", 0


TOOLS = {
    "pmset -a disablesleep 1": lambda model: switch(model, True),
    "pmset -a disablesleep 0": lambda model: switch(model, False),
    "pmset sleepnow": sleep_now,
    "pmset -g live": live_settings,
    "pmset -g batt": battery,
    "ioreg -r -k AppleClamshellState -d 4": power_domain_by_lid,
    "ioreg -r -c IOPMrootDomain -d 1": power_domain,
    "route -n get default": default_route,
    "ps -axo pid=,ppid=,comm=,command=": processes,
}


def use(model, tool, command_line):
    """What comes of running it; None where nothing ever does."""
    fault = model["faults"].get(command_line, model["faults"].get(tool))
    if fault == "hangs":
        return None
    if fault == "lies":
        # pmset's own words for a preference that could not be written, after which it exits 0.
        said = f"{tool}: failed to set the value.\n" if "disablesleep" in command_line else ""
        return said, 0
    if fault == "refuses":
        print(f"{tool}: refused", file=sys.stderr)
        return "", 1
    if command_line not in TOOLS:
        return "", WRONG_USE
    return TOOLS[command_line](model)


def main():
    tool = os.path.basename(sys.argv[0])
    command_line = " ".join([tool, *sys.argv[1:]])
    with Mac(os.environ["NODO_E2E_MAC"]).model() as model:
        result = use(model, tool, command_line)
        apply_preference(model)
        model["runs"].append([command_line, model["kernel"], result and result[1]])
    while result is None:
        signal.pause()
    output, status = result
    sys.stdout.write(output)
    sys.exit(status)


if __name__ == "__main__":
    main()
