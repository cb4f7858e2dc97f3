#!/usr/bin/python3 -B
"""The real polkitd decides about callers, by the action's defaults. Run by with-logind.

usage: callers-of-polkitd.py DRIVER
"""
import os
import subprocess
import sys

from driven import HELPER, PATIENCE, Driven, call
from expectations import contains, equal, skip, wait_until

POLKITD = "/usr/lib/polkit-1/polkitd"
ACTIONS = "/usr/share/polkit-1/actions"
NOBODY = 65534
POLICY = """<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE policyconfig PUBLIC "-//freedesktop//DTD PolicyKit Policy Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/PolicyKit/1/policyconfig.dtd">
<policyconfig>
  <action id="com.quintavel.nodo.keep-awake">
    <description>Keep this computer awake</description>
    <message>Authentication is required to keep this computer awake</message>
    <defaults>
      <allow_any>{any}</allow_any><allow_inactive>no</allow_inactive><allow_active>yes</allow_active>
    </defaults>
  </action>
</policyconfig>
"""

if not os.path.exists(POLKITD):
    skip("polkitd is not installed")
folder = os.environ["NODO_E2E_DIR"] + "/actions"
os.makedirs(folder)
subprocess.run(["mount", "--bind", folder, ACTIONS], check=True)


def by_default(answer):
    """A polkitd of its own for each default: it reads them at its start."""
    with open(folder + "/nodo.policy", "w", encoding="utf-8") as file:
        file.write(POLICY.format(any=answer))
    polkitd = subprocess.Popen([POLKITD, "--no-debug"], stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    bus = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
    wait_until(lambda: call(bus, "GetNameOwner", "s", "org.freedesktop.PolicyKit1").returncode == 0,
               "polkitd is there", PATIENCE)
    result = call(HELPER, "Stop", user=NOBODY)
    equal(call(HELPER, "Repair").returncode, 0, "root needs no polkitd")
    polkitd.terminate()
    polkitd.wait()
    wait_until(lambda: call(bus, "GetNameOwner", "s", "org.freedesktop.PolicyKit1").returncode != 0,
               "polkitd is gone", PATIENCE)
    return result.returncode == 0


loop = Driven(sys.argv[1], "loop", "system")
loop.expect("serving")
equal(by_default("yes"), True, "allowed")
loop.expect("request stop", "request repair")
for answer, reason in (("no", "polkit does not allow"),
                       ("auth_admin_keep", "polkit wants an administrator's password for")):
    equal(by_default(answer), False, answer)
    contains(loop.next_error(), f"(uid {NOBODY}): {reason} com.quintavel.nodo.keep-awake",
             "the line")
    loop.expect("request repair")
os.remove(folder + "/nodo.policy")
equal(loop.end(), 0, "its end")
