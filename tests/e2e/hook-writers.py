#!/usr/bin/env python3
"""The hook script takes all that an agent writes to it, and nobody waits for what it does not need.

usage: hook-writers.py HOOK-TEXTS
"""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

from expectations import PATIENCE, check, equal, wait_until

MEGABYTE = 1 << 20
LOCALES = ["C", "C.UTF-8"]
PRETTY = json.dumps({"lines": [""] * 100_000}, indent=1).encode()
NODE = """
const { spawn } = require("node:child_process");
const hook = spawn(process.argv[1], [], { stdio: ["pipe", "ignore", "ignore"] });
const text = Buffer.alloc(Number(process.argv[2]), "x");
hook.stdin.on("error", (error) => { console.log(error.code); });
hook.stdin.end(text, (error) => { console.log(error ? "failed" : "written"); });
hook.on("close", (status) => { console.log(`status ${status}`); });
"""


class Hook:
    """The script in a home of its own, with a nodoctl that says that all is well."""

    def __init__(self, texts, folder):
        self.folder = folder
        self.script = folder / "hook"
        self.script.write_bytes(subprocess.run([texts, "script", ""], check=True,
                                               stdout=subprocess.PIPE).stdout)
        tool = folder / "nodoctl"
        tool.write_text("#!/bin/sh\necho 'Status: active'\n", encoding="ascii")
        for program in [self.script, tool]:
            program.chmod(0o755)

    def environment(self, locale):
        return {"PATH": os.environ["PATH"], "HOME": str(self.folder), "LC_ALL": locale,
                "NODOCTL_PATH": str(self.folder / "nodoctl"), "NODO_HOOK_AGENT": "claude",
                "NODO_HOOK_LOG": str(self.folder / "log"), "NODO_HOOK_EVENT": "Stop"}

    def start(self, locale, throttled):
        stamp = self.folder / ".nodo" / "last-extend.stamp"
        stamp.parent.mkdir(exist_ok=True)
        stamp.write_text(str(int(time.time()) if throttled else 0), encoding="ascii")
        return subprocess.Popen([self.script], env=self.environment(locale),
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def last_line(self):
        return (self.folder / "log").read_text(encoding="utf-8").splitlines()[-1]


def write(process, data):
    """All of it; fails where the script has closed its end."""
    process.stdin.write(data)
    process.stdin.flush()


def ends_well(process, what):
    equal(process.wait(PATIENCE), 0, f"the exit status: {what}")
    equal(process.stdout.read(), b"", f"the output, which also has ended: {what}")


def all_of_it_is_taken(hook):
    for locale in LOCALES:
        for throttled in [True, False]:
            for data in [b"x" * 65536, b"x" * 131073, b"x" * (8 * MEGABYTE),
                         "\U0001F468".encode() * (2 * MEGABYTE), PRETTY]:
                what = f"{len(data)} bytes, {locale}, throttled: {throttled}"
                process = hook.start(locale, throttled)
                write(process, data)
                process.stdin.close()
                ends_well(process, what)
                check(("throttled" if throttled else "nodo active") in hook.last_line(), what)


def a_writer_that_pauses_keeps_nobody(hook):
    process = hook.start("C", True)
    write(process, b"x" * MEGABYTE)
    ends_well(process, "before all is written")
    write(process, b"x" * MEGABYTE)
    process.stdin.close()


def a_writer_that_never_closes_keeps_nobody(hook):
    process = hook.start("C.UTF-8", False)
    write(process, b"x" * 200_000)
    ends_well(process, "with an open pipe")
    readers = [pid for pid in pathlib.Path("/proc").glob("[0-9]*") if reads(pid, process.stdin)]
    equal(len(readers), 1, "one process reads on")
    process.stdin.close()
    wait_until(lambda: not readers[0].exists(), "it ends with the writer", PATIENCE)


def reads(process, pipe):
    """Whether a pipe's other end is the process's standard input."""
    try:
        same = os.stat(process / "fd" / "0").st_ino == os.fstat(pipe.fileno()).st_ino
    except OSError:
        return False
    return same and process.name != str(os.getpid())


def node_is_content(hook):
    node = shutil.which("node")
    if node is None:
        print("no node: left out", file=sys.stderr)
        return
    for size in [131073, 8 * MEGABYTE]:
        for throttled in [True, False]:
            hook.start("C", throttled).communicate(b"")
            done = subprocess.run([node, "-e", NODE, hook.script, str(size)], check=False,
                                  env=hook.environment("C.UTF-8"), text=True, timeout=60,
                                  stdout=subprocess.PIPE)
            equal(sorted(done.stdout.split("\n")), ["", "status 0", "written"], f"{size} bytes")


def main():
    with tempfile.TemporaryDirectory() as folder:
        hook = Hook(sys.argv[1], pathlib.Path(folder))
        all_of_it_is_taken(hook)
        a_writer_that_pauses_keeps_nobody(hook)
        a_writer_that_never_closes_keeps_nobody(hook)
        node_is_content(hook)


main()
