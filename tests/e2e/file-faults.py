#!/usr/bin/env python3
"""Lets each call about files fail, one at a time, while nodoctl saves the state or installs hooks.

Whatever fails, every file is as it was or as an undisturbed run leaves it: content, mode, owner,
access-control list, attributes and links. Nothing else is left, and an exit status of 0 means that
all is done. Otherwise the message names the file, and whether that was changed.

usage: file-faults.py NODOCTL FAULTS
"""

import concurrent.futures
import contextlib
import errno
import os
import pathlib
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import tempfile

from expectations import check, contains, equal, skip

NODOCTL, FAULTS = sys.argv[1:]
OWN_LIST = "system.posix_acl_access"

# How each function fails on a disk, under a limit or in a network. That root may not give files
# away (EPERM) is no fault: the state is saved all the same then.
ERRORS = {
    "open": ["EACCES", "EIO", "EMFILE", "ENOSPC", "EINTR"],
    "openat": ["EACCES", "EIO", "EMFILE"],
    "read": ["EIO", "EINTR"],
    "write": ["EIO", "ENOSPC", "EDQUOT", "EINTR"],
    "close": ["EIO", "EINTR"],
    "flock": ["ENOLCK", "EINTR"],
    "fsync": ["EIO", "ENOSPC", "EINTR"],
    "fstat": ["EIO", "EACCES"],
    "fchmod": ["EIO", "EPERM", "EINTR"],
    "fchown": ["EIO", "EACCES", "EDQUOT", "EINTR"],
    "stat": ["EIO", "EACCES"],
    "lstat": ["EIO", "EACCES"],
    "faccessat": ["EIO", "EACCES"],
    "readlink": ["EIO", "EACCES"],
    "fdopendir": ["ENOMEM"],
    "readdir": ["EIO"],
    "mkdir": ["EIO", "EACCES", "ENOSPC"],
    "rename": ["EIO", "EACCES", "ENOSPC"],
    "unlink": ["EIO", "EACCES"],
    "lgetxattr": ["EIO", "EACCES"],
    "llistxattr": ["EIO", "EACCES"],
    "fsetxattr": ["EIO", "EACCES", "ENOSPC"],
    "fremovexattr": ["EIO", "EACCES", "ENOSPC"],
}


def access_control_list(user):
    """The kernel's form: the owner and `user` read and write, the group reads, others nothing."""
    nobody = 0xFFFFFFFF
    entries = [(1, 6, nobody), (2, 6, user), (4, 4, nobody), (16, 6, nobody), (32, 0, nobody)]
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


class World:
    """A folder in which one command works, again and again, on what `fill` puts there."""

    def __init__(self, place, arguments, fill):
        self.place = place
        self.folder = pathlib.Path(place, "world")
        self.log = pathlib.Path(place, "log")
        self.arguments = arguments
        self.fill = fill

    def file(self, name, content, mode, owner=None):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content, encoding="utf-8")
        os.setxattr(path, "user.mine", name.encode())
        if owner is not None and os.geteuid() == 0:
            os.chown(path, owner, owner + 1)
        path.chmod(mode)

    def share(self, name):
        os.setxattr(self.folder / name, OWN_LIST, access_control_list(54321))

    def link(self, name, target):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.symlink_to(target)

    def renew(self):
        with contextlib.suppress(FileNotFoundError):
            shutil.rmtree(self.folder)
        self.folder.mkdir()
        self.fill(self)

    def run(self, call=0, error=0):
        return subprocess.run(
            [NODOCTL, *self.arguments],
            env={
                "HOME": str(self.folder),
                "NODO_HOOK_LOG": f"{self.place}/hook.log",
                "LD_PRELOAD": FAULTS,
                "NODO_FAULT_FOLDER": str(self.folder),
                "NODO_FAULT_LOG": str(self.log),
                "NODO_FAULT_CALL": str(call),
                "NODO_FAULT_ERROR": str(error),
            },
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=30,
            check=False,
        )

    def calls(self):
        """The functions that the last run called, in their order."""
        return [line.split("\t")[0] for line in self.log.read_text(encoding="utf-8").splitlines()]

    def found(self):
        """All that can be lost of what is in the folder, by its path; times are all the same."""
        return {str(path): self.what_is(path) for path in [self.folder, *self.folder.rglob("*")]}

    @staticmethod
    def what_is(path):
        status = path.lstat()
        content = None
        if path.is_symlink():
            content = os.readlink(path)
        elif path.is_file():
            content = re.sub(rb'"\d{4}-\d\d-\d\dT[^"]*Z"', b"TIME", path.read_bytes())
        attributes = {
            name: os.getxattr(path, name, follow_symlinks=False)
            for name in os.listxattr(path, follow_symlinks=False)
        }
        return (status.st_mode, status.st_uid, status.st_gid, content, attributes)


