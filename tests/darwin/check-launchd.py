#!/usr/bin/env python3
"""Reads the property lists that macOS gets, and compares them with the names that the library uses.

usage: check-launchd.py ROOT
"""

import plistlib
import re
import sys
from pathlib import Path

NODOD = "/some where/sbin/nodod"
KEYS = {"Label", "AssociatedBundleIdentifiers", "Program", "MachServices", "RunAtLoad",
        "KeepAlive"}


def check(what, found, expected):
    if found != expected:
        sys.exit(f"{what}: expected {expected!r}, found {found!r}")
    print(f"{what}: {found!r}")


def check_service(constants, template):
    label = constants["helperLabel"]
    check("file name", constants["helperPlistName"], label + ".plist")
    check("places to fill in", re.findall(r"@\w*@", template), ["@NODO_NODOD@"])
    service = plistlib.loads(template.replace("@NODO_NODOD@", NODOD).encode())
    check("label", service["Label"], label)
    check("services", service["MachServices"], {label: True})
    check("owner", service["AssociatedBundleIdentifiers"], [constants["appBundleIdentifier"]])
    check("program", service["Program"], NODOD)
    check("starts with the machine", service["RunAtLoad"], True)
    check("is started again after a crash only", service["KeepAlive"], {"SuccessfulExit": False})
    check("further keys", sorted(set(service) - KEYS), ["ProcessType", "StandardErrorPath"])


def main():
    root = Path(sys.argv[1])
    folder = root / "packaging/macos"
    headers = (root / "NODOCore/helper").glob("*.h")
    constants = dict(re.findall(r'string_view (\w+) = "?([\w.]+)"?;',
                                "".join(header.read_text(encoding="utf-8") for header in headers)))
    template = folder / (constants["helperPlistName"] + ".in")
    check_service(constants, template.read_text(encoding="utf-8"))

    entitlements = plistlib.loads((folder / "nodo.entitlements").read_bytes())
    if not entitlements or any(value is not False for value in entitlements.values()):
        sys.exit(f"no entitlement opens the programs to others: {entitlements}")

    # The steps by hand repeat the requirement, so they have to keep up with it.
    checklist = (folder / "CHECKLIST.md").read_text(encoding="utf-8")
    for name in ("developmentTeamID", "appBundleIdentifier", "ctlBundleIdentifier"):
        if f'"{constants[name]}"' not in checklist:
            sys.exit(f"the checklist does not name the {name} {constants[name]}")


main()
