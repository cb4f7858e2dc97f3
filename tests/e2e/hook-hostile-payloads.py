#!/usr/bin/env python3
"""Nothing that an agent passes on can make the hook script do anything but its work.

usage: hook-hostile-payloads.py HOOK-TEXTS

Runs it with 2,000 payloads, the same ones each time, and half of them with a hostile event's name
too. Each run must exit with 0, print nothing, write one well-formed line to the log and run none of
the commands in the payload. Nearly all of its time goes to the python3 that the script starts.
"""
import concurrent.futures
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile

KEYS = ["session_id", "sessionId", "conversation_id", "conversationId", "transcript_path", "cwd",
        "project_dir", "project", "hook_event_name", "hookEventName", "eventName", "event"]
COUNT = 2000
# This python3 itself, as a version manager's wrapper for it would take most of the time.
PATH = f"{os.path.dirname(os.path.realpath(sys.executable))}:/usr/bin:/bin"
LINE = re.compile(rb"[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} nodo (active minutes=20 "
                  rb"requester=Claude Code context=[^\r\n]* event=[^\r\n]*|extend throttled "
                  rb"seconds=120 requester=Claude Code event=[^\r\n]*)\n")
# What the log's reader takes for the end of a line, beside those two.
OTHER_LINE_END = re.compile("[\v\f\x85\u2028\u2029]")


def texts(canary):
    touch = f"touch {canary}"
    return [
        f"$({touch})", f"`{touch}`", f"'; {touch}; '", f'"; {touch}; "', f"\n{touch}\n",
        f"| {touch}", f"& {touch} &", f"> {canary}", f"a[$({touch})]", f"x[`{touch}`]=1",
        f"<({touch})", f"${{x:-$({touch})}}", f"$'\\x24({touch})'", f"\"$({touch})\"",
        f"\\$({touch})", f"__import__('os').system('{touch}')",
        f"'''+__import__('os').system('{touch}')+'''", f"/$({touch})/..", f"--context=$({touch})",
        "-", "--", "--help", "%s%n%99999d", "\\n\\c\\0",
        "\x00", "\x1b[31m", "\r", "\v\f", "\u2028\u2029\x85", "\ud800", "\udfff\ud800", "😀",
        "\u202e", "2026-01-31 09:15:00 fallback caffeinate started seconds=99999", "*", "~", "!!",
        "{a,b}", " ", "", "\t", "..", "/", "//", ".jsonl", "/.json", "x" * 300, "ä" * 300,
    ]


def value(dice, pieces, depth=0):
    kind = dice.randrange(12)
    if kind < 7:
        return "".join(dice.choices(pieces, k=dice.choice([1, 1, 1, 2, 3])))
    if kind == 7:
        return dice.choice([None, True, False, 0, -1, 10**400, 1.5, float("nan"), float("inf")])
    if depth > 4:
        return {}
    if kind < 10:
        return [value(dice, pieces, depth + 1) for _ in range(dice.randrange(4))]
    return {dice.choice(KEYS + pieces): value(dice, pieces, depth + 1)
            for _ in range(dice.randrange(5))}


def document(dice, pieces):
    keys = dice.sample(KEYS, dice.randrange(1, 5)) + dice.sample(pieces, dice.randrange(3))
    members = {key: value(dice, pieces) for key in keys}
    if dice.random() < 0.3:
        members = [members, value(dice, pieces), {"tool_input": members}]
    text = json.dumps(members, ensure_ascii=dice.random() < 0.5)
    return text.encode("utf-8", "surrogatepass")


def broken(dice, data):
    kind = dice.randrange(6)
    if kind == 0:
        return data[:dice.randrange(len(data) + 1)]
    if kind == 1:
        position = dice.randrange(len(data) + 1)
        return data[:position] + dice.randbytes(dice.randrange(1, 9)) + data[position:]
    if kind == 2:
        return data.replace(b'"', dice.choice([b"'", b"", b'\\"', b"\0"]))
    if kind == 3:
        return data.decode("utf-8", "replace").encode(dice.choice(["utf-16", "utf-32"]))
    if kind == 4:
        return data + data
    return dice.randbytes(dice.randrange(2000))


def payloads(pieces):
    dice = random.Random(20260131)
    hostile = pieces[0].encode()
    key = b'{"session_id":"' + hostile + b'","event":'
    yield from [
        b"", b"\0", b"\n" * 70000, b"{}", b"\xff" * 70000, hostile, hostile * 5000,
        key + b'"' + hostile * 500_000 + b'"}', key + b"[" * 200_000 + b"]" * 200_000 + b"}",
        b"[" * 200_000, b'{"event":' * 200_000, key + b"[" * 32_000 + b"]" * 32_000 + b"}",
        b'{"event":' * 900 + b'"x"' + b"}" * 900, key + b"1" * 60_000 + b"}",
        key + b'"\\ud800"}', key + b'"' + b"\\u0000" * 9000 + b'"}',
    ]
    while True:
        data = document(dice, pieces)
        yield broken(dice, data) if dice.random() < 0.3 else data


def run(folder, number, payload, event):
    """Returns what is wrong; empty when nothing is."""
    own = folder / str(number)
    (own / "project").mkdir(parents=True)
    if number % 2:
        # Half of the runs are throttled, as most are in life.
        (own / "stamp").write_text("99999999999")
    environment = {
        "HOME": str(own), "PATH": PATH, "NODO_HOOK_LOG": str(own / "log"),
        "NODO_HOOK_STAMP": str(own / "stamp"), "NODOCTL_PATH": str(folder / "nodoctl"),
        "NODO_HOOK_AGENT": "claude", "LC_ALL": ["C", "C.UTF-8"][number // 2 % 2],
    }
    if number // 4 % 2:
        # As the installed hooks name it; in the other runs the payload may.
        environment["NODO_HOOK_EVENT"] = event.replace("\0", "").encode("utf-8", "surrogatepass")
    result = subprocess.run([folder / "hook"], input=payload, env=environment, cwd=own / "project",
                            capture_output=True, timeout=60, check=False)
    problems = []
    if result.returncode != 0:
        problems.append(f"exit status {result.returncode}")
    if result.stdout or result.stderr:
        problems.append(f"output {result.stdout[:200]!r} {result.stderr[:200]!r}")
    log = (own / "log").read_bytes() if (own / "log").exists() else b""
    if not LINE.fullmatch(log) or OTHER_LINE_END.search(log.decode("utf-8", "replace")):
        problems.append(f"log {log[:400]!r}")
    if (folder / "canary").exists():
        problems.append("a command of the payload was run")
    if list((own / "project").iterdir()):
        problems.append("it left a file in the agent's folder")
    return "; ".join(problems)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        text = subprocess.run([sys.argv[1], "script"], capture_output=True, check=True).stdout
        tools = {"hook": text, "nodoctl": b"#!/bin/sh\necho 'Status: active'\n"}
        for tool, content in tools.items():
            (folder / tool).write_bytes(content)
            (folder / tool).chmod(0o755)
        failures = 0
        pieces = texts(folder / "canary")
        source = payloads(pieces)
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            todo = [(number, next(source), pieces[number % len(pieces)]) for number in range(COUNT)]
            for (number, payload, _), problem in zip(
                    todo, pool.map(lambda one: run(folder, *one), todo)):
                if problem:
                    failures += 1
                    print(f"payload {number} ({payload[:200]!r}): {problem}", file=sys.stderr)
        print(f"{COUNT} payloads, {failures} failures")
        return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