def expect_nothing_lost(world, before, after, run, reason):
    """What a run whose call failed for `reason` may have left, and said."""
    now = world.found()
    if run.returncode == 0:
        equal(now, after, "a success leaves what it always leaves")
        return
    equal(run.returncode, 1, f"the exit status with {run.stdout}")
    for path, what in now.items():
        check(what in (before.get(path), after.get(path)), f"{path} is neither: {what}")
    for path in before.keys() & after.keys():
        check(path in now, f"{path} is gone")
    failures = re.findall(r"Unable to [a-z -]+ (/[^\s:]+)( [^:]*)?: (.*)", run.stdout)
    check(failures, f"no reason in {run.stdout}")
    for path, advice, why in failures:
        check(pathlib.Path(path).is_relative_to(world.folder), f"{path} is not what failed")
        check(why.startswith(reason), f"{why} is not {reason}")
        if not os.path.isdir(path):  # which may have been made by then
            expected = after if "its new content is in place" in advice else before
            equal(now.get(path), expected.get(path), f"{path}, of which it says: {run.stdout}")


def fail_each_call(world, ways):
    """In up to so many ways. Returns which functions were called, and the number of faults."""
    world.renew()
    before = world.found()
    run = world.run()
    equal(run.returncode, 0, f"the exit status, undisturbed: {run.stdout}")
    after = world.found()
    calls = world.calls()
    faults = [(number, error) for number, function in enumerate(calls, 1)
              for error in ERRORS[function][:ways]]
    for number, error in faults:
        world.renew()
        code = getattr(errno, error)
        run = world.run(number, code)
        try:
            equal(world.calls()[number - 1], calls[number - 1], "the call that failed")
            expect_nothing_lost(world, before, after, run, os.strerror(code))
        except AssertionError as failure:
            seen = world.log.read_text(encoding="utf-8").splitlines()[number - 1]
            raise AssertionError(f"{' '.join(world.arguments)}: call {number}, {seen}, "
                                 f"with {error}: {failure}") from failure
    return set(calls), len(faults)


# ---- what there is to lose


def fill_with_state(world):
    world.file(".nodo/state.json", "{}", 0o600, owner=12345)
    world.share(".nodo/state.json")
    world.file(".nodo/nodoctl.lock", "", 0o600)


def fill_with_narrow_state(world):
    world.file(".nodo/state.json", "{}", 0o600)


def fill_with_linked_state(world):
    world.file("precious", "{}", 0o604)
    world.link(".nodo/state.json", "../precious")


def fill_with_hooks(world):
    world.file(".nodo/nodo-agent-hook.sh", "# an old one\n", 0o700, owner=12345)
    world.file("dotfiles/claude.json", '{"model": "opus"}', 0o640, owner=23456)
    world.share("dotfiles/claude.json")
    world.link("dotfiles/link", "claude.json")
    world.link(".claude/settings.json", "../dotfiles/link")
    world.file(".codex/hooks.json", '{"description": "mine"}', 0o600)
    world.file(".codex/config.toml", "# mine\n[features]\n", 0o604, owner=12345)
    world.file(".grok/hooks/nodo.json", "{}", 0o400)
    world.share(".grok/hooks/nodo.json")
    world.file(".pi/agent/extensions/nodo.ts", "// an old one\n", 0o666, owner=23456)


