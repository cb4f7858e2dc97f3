#!/usr/bin/env python3
"""Reads the property lists that macOS gets, and compares them with the names that the library uses.

usage: check-launchd.py ROOT
"""

import plistlib
import re
import sys
from pathlib import Path

NODOD = "/Library/PrivilegedHelperTools/nodod"
LOG = "/Library/Logs/nodod.log"
TOOL_LIMIT = 10  # seconds, which the daemon gives each of the tools by which it releases the lock
KEYS = {"Label", "AssociatedBundleIdentifiers", "Program", "ProgramArguments", "MachServices",
        "RunAtLoad", "KeepAlive", "ExitTimeOut", "StandardErrorPath", "ProcessType"}


def check(what, found, expected):
    if found != expected:
        sys.exit(f"{what}: expected {expected!r}, found {found!r}")
    print(f"{what}: {found!r}")


def check_service(constants, service):
    label = constants["helperLabel"]
    check("file name", constants["helperPlistName"], label + ".plist")
    check("label", service["Label"], label)
    check("services", service["MachServices"], {label: True})
    check("owner", service["AssociatedBundleIdentifiers"], [constants["appBundleIdentifier"]])
    check("program", service["Program"], NODOD)
    check("arguments", service["ProgramArguments"], ["nodod", "--log", LOG])
    check("starts with the machine", service["RunAtLoad"], True)
    check("is started again after a crash only", service["KeepAlive"], {"SuccessfulExit": False})
    check("may take its time to release the lock", service["ExitTimeOut"] > 4 * TOOL_LIMIT, True)
    check("log", service["StandardErrorPath"], LOG)
    check("timers", service["ProcessType"], "Standard")
    check("keys", set(service), KEYS)


def check_app(constants, text):
    """CMake fills in the rest."""
    app = plistlib.loads(text)
    # The daemon serves whom its signature calls so, and Login Items lists the daemon below it.
    check("the app", app["CFBundleIdentifier"], constants["appBundleIdentifier"])
    check("is in the menu bar alone", app["LSUIElement"], True)
    check("the oldest system", app["LSMinimumSystemVersion"], "13.0")
    check("what it runs", app["CFBundleExecutable"], "${MACOSX_BUNDLE_EXECUTABLE_NAME}")
    check("its version", (app["CFBundleVersion"], app["CFBundleShortVersionString"]),
          ("${MACOSX_BUNDLE_BUNDLE_VERSION}", "${MACOSX_BUNDLE_SHORT_VERSION_STRING}"))


def check_log_is_bounded(configuration):
    lines = [line.split() for line in configuration.splitlines() if line[:1] not in ("", "#")]
    check("logs that are turned over", [line[0] for line in lines], [LOG])
    _log, _owner, _mode, count, size, when, flags = lines[0]
    check("how many at most, of how many KiB, at which time", (count, size, when),
          ("3", "1024", "*"))
    # A compressed file could lose a line that is just being written.
    check("what else is done to them", flags, "N")


def check_names_in_scripts(constants, folder):
    """They repeat what the library calls things."""
    for name, scripts in [("helperLabel", ["sign", "nodo-uninstall", "installer/preinstall",
                                           "installer/postinstall"]),
                          ("appBundleIdentifier", ["sign"]), ("ctlBundleIdentifier", ["sign"])]:
        for script in scripts:
            text = (folder / script).read_text(encoding="utf-8")
            check(f"{name} in {script}", f"={constants[name]}\n" in text, True)


def main():
    root = Path(sys.argv[1])
    folder = root / "packaging/macos"
    headers = (root / "NODOCore/helper").glob("*.h")
    text = "".join(header.read_text(encoding="utf-8") for header in headers)
    constants = dict(re.findall(r'string_view (\w+) = "?([\w.]+)"?;', text))
    constants["developmentTeamID"] = re.search(r'define NODO_TEAM_IDENTIFIER "(\w+)"', text)[1]
    check_service(constants, plistlib.loads((folder / constants["helperPlistName"]).read_bytes()))
    check_app(constants, (folder / "nodo-menu.plist.in").read_bytes())
    check_log_is_bounded((folder / "nodo.newsyslog.conf").read_text(encoding="utf-8"))
    check_names_in_scripts(constants, folder)

    entitlements = plistlib.loads((folder / "nodo.entitlements").read_bytes())
    if not entitlements or any(value is not False for value in entitlements.values()):
        sys.exit(f"no entitlement opens the programs to others: {entitlements}")

    # The steps by hand repeat the requirement, so they have to keep up with it.
    checklist = (folder / "CHECKLIST.md").read_text(encoding="utf-8")
    for name in ("developmentTeamID", "appBundleIdentifier", "ctlBundleIdentifier"):
        if f'"{constants[name]}"' not in checklist:
            sys.exit(f"the checklist does not name the {name} {constants[name]}")


main()
