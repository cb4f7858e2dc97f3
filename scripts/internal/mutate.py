#!/usr/bin/env python3
"""Makes mutants of sources, one small fault each, and tells which of them the tests let live.

usage: mutate.py PROJECT BUILD [--limit N] [--seed N] [--jobs N] FILE ...

Run by scripts/mutate, which builds what this links: the test objects of the folders below and the
libraries in the folder BUILD. A mutant is one source, compiled from a changed copy and linked with
these; the checkout stays as it is.
"""

import argparse
import json
import random
import re
import shlex
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

TEST_FOLDERS = ("state", "control", "daemon")
LIBRARIES = ("testing/libnodo_testing.a", "NODOCore/libNODOCore.a")
# They take minutes, and what a long walk comes across should be found by a short one or a test.
LEFT_OUT = "-*Randomised*:*Deep:*Seeded*"
MEMORY_IN_KIB = 4_000_000  # a loop without end may ask for more than the machine has

# What is written between blanks, as clang-format does with binary operators and with nothing else.
OPERATORS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||",
             "||": "&&", "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "+=": "-=", "-=": "+="}
WORDS = {"true": "false", "false": "true", "min": "max", "max": "min", "front": "back",
         "back": "front", "begin": "end", "floor": "ceil", "min_element": "max_element",
         "max_element": "min_element"}
REMOVABLE = re.compile(
    r"(?!(?:return|using|const|constexpr|static|auto|case|default|if|for|while|switch|else|do)\b)"
    r"(?:break|continue|throw\b.*|(?:\+\+|--|\*)?[A-Za-z_][\w:.\->\[\]()*]*\s*"
    r"(?:[-+|]?=|\(|\+\+|--).*)", re.DOTALL)
LABELS = re.compile(r"\s*(?:(?:case\s+[\w:]+|default)\s*:(?!:)\s*)*")
TRIVIAL = ("true", "false", "{}", "0", "std::nullopt", "nullptr", '""')


@dataclass(frozen=True)
class Mutant:
    path: Path
    text: str  # of the whole file
    begin: int
    end: int
    replacement: str

    @property
    def line(self):
        return self.text.count("\n", 0, self.begin) + 1

    def source(self):
        return self.text[:self.begin] + self.replacement + self.text[self.end:]

    def __str__(self):
        old = " ".join(self.text[self.begin:self.end].split())
        new = " ".join(self.replacement.removesuffix(";").split())
        return f"`{old}` became `{new}`" if new else f"without `{old}`"


def masked(text):
    """The text with blanks for comments and directives, and literals without their words."""
    pattern = re.compile(r"""//[^\n]*|/\*.*?\*/|^\#[^\n]*|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])'""",
                         re.DOTALL | re.MULTILINE)

    def blank(match):
        found = match.group()
        if found[0] in "\"'":
            return found[0] + "\x01" * (len(found) - 2) + found[0]
        return re.sub(r"[^\n]", " ", found)
    return pattern.sub(blank, text)


def closing(code, opening):
    """Where the bracket that opens there is closed."""
    depth = 0
    for place in range(opening, len(code)):
        if code[place] in "([{":
            depth += 1
        elif code[place] in ")]}":
            depth -= 1
            if depth == 0:
                return place
    raise ValueError("a bracket is never closed")


def end_of_operand(code, begin):
    """Where the expression that begins there ends, as a branch of a ?: does."""
    place = begin
    while code[place] not in ";,)]}:" or code[place:place + 2] == "::" or code[place - 1] == ":":
        place = closing(code, place) + 1 if code[place] in "([{" else place + 1
    return place


def tokens(code):
    """Operators, words and numbers that become others."""
    for match in re.finditer(r"(?<=\s)(\S{1,2})(?=\s)", code):
        if match.group() in OPERATORS:
            yield *match.span(), OPERATORS[match.group()]
    called = r"\b(?:" + "|".join(WORDS) + r")\b(?=(?:<[^<>]*>)?\()"
    for match in re.finditer(called + r"|\b(?:true|false)\b", code):
        yield *match.span(), WORDS[match.group()]
    for match in re.finditer(r"(?:\+\+|--)(?=[\w(])", code):
        yield *match.span(), "--" if match.group() == "++" else "++"
    for match in re.finditer(r"(?<![\w)\]])!(?=[\w(*:])", code):
        yield *match.span(), ""
    for match in re.finditer(r"(?<![\w.'])\d+(?![\w.'])", code):
        number = int(match.group())
        yield *match.span(), str(number + 1)
        if number > 0:
            yield *match.span(), str(number - 1)


