#!/usr/bin/python3 -B
"""The real polkitd decides about callers, by the action's defaults. Run by with-logind.

usage: callers-of-polkitd.py DRIVER
"""
import os

from buses import HELPER, POLKIT, call, process_of, start_polkitd
from driven import end_well, start_loop
from expectations import PATIENCE, contains, equal, skip, wait_until
from laptop import FOLDER, run
from processes import NOBODY

ACTIONS = "/usr/share/polkit-1/actions"
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


def by_default(policy, answer):
    """A polkitd of its own for each default: it reads them at its start."""
    policy.write_text(POLICY.format(any=answer), encoding="utf-8")
    polkitd = start_polkitd()
    result = call(HELPER, "Stop", user=NOBODY)
    equal(call(HELPER, "Repair").returncode, 0, "root needs no polkitd")
    polkitd.terminate()
    polkitd.wait()
    wait_until(lambda: process_of(POLKIT) is None, "polkitd is gone", PATIENCE)
    return result.returncode == 0


def main():
    if not os.path.isdir(ACTIONS):
        skip("polkitd is not installed")
    actions = FOLDER / "actions"
    actions.mkdir()
    run("mount", "--bind", actions, ACTIONS)
    policy = actions / "nodo.policy"
    loop = start_loop()
    equal(by_default(policy, "yes"), True, "allowed")
    loop.expect("request stop", "request repair")
    for answer, reason in (("no", "polkit does not allow"),
                           ("auth_admin_keep", "only somebody logged in at this computer, or")):
        equal(by_default(policy, answer), False, answer)
        contains(loop.next_error(), f"(uid {NOBODY}): {reason} ", "the line")
        loop.expect("request repair")
    end_well(loop)


main()
