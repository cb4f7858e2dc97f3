"""The people of a machine as the real polkit knows them: their groups, and how they logged in."""

import pathlib
import pwd
import shutil

from buses import start_polkitd
from expectations import skip
from laptop import FOLDER, run

PACKAGING = pathlib.Path(__file__).resolve().parents[2] / "packaging/linux"
POLKIT = pathlib.Path("/usr/share/polkit-1")
OWN_RULES = pathlib.Path("/etc/polkit-1/rules.d")
MEMBER = 1  # of the group nodo; a user that exists on every Debian


def replace(folder, *files):
    """Has a folder hold what it holds and these, with rights as an installation gives them."""
    copy = FOLDER / str(folder).strip("/").replace("/", ".")
    shutil.copytree(folder, copy)
    for file in files:
        shutil.copy(file, copy)
    for path in [copy, *copy.iterdir()]:
        path.chmod(0o755 if path.is_dir() else 0o644)
    run("mount", "--bind", copy, folder)


def make_group():
    """The group nodo, with one member."""
    groups = FOLDER / "group"
    name = pwd.getpwuid(MEMBER).pw_name
    with open("/etc/group", encoding="utf-8") as others:
        kept = [line for line in others if not line.startswith("nodo:")]
    groups.write_text("".join(kept) + f"nodo:x:64321:{name}\n", encoding="utf-8")
    groups.chmod(0o644)
    run("mount", "--bind", groups, "/etc/group")


def start_polkit():
    """With nodo's own action and rule beside those of this machine."""
    for folder in (POLKIT / "actions", POLKIT / "rules.d", OWN_RULES):
        if not folder.is_dir():
            skip("polkit is not installed")
    replace(POLKIT / "actions", PACKAGING / "com.quintavel.nodo.policy")
    replace(POLKIT / "rules.d", PACKAGING / "com.quintavel.nodo.rules")
    replace(OWN_RULES)
    make_group()
    return start_polkitd()


class Session:
    """A user's one session, and who is in it, as polkit learns of both: from logind's files and
    the control groups of processes. Neither needs a machine that systemd has booted."""

    def __init__(self, user):
        self.user, self.name = user, pwd.getpwuid(user).pw_name
        path = f"/user.slice/user-{user}.slice/session-{self.session_id}.scope"
        self.group = FOLDER / f"cgroup.{self.session_id}"
        self.group.write_text(f"1:name=systemd:{path}\n0::{path}\n", encoding="ascii")

    @property
    def session_id(self):
        return f"nodo{self.user}"

    def take_in(self, pid):
        run("mount", "--bind", self.group, f"/proc/{pid}/cgroup")

    def become(self, state, **session):
        self.write(f"sessions/{self.session_id}", UID=self.user, USER=self.name, CLASS="user",
                   STATE=state, ACTIVE=int(state == "active"), **session)
        self.write(f"users/{self.user}", NAME=self.name, STATE=state, DISPLAY=self.session_id)

    @staticmethod
    def write(file, **values):
        text = "".join(f"{key}={value}\n" for key, value in values.items())
        pathlib.Path("/run/systemd", file).write_text(text, encoding="utf-8")


def trust_hooks_in_codex(home):
    """Notes what Codex notes when a person trusts the hooks."""
    with open(f"{home}/.codex/config.toml", "a", encoding="utf-8") as config:
        for event in ["session_start", "user_prompt_submit", "pre_tool_use", "post_tool_use"]:
            config.write(f'[hooks.state."{home}/.codex/hooks.json:{event}:0:0"]\n'
                         'trusted_hash = "sha256:0"\n')