def conditions(code, text):
    """Conditions that become their opposite."""
    for match in re.finditer(r"\b(?:if|while) \(", code):
        begin = match.end() - 1
        end = closing(code, begin) + 1
        inside = code[begin + 1:end - 1]
        is_declaration = ";" in inside or " = " in inside
        if not is_declaration and not re.fullmatch(r"!\S+", inside):  # its ! goes away as a token
            yield begin, end, f"(!{text[begin:end]})"


def branches(code, text):
    """The two results of a ?: exchanged."""
    for match in re.finditer(r"\s\?\s", code):
        first = match.end()
        middle = end_of_operand(code, first)
        if code[middle] == ":":
            second = middle + 1
            end = end_of_operand(code, second)
            yield first, end, f"{text[second:end].strip()} : {text[first:middle].strip()}"


def statements(code):
    """(begin, end) of what stands between braces and semicolons, the semicolon included."""
    levels = [["", 0]]  # the bracket, and where the statement in it begins
    for place, character in enumerate(code):
        if character in "([{":
            levels.append([character, place + 1])
        elif character in ")]}":
            levels.pop()
            follower = code[place + 1:].lstrip()[:1]
            if character == "}" and follower not in (")", ",", ";", ".", "("):
                levels[-1][1] = place + 1
        elif character == ";":
            if levels[-1][0] == "{":
                begin = levels[-1][1]
                yield begin + LABELS.match(code[begin:]).end(), place + 1
            levels[-1][1] = place + 1


def removals(code):
    """Statements that go, and results that become a constant."""
    for begin, end in statements(code):
        statement = code[begin:end - 1]
        if REMOVABLE.fullmatch(statement):
            yield begin, end, ";"
        result = re.fullmatch(r"return\s+(.*)", statement, re.DOTALL)
        if result and result.group(1) not in TRIVIAL:
            begin += result.start(1)
            yield begin, end - 1, "{}"
            if re.search(r" (?:==|!=|&&|\|\||<|>|<=|>=)\s|^!|\b(?:is|has|was|may)[A-Z]", statement):
                yield begin, end - 1, "true"


def mutants_of(path, project):
    text = path.read_text(encoding="utf-8")
    code = masked(text)
    edits = [*tokens(code), *conditions(code, text), *branches(code, text), *removals(code)]
    return [Mutant(path.relative_to(project), text, *edit) for edit in sorted(set(edits))]


