#!/usr/bin/env python3
"""What the README shows of the programs is what they print. Run by with-logind and 'unshare --net'.

usage: readme-screens.py NODOCTL NODOD README [--write]

Plays a session as the README tells it, on a laptop made of files and a network of its own, and compares each screen with the
README's block of the same name: a fenced block behind a line '<!-- screen: NAME -->'. Numbers may
differ, since times pass. With --write the blocks are replaced instead.
"""

import os
import pty
import re
import select
import signal
import subprocess
import sys
import time

nodoctl, nodod, readme = sys.argv[1:4]
home = "/home/ada"
environment = {"HOME": home, "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "TERM": "xterm",
               "NODO_HOOK_LOG": home + "/hook.log",
               "DBUS_SYSTEM_BUS_ADDRESS": os.environ["DBUS_SYSTEM_BUS_ADDRESS"]}


def make_laptop():
    """A home, a battery and a route of its own, in this namespace."""
    subprocess.run(["ip", "link", "add", "nodo0", "type", "veth", "peer", "nodo1"], check=True)
    subprocess.run(["ip", "address", "add", "192.0.2.1/24", "dev", "nodo0"], check=True)
    subprocess.run(["ip", "link", "set", "nodo0", "up"], check=True)
    subprocess.run(["ip", "route", "add", "default", "via", "192.0.2.2"], check=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/home"], check=True)
    supplies = os.environ["NODO_E2E_DIR"] + "/supplies"
    files = {"AC/type": "Mains", "AC/online": "0", "BAT0/type": "Battery", "BAT0/present": "1",
             "BAT0/capacity": "81", "BAT0/status": "Discharging"}
    for name, content in files.items():
        path = supplies + "/" + name
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii") as file:
            file.write(content + "\n")
    os.makedirs(home)
    subprocess.run(["mount", "--bind", supplies, "/sys/class/power_supply"], check=True)


def run(*arguments, status=0):
    done = subprocess.run([nodoctl, *arguments], env=environment, text=True, timeout=20,
                          capture_output=True, check=False)
    if done.returncode != status:
        sys.exit(f"nodoctl {' '.join(arguments)} exits {done.returncode}: {done.stdout}{done.stderr}")
    return done.stdout + done.stderr


def first_frame(*arguments):
    """What a terminal of 80 columns shows first; then Ctrl-C."""
    child, terminal = pty.fork()
    if child == 0:
        os.execvpe(nodoctl, [nodoctl, *arguments], {**environment, "COLUMNS": "80", "LINES": "24"})
    shown = b""
    deadline = time.monotonic() + 10
    while b"Ctrl-C" not in shown and time.monotonic() < deadline:
        if select.select([terminal], [], [], 0.1)[0]:
            shown += os.read(terminal, 65536)
    os.kill(child, signal.SIGINT)
    os.waitpid(child, 0)
    text = re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]", "", shown.decode())
    return text.replace("\r", "") + "\n"


def play():
    """The screens by their names."""
    daemon = subprocess.Popen([nodod, "--bus", "system", "--state-dir", home + "/daemon"],
                              env=environment, stderr=subprocess.DEVNULL)
    agent = subprocess.Popen(["claude", "600"], executable="/bin/sleep")
    try:
        for _ in range(500):
            if subprocess.run([nodoctl, "reconcile"], env=environment, capture_output=True,
                              check=False).returncode == 0:
                break
            time.sleep(0.02)
        run("hooks", "install")
        request = ["manual", "--minutes", "20", "--extend-only", "--requester", "Claude Code",
                   "--context", "shop - session 4f1c2a9e", "--event", "PreToolUse"]
        return {"manual": run(*request), "doctor": run("doctor"), "watch": first_frame("watch")}
    finally:
        for process in (agent, daemon):
            process.terminate()
            process.wait()


def comparable(text):
    text = re.sub(r"\b[0-9a-f]{16}\b", "FINGERPRINT", text)
    text = re.sub(r"[0-9]+", "0", text)
    lines = []
    for line in map(str.rstrip, text.split("\n")):
        agent = re.match(r"- .* pid=0 executable=(.*)", line)
        # Other agents may run on this machine, also of the kind that is shown.
        if line and not (agent and (agent.group(1) != "claude" or line in lines)):
            lines.append(line)
    return lines


try:
    make_laptop()
except (OSError, subprocess.CalledProcessError) as error:
    print(f"skipped: this machine allows no laptop made of files: {error}", file=sys.stderr)
    sys.exit(77)
screens = play()
with open(readme, encoding="utf-8") as file:
    document = file.read()
failures = 0
for name, screen in screens.items():
    block = re.compile(r"(<!-- screen: " + name + r" -->\n```\n\$ [^\n]*\n)(.*?)(```\n)", re.DOTALL)
    found = block.search(document)
    if not found:
        sys.exit(f"the README has no screen '{name}'")
    if "--write" in sys.argv:
        document = (document[:found.start(2)] + screen.rstrip("\n") + "\n" + document[found.end(2):])
    elif comparable(found.group(2)) != comparable(screen):
        failures += 1
        print(f"FAILED: the README's screen '{name}' is not what is printed:\n{screen}", file=sys.stderr)
if "--write" in sys.argv:
    with open(readme, "w", encoding="utf-8") as file:
        file.write(document)
sys.exit(1 if failures else 0)