def fill_with_present_hooks(world):
    fill_with_hooks(world)
    equal(world.run().returncode, 0, "the first time")


# ---- the tests


def save_without_daemon(place):
    return ["manual", "--minutes", "30", "--bus", f"unix:path={place}/none"]


def nothing_is_lost(place):
    manual = save_without_daemon(place)
    install = ["hooks", "install", "--nodoctl", NODOCTL]
    worlds = [
        (install, fill_with_hooks, 9),
        (install, fill_with_present_hooks, 1),
        (install, lambda world: None, 1),
        (manual, fill_with_state, 9),
        (manual, fill_with_narrow_state, 1),
        (manual, fill_with_linked_state, 1),
        (manual, lambda world: None, 1),
    ]

    def fail_calls(arguments, fill, ways):
        return fail_each_call(World(tempfile.mkdtemp(dir=place), arguments, fill), ways)

    with concurrent.futures.ThreadPoolExecutor(3) as workers:
        results = list(workers.map(fail_calls, *zip(*worlds)))
    functions = set().union(*(called for called, _ in results))
    faults = sum(tried for _, tried in results)
    unused = {"unlink"} | (set() if os.geteuid() == 0 else {"fchown"})
    equal(set(ERRORS) - functions - unused, set(), "functions that no save calls, or none sees")
    check(faults > 500, f"only {faults} faults")
    print(f"{faults} faults")


def a_file_that_may_not_grow_is_an_error(place):
    world = World(place, save_without_daemon(place), fill_with_state)
    world.renew()
    before = world.found()
    environment = {"PATH": os.environ["PATH"], "HOME": str(world.folder)}

    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (0, resource.getrlimit(resource.RLIMIT_FSIZE)[1]))

    run = subprocess.run([NODOCTL, *world.arguments], env=environment, preexec_fn=limit,
                         stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    equal(run.returncode, 1, "the exit status")
    contains(run.stderr, f"Unable to write {world.folder}/.nodo/state.json", "the message")
    contains(run.stderr, os.strerror(errno.EFBIG), "the message")
    equal(world.found(), before, "the state")


def commands_have_the_signal_as_it_was(place):
    world = World(place, [], fill_with_state)
    world.renew()
    environment = {"PATH": os.environ["PATH"], "HOME": str(world.folder)}
    command = [NODOCTL, "run", "--bus", f"unix:path={place}/none", "--"]
    command += ["sh", "-c", "ulimit -c 0; kill -s XFSZ $$; exit 3"]
    # This interpreter ignores the signal, which its children inherit unless that is undone.
    for restored, expected in [(True, 128 + signal.SIGXFSZ), (False, 3)]:
        run = subprocess.run(command, env=environment, restore_signals=restored, check=False,
                             stdin=subprocess.DEVNULL, capture_output=True, text=True)
        equal(run.returncode, expected, f"the exit status with {run.stderr}")


def has_lists(place):
    with tempfile.NamedTemporaryFile(dir=place) as file:
        try:
            os.setxattr(file.name, "user.mine", b"")
            os.setxattr(file.name, OWN_LIST, access_control_list(54321))
        except OSError:
            return False
    return True


def main():
    # In memory if possible, so that nobody measures how long a disk takes to sync.
    parents = [parent for parent in ["/dev/shm", tempfile.gettempdir()]
               if os.access(parent, os.W_OK | os.X_OK) and has_lists(parent)]
    if not parents:
        skip("no file system here has access-control lists and attributes")
    for test in [nothing_is_lost, a_file_that_may_not_grow_is_an_error,
                 commands_have_the_signal_as_it_was]:
        with tempfile.TemporaryDirectory(prefix="nodo-faults-", dir=parents[0]) as place:
            test(place)
        print(f"ok: {test.__name__}")


main()
