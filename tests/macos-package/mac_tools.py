#!/usr/bin/python3 -BES
"""The tools of macOS with which nodo is built, signed, installed and removed.

Under the name of such a tool this is that tool, of the Mac whose file NODO_E2E_MAC names;
mac_standin.py is those of its sleep, of the same Mac. Each run stands in the Mac's list of runs. A
fault of the Mac, by the beginning of a command line, makes a tool fail and do nothing.
"""

import json
import os
import pathlib
import plistlib
import shutil
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "../e2e"))
from mac_standin import Mac, switch  # pylint: disable=wrong-import-position

LABEL = "com.quintavel.nodo.helper"
MARK = pathlib.Path("/var/db/com.quintavel.nodo.sleep-lock")
MORE = {
    "loaded": False,     # the daemon's service
    "state": "running",  # in which launchd shows it
    "disabled": False,   # by launchctl
    "leavesLock": False,  # the daemon, when it is ended
    "homes": {"root": "/var/root", "_www": "/Library/WebServer"},
    "receipts": [],
    "certificate": "Q7K2M9X4TZ",  # the team of whoever signs
    "signed": {"flags": "0x10000(runtime)", "more": "Timestamp=Nov 22, 2026 at 09:00:00\n"},
    "foreign": "",       # a library that the programs need
    "processors": "x86_64 arm64",
}


def build_mac():
    mac = Mac(os.environ["NODO_E2E_MAC"])
    mac.build()
    mac.change(**MORE)
    return mac


# ---- launchctl


def show(model, _name):
    if not model["loaded"]:
        return "Could not find service in domain for system\n", 113
    return f"system/{LABEL} = {{\n\tstate = {model['state']}\n}}\n", 0


def boot_out(model, _name):
    """The daemon is asked to end, and releases its lock."""
    if not model["loaded"]:
        return "Boot-out failed: 3: No such process\n", 3
    model["loaded"] = False
    if not model["leavesLock"]:
        switch(model, False)
        MARK.unlink(missing_ok=True)
    return "", 0


def bootstrap(model, _domain, property_list):
    """As strict as launchd is about who may change what runs as root."""
    if model["loaded"] or model["disabled"]:
        return "Bootstrap failed: 5: Input/output error\n", 5
    with open(property_list, "rb") as file:
        program = plistlib.load(file)["Program"]
    for path, mode in [(property_list, 0o644), (program, 0o755)]:
        status = os.stat(path)
        if (status.st_uid, status.st_gid, status.st_mode & 0o7777) != (0, 0, mode):
            return f"Bootstrap failed: {path} has a dubious owner or mode\n", 122
    model["loaded"] = True
    return "", 0


def enable(model, _name):
    model["disabled"] = False
    return "", 0


def kickstart(model, _name):
    return ("", 0) if model["loaded"] else ("No such process\n", 3)


LAUNCHCTL = {"print": show, "bootout": boot_out, "bootstrap": bootstrap, "enable": enable,
             "kickstart": kickstart}


def launchctl(model, verb, *arguments):
    return LAUNCHCTL[verb](model, *arguments)


# ---- users and receipts


def dscl(model, *_arguments):
    return "".join(f"{name:24}{home}\n" for name, home in model["homes"].items()), 0


def pkgutil(model, verb, receipt):
    if receipt not in model["receipts"]:
        return f"No receipt for '{receipt}' found at '/'.\n", 1
    if verb == "--forget":
        model["receipts"].remove(receipt)
    return "", 0


# ---- signatures and packages


def codesign(model, *arguments):
    """What it signs becomes a text with the signature's fields, as far as they are asked for."""
    file = pathlib.Path(arguments[-1])
    if file.is_dir():
        file = file / "signature"
    if "--sign" in arguments:
        identifier = file.name
        if "--identifier" in arguments:
            identifier = arguments[arguments.index("--identifier") + 1]
        file.write_text(f"Identifier={identifier}\nTeamIdentifier={model['certificate']}\n"
                        f"CodeDirectory v=20500 flags={model['signed']['flags']}\n"
                        f"{model['signed']['more']}", encoding="utf-8")
        return "", 0
    text = file.read_text(encoding="utf-8")
    if "--display" in arguments:
        print(text, file=sys.stderr)
        return "", 0
    shown = dict(line.split("=", 1) for line in text.splitlines())
    asked = [f'"{shown[field]}"' for field in ["Identifier", "TeamIdentifier"]]
    for rule in arguments:
        if rule.startswith("-R=") and not all(value in rule for value in asked):
            return "code failed to satisfy specified code requirement(s)\n", 3
    return "", 0


def macdeployqt(_model, bundle):
    framework = pathlib.Path(bundle) / "Contents/Frameworks/QtCore.framework"
    framework.mkdir(parents=True)
    plugin = pathlib.Path(bundle) / "Contents/PlugIns/platforms/libqcocoa.dylib"
    plugin.parent.mkdir(parents=True)
    plugin.write_text("a library", encoding="utf-8")
    return "", 0


def otool(model, *arguments):
    bundled = ""
    if arguments[-1].endswith("/nodo-menu"):
        bundled = ("\t@executable_path/../Frameworks/QtCore.framework/Versions/A/QtCore "
                   "(compatibility version 6.0.0, current version 6.8.0)\n")
    return ("nodod (architecture arm64):\n"
            "\t/usr/lib/libSystem.B.dylib (compatibility version 1.0.0, current version 1.0.0)\n"
            "\t/System/Library/Frameworks/Security.framework/Versions/A/Security "
            "(compatibility version 1.0.0, current version 1.0.0)\n"
            f"{bundled}{model['foreign']}"), 0


def lipo(model, *_arguments):
    return model["processors"] + "\n", 0


def plutil(_model, *arguments):
    with open(arguments[-1], "rb") as file:
        plistlib.load(file)
    return "", 0


def pkgbuild(_model, *arguments):
    """Its package is a folder here, with what went into it and how."""
    options = dict(zip(arguments[:-1:2], arguments[1:-1:2]))
    package = pathlib.Path(arguments[-1])
    shutil.copytree(options["--root"], package / "root")
    shutil.copytree(options["--scripts"], package / "scripts")
    (package / "options.json").write_text(json.dumps(options), encoding="utf-8")
    return "", 0


def productbuild(_model, *arguments):
    package = pathlib.Path(arguments[-1])
    folder = pathlib.Path(arguments[arguments.index("--package-path") + 1])
    shutil.copytree(folder, package)
    (package / "arguments").write_text(" ".join(arguments), encoding="utf-8")
    return "", 0


TOOLS = {"launchctl": launchctl, "dscl": dscl, "pkgutil": pkgutil, "codesign": codesign,
         "otool": otool, "lipo": lipo, "plutil": plutil, "pkgbuild": pkgbuild,
         "productbuild": productbuild, "macdeployqt": macdeployqt,
         "xcrun": lambda *_arguments: ("", 0),
         "spctl": lambda *_arguments: ("", 0)}


def main():
    tool = os.path.basename(sys.argv[0])
    command_line = " ".join([tool, *sys.argv[1:]])
    with Mac(os.environ["NODO_E2E_MAC"]).model() as model:
        if any(command_line.startswith(fault) for fault in model["faults"]):
            output, status = f"{tool}: refused\n", 1
        else:
            output, status = TOOLS[tool](model, *sys.argv[1:])
        model["runs"].append([command_line, model["kernel"], status])
    print(output, end="", file=sys.stdout if status == 0 else sys.stderr)
    sys.exit(status)


if __name__ == "__main__":
    main()