class Workshop:
    """Compiles, links and runs."""

    def __init__(self, project, build, headers):
        self.project = project
        self.build = build
        self.headers = headers  # the folder of the headers that were translated in advance
        entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
        self.commands = {Path(entry["file"]): shlex.split(entry["command"]) for entry in entries}
        self.time_limit = 600.0

    def objects_of_tests(self, nearest):
        """Those of the nearest folder first: tests run in this order, to the first failure."""
        ordered = sorted(TEST_FOLDERS, key=lambda name: name != nearest)
        sources = [source for name in ordered
                   for source in sorted((self.project / "tests" / name).glob("*.cpp"))]
        return [command[command.index("-o") + 1]
                for command in (self.commands[source] for source in sources)]

    def libraries(self):
        link = shlex.split(subprocess.run(
            ["ninja", "-C", self.build, "-t", "commands", "tests/nodo_tests"],
            check=True, capture_output=True, encoding="utf-8").stdout.splitlines()[-1])
        link = link[link.index("-o") + 2:]
        system = [word for word in link[:link.index("&&")]
                  if word.startswith("-") or Path(word).is_absolute()]
        return [*LIBRARIES, *system]

    def compile(self, source, text, folder):
        """Makes the object of a source that holds this text; false when it is no C++."""
        changed = folder / source.name
        changed.write_text(text, encoding="utf-8")
        headers = self.headers / f"{source.parent.name}-{source.stem}.h"
        return self.translate(source, changed, folder / "mutant.o", "-include", str(headers))

    def translate(self, source, changed, into, *more):
        compiler, *usual = self.commands[self.project / source]
        command = [compiler, *more, *usual, "-O0", "-g0", "-w"]
        command[command.index("-o") + 1] = str(into)
        command[command.index("-c") + 1] = str(changed)
        done = subprocess.run(command, cwd=self.build, capture_output=True, check=False)
        return done.returncode == 0

    def translate_headers(self, source):
        """Reads what a source includes once for all of its mutants, as that takes the most time."""
        headers = self.headers / f"{source.parent.name}-{source.stem}.h"
        lines = (self.project / source).read_text(encoding="utf-8").splitlines()
        headers.write_text("\n".join(line for line in lines if line.startswith("#include")) + "\n",
                           encoding="utf-8")
        if not self.translate(source, headers, f"{headers}.gch", "-x", "c++-header"):
            sys.exit(f"what {source} includes does not compile")

    def link(self, source, folder):
        compiler = self.commands[self.project / source][0]
        subprocess.run([compiler, "-pie", "-Wl,-S", "-o", folder / "tests", folder / "mutant.o",
                        *self.objects_of_tests(source.parent.name), *self.libraries()],
                       cwd=self.build, check=True)

    def passes(self, folder):
        limited = f'ulimit -v {MEMORY_IN_KIB} && exec "$0" "$@"'
        try:
            done = subprocess.run(
                ["sh", "-c", limited, folder / "tests", "--gtest_brief=1", "--gtest_fail_fast",
                 f"--gtest_filter={LEFT_OUT}"],
                cwd=folder, capture_output=True, check=False, timeout=self.time_limit)
        except subprocess.TimeoutExpired:
            return False
        return done.returncode == 0

    def try_out(self, mutant):
        """Whether the tests kill the mutant; nothing when it does not compile."""
        with tempfile.TemporaryDirectory(prefix="mutant-") as name:
            folder = Path(name)
            if not self.compile(mutant.path, mutant.source(), folder):
                return None
            self.link(mutant.path, folder)
            return not self.passes(folder)

    def calibrate(self, source):
        """Makes sure that the tests pass as things are, and takes the time that they need."""
        with tempfile.TemporaryDirectory(prefix="mutant-") as name:
            folder = Path(name)
            text = (self.project / source).read_text(encoding="utf-8")
            if not self.compile(source, text, folder):
                sys.exit(f"{source} does not compile")
            self.link(source, folder)
            begin = time.monotonic()
            if not self.passes(folder):
                sys.exit("the tests fail without any mutant")
            self.time_limit = 20 + 4 * (time.monotonic() - begin)


def arguments():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("project", type=Path)
    parser.add_argument("build", type=Path)
    parser.add_argument("--limit", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("files", type=Path, nargs="+")
    return parser.parse_args()


def try_all(mutants, workshop, jobs):
    killed = alive = 0
    with ThreadPoolExecutor(jobs) as pool:
        for mutant, is_killed in zip(mutants, pool.map(workshop.try_out, mutants)):
            killed += is_killed is True
            alive += is_killed is False
            if is_killed is False:
                print(f"{mutant.path}:{mutant.line}: {mutant}", flush=True)
    made = killed + alive
    print(f"killed {killed} of {made} mutants ({100 * killed / max(made, 1):.1f} %), "
          f"and {len(mutants) - made} did not compile")


def main():
    options = arguments()
    mutants = [mutant for path in options.files
               for mutant in mutants_of(path.resolve(), options.project)]
    if options.limit is not None and options.limit < len(mutants):
        mutants = random.Random(options.seed).sample(mutants, options.limit)
        mutants.sort(key=lambda mutant: (mutant.path, mutant.begin))
    if not mutants:
        sys.exit("there is nothing to mutate")
    with tempfile.TemporaryDirectory(prefix="mutants-") as headers:
        workshop = Workshop(options.project, options.build, Path(headers))
        for source in sorted({mutant.path for mutant in mutants}):
            workshop.translate_headers(source)
        workshop.calibrate(mutants[0].path)
        try_all(mutants, workshop, options.jobs)


main()
