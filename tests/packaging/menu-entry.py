#!/usr/bin/python3 -B
"""What desktops are told of nodo-menu is valid and names what there is, and each state has an icon
that panels can recolour.

usage: menu-entry.py PROJECT-FOLDER
"""

import configparser
import re
import shutil
import subprocess
import sys
from pathlib import Path
from xml.etree import ElementTree

NAME = "com.quintavel.nodo.menu"
SVG = "{http://www.w3.org/2000/svg}"

for tool in ["desktop-file-validate", "appstreamcli"]:
    if shutil.which(tool) is None:
        print(f"skipped: {tool} is not installed", file=sys.stderr)
        sys.exit(77)

root = Path(sys.argv[1])
icons = root / "programs/nodo-menu/icons"
desktop = root / f"packaging/linux/{NAME}.desktop"
metainfo = root / f"packaging/linux/{NAME}.metainfo.xml"
problems = []


def expect(condition, what):
    if not condition:
        problems.append(what)


def validate(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False, timeout=50)
    # One of them exits well with warnings.
    expect(result.returncode == 0 and "warning" not in result.stdout,
           f"{command[0]}: {result.stdout}{result.stderr}")


def entry_names_what_there_is():
    entry = configparser.RawConfigParser()
    entry.optionxform = str
    entry.read(desktop, "utf-8")
    entry = entry["Desktop Entry"]
    component = ElementTree.parse(metainfo).getroot()
    expect((icons / f"{entry['Icon']}.svg").is_file(), f"there is no icon {entry['Icon']}")
    expect(component.findtext("icon") == entry["Icon"], "both name another icon")
    expect(component.findtext("launchable") == desktop.name, "the metadata launch another entry")
    expect(component.findtext("id") == NAME, "the metadata are of another component")
    expect(entry["Exec"].split()[0] == component.findtext("provides/binary") == entry["TryExec"],
           "both name another program")


def is_recolourable(icon):
    """Some panels fill whatever they find, and leave strokes as they are."""
    drawing = ElementTree.parse(icon).getroot()
    (group,) = drawing.findall(f"{SVG}g")
    expect(group.get("class") == "ColorScheme-Text" and group.get("fill") == "currentColor",
           f"{icon.name}: it is not filled with the panel's colour")
    expect({child.tag for child in drawing} == {f"{SVG}style", f"{SVG}g"}
           and {child.tag for child in group} == {f"{SVG}path"}
           and all(set(child.attrib) == {"d"} for child in group),
           f"{icon.name}: it has more than paths of the one colour")
    colours = set(re.findall(r"#[0-9a-f]+", icon.read_text("utf-8")))
    expect(colours == {"#bebebe"}, f"{icon.name}: its colours are {colours}")
    return "".join(path.get("d", "") for path in group)


def each_state_has_its_icon():
    header = (root / "NODOCore/presentation/MenuReport.h").read_text("utf-8")
    states = re.findall(r'EnumText\{MenuBarIconState::\w+, "(\w+)"\}', header)
    expect(len(states) >= 4, f"only {len(states)} states were found")
    names = {f"nodo-menu-{state.lower()}-symbolic.svg" for state in states}
    found = {icon.name for icon in icons.glob("*-symbolic.svg")}
    expect(found == names, f"the symbolic icons are {sorted(found)}")
    shapes = {is_recolourable(icons / name) for name in names & found}
    expect(len(shapes) == len(names), "two states look the same")
    carried = {file.text for file in ElementTree.parse(icons / "icons.qrc").iter("file")}
    expect(carried == {icon.name for icon in icons.glob("*.svg")},
           f"the program carries {sorted(carried)}")


validate("desktop-file-validate", str(desktop))
validate("appstreamcli", "validate", "--no-net", "--no-color", str(metainfo))
entry_names_what_there_is()
each_state_has_its_icon()
for problem in problems:
    print(f"FAILED: {problem}", file=sys.stderr)
sys.exit(1 if problems else 0)
