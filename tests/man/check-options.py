#!/usr/bin/python3 -B
"""Each command and option of a program's help stands in its man page, where a reader looks for it:
an option of a command with that command, or with the options of all.

usage: check-options.py PAGE PROGRAM
"""

import re
import shutil
import subprocess
import sys

if shutil.which("groff") is None:
    print("skipped: groff is not installed", file=sys.stderr)
    sys.exit(77)

page, program = sys.argv[1:]
problems = []


def help_of(command):
    return subprocess.run(
        [program, *command, "--help"], check=True, capture_output=True, text=True
    ).stdout


def section_of_help(text, name):
    """The names that a section of the help lists, each with what stands after it on its line."""
    body = re.search(rf"^{name}:\n((?: .*\n|\n)*)", text, re.MULTILINE)
    return re.findall(r"^  ([-a-z]\S*)(.*)$", body[1], re.MULTILINE) if body else []


class Page:
    """A rendered page by its headings; the commands' are indented."""

    def __init__(self, text):
        self.parts = {}
        heading = ""
        for line in text.splitlines():
            if re.match(r" {0,3}\S", line):
                heading = line.strip()
            self.parts[heading] = self.parts.get(heading, "") + line + "\n"

    def of_command(self, command):
        for heading, text in self.parts.items():
            if " ".join(command) in heading.split(", "):
                return text
        return ""

    def options(self):
        return self.parts.get("OPTIONS", "")


def has_word(text, word):
    return re.search(rf"(?<![-\w]){re.escape(word)}(?![-\w])", text) is not None


def check(command, man):
    name = " ".join([program.rpartition("/")[2], *command])
    text = help_of(command)
    commands = section_of_help(text, "Subcommands")
    own = man.of_command(command) if command else ""
    if command and not commands and not own:
        problems.append(f"{name}: the page has no heading for it")
    for spelled, rest in section_of_help(text, "Options"):
        for option in spelled.split(","):
            if not has_word(own + man.options(), option):
                problems.append(f"{name}: the page does not tell of {option}")
        value = re.match(r" ([A-Z]+)\b", rest)
        if value and not has_word(own + man.options(), value[1]):
            problems.append(f"{name}: the page calls the value of {spelled} otherwise")
    return 1 + sum(check((*command, each), man) for each, _ in commands)


def main():
    text = subprocess.run(
        ["groff", "-man", "-t", "-Tascii", "-P-cbou", "-rHY=0", page],
        check=True,
        capture_output=True,
        text=True,
    ).stdout
    man = Page(text)
    if not man.options():
        problems.append("the page has no options at all")
    if not section_of_help(help_of(()), "Options"):
        problems.append("the help names no option, or in another way than is known here")
    checked = check((), man)
    for problem in problems:
        print(f"FAILED: {problem}", file=sys.stderr)
    print(f"{checked} helps compared")
    sys.exit(1 if problems else 0)


main()
