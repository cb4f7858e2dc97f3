#!/usr/bin/env python3
"""Reads the property lists that macOS gets, and compares them with the names that the library uses.

usage: check-launchd.py ROOT
"""

import plistlib
import re
import sys
from pathlib import Path

root = Path(sys.argv[1])
folder = root / "packaging/macos"
constants = dict(
    re.findall(
        r'string_view (\w+) = "?([\w.]+)"?;',
        (root / "NODOCore/helper/NODOServiceConstants.h").read_text(),
    )
)
label = constants["helperLabel"]
nodod = "/some where/sbin/nodod"


def check(name, found, expected):
    if found != expected:
        sys.exit(f"{name}: expected {expected!r}, found {found!r}")
    print(f"{name}: {found!r}")


check("file name", constants["helperPlistName"], label + ".plist")
template = (folder / (constants["helperPlistName"] + ".in")).read_text()
check("places to fill in", re.findall(r"@\w*@", template), ["@NODO_NODOD@"])
service = plistlib.loads(template.replace("@NODO_NODOD@", nodod).encode())
check("label", service["Label"], label)
check("services", service["MachServices"], {label: True})
check("owner", service["AssociatedBundleIdentifiers"], [constants["appBundleIdentifier"]])
check("program", service["Program"], nodod)
check("starts with the machine", service["RunAtLoad"], True)
check("is started again after a crash only", service["KeepAlive"], {"SuccessfulExit": False})
known = {"Label", "AssociatedBundleIdentifiers", "Program", "MachServices", "RunAtLoad", "KeepAlive"}
check("further keys", sorted(set(service) - known), ["ProcessType", "StandardErrorPath"])

entitlements = plistlib.loads((folder / "nodo.entitlements").read_bytes())
if not entitlements or any(value is not False for value in entitlements.values()):
    sys.exit(f"no entitlement opens the programs to others: {entitlements}")

# The steps by hand repeat the requirement, so they have to keep up with it.
checklist = (folder / "CHECKLIST.md").read_text()
for name in ("developmentTeamID", "appBundleIdentifier", "ctlBundleIdentifier"):
    if f'"{constants[name]}"' not in checklist:
        sys.exit(f"the checklist does not name the {name} {constants[name]}")
