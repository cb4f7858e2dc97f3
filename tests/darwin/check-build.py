#!/usr/bin/env python3
"""Checks what tests/darwin/compile has built for one architecture of macOS, as far as that can be
done without running it.

usage: check-build.py syntax BUILD
       check-build.py programs BUILD ARCHITECTURE [--static]

syntax     compiles what is not linked here: tests, fixtures, benchmarks, fuzz targets, and each
           public header alone
programs   looks at nodoctl and nodod: their kind, the oldest macOS that they run on, what they
           load, and that whatever they leave undefined belongs to a library; with --static, to
           one of the system's
"""

import json
import os
import re
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

NOT_LINKED = ("bench", "fuzz", "testing", "tests")
# Of the C++ library and its runtime, of Objective-C, and of the frameworks. What libSystem has the
# linker finds, and the instances of std's templates for types of ours are in our own objects.
OF_THE_SYSTEM = re.compile(
    r"((non-virtual thunk to|virtual thunk to|vtable for|VTT for|typeinfo for|typeinfo name for) )?"
    r"(void )?(std::|operator (new|delete)|__cxxabiv1::)"
    r"|typeinfo for [a-z ]+\**$|__?_(cxa|gxx|dynamic_cast)|_?_NSConcrete|_?_objc_"
    r"|_OBJC_(META)?CLASS_\$_NS|_(OBJC_EHTYPE|objc|class|method)_"
    r"|_k?(CF|Sec)[A-Z]|___CFConstantString|_(IO|NS)[A-Z]|_nw_")
OF_THIRD_PARTIES = re.compile(r"([a-z]+ )?(re2|absl)::|_utf8proc_")


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def compiles(entry):
    command = shlex.split(entry["command"])
    output = command.index("-o")
    command[output : output + 2] = ["-fsyntax-only"]
    command.remove("-c")
    done = subprocess.run(command, cwd=entry["directory"], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        print(f"{entry['file']} does not compile:\n{done.stdout}")
    return done.returncode == 0


def check_syntax(build):
    project = Path(__file__).resolve().parents[2]
    commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    entries = []
    for entry in commands:
        file = Path(entry["file"])
        if build in file.parents or file.relative_to(project).parts[0] in NOT_LINKED:
            entries.append(entry)
    if not entries:
        sys.exit("there is nothing to compile")
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        broken = list(pool.map(compiles, entries)).count(False)
    print(f"{len(entries)} sources that are not linked here: {broken} broken")
    return broken == 0


def undefined_of(program):
    """The names that the program leaves to be looked up when it is run, without libSystem's."""
    rows = output_of("llvm-nm-14", "--undefined-only", "--format=darwin", str(program)).splitlines()
    found = "(from libSystem)"
    names = [row.split("external ")[1].split(" (")[0] for row in rows if found not in row]
    return output_of("llvm-cxxfilt-14", "-_", *names).splitlines()


def faults_of(program, architecture, static):
    cputype = {"arm64": "ARM64", "x86_64": "X86_64"}[architecture]
    head = output_of("llvm-otool-14", "-hv", str(program))
    if not re.search(rf"{cputype} .*EXECUTE", head):
        yield f"it is no program for {architecture}: {head}"
    commands = output_of("llvm-otool-14", "-l", str(program))
    oldest = re.findall(r"LC_BUILD_VERSION\n.*\n *platform macos\n.*\n? *minos (\S+)", commands)
    if oldest != ["13.0"]:
        yield f"the oldest macOS that it is for is {oldest} and not 13.0"
    loads = re.findall(r"cmd LC_LOAD_(?:WEAK_)?DYLIB\n.*\n *name (\S+)", commands)
    if not loads:
        yield "it loads nothing, not even the system's library"
    for library in loads:
        if not library.startswith(("/usr/lib/", "/System/Library/")):
            yield f"it loads {library}, which is none of the system's"
    for name in undefined_of(program):
        if not OF_THE_SYSTEM.match(name) and (static or not OF_THIRD_PARTIES.match(name)):
            yield f"it lacks {name}"


def check_programs(build, architecture, static):
    clean = True
    for program in ("nodoctl", "nodod"):
        faults = list(faults_of(build / "programs" / program / program, architecture, static))
        for fault in faults:
            print(f"{program} for {architecture}: {fault}")
        clean = clean and not faults
    return clean


def main():
    what, build = sys.argv[1], Path(sys.argv[2]).resolve()
    if what == "syntax":
        clean = check_syntax(build)
    else:
        clean = check_programs(build, sys.argv[3], "--static" in sys.argv[4:])
    sys.exit(0 if clean else 1)


main()
