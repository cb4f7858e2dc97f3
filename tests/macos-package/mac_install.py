"""A package made of a build's stand-in, and what the Installer does with it: what the tests share.

They run by on-a-mac. Each test has a Mac of its own.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import time

from expectations import equal
from mac_tools import build_mac

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = PROJECT / "packaging/macos"
PLACES = [pathlib.Path(place) for place in
          ["/Library", "/Users", "/private/etc/newsyslog.d", "/private/var/db", "/usr/local",
           "/tmp/some where"]]
OUT = pathlib.Path("/tmp/some where/out folder")
MADE = pathlib.Path("/tmp/made once")
BUILD = pathlib.Path("/tmp/some where/build folder")

DAEMON = "/Library/PrivilegedHelperTools/nodod"
PROPERTY_LIST = "/Library/LaunchDaemons/com.quintavel.nodo.helper.plist"
SCHEMAS = [f"/usr/local/share/nodo/schemas/{file.name}"
           for file in (PROJECT / "packaging/schemas").iterdir()]
PROGRAMS = [DAEMON, "/usr/local/bin/nodoctl", "/usr/local/bin/nodo-uninstall"]
BUILT = ["bin/nodoctl", "sbin/nodod", "share/nodo/nodod.toml", "share/man/man1/nodoctl.1",
         "share/man/man7/nodo-hooks.7",
         "share/man/man8/nodod.8", "share/bash-completion/completions/nodoctl",
         "share/zsh/site-functions/_nodoctl", "share/fish/vendor_completions.d/nodoctl.fish"]
PAYLOAD = sorted({PROPERTY_LIST, "/private/etc/newsyslog.d/nodo.conf",
                  "/usr/local/share/doc/nodo/copyright", *PROGRAMS, *SCHEMAS,
                  *(f"/usr/local/{file}" for file in BUILT if not file.startswith("sbin"))})


def run(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True,
                          check=False, timeout=100)


def files_below(*folders):
    return sorted(str(path) for folder in folders for path in pathlib.Path(folder).rglob("*")
                  if path.is_symlink() or not path.is_dir())


def renew():
    """A Mac on which nothing was installed, and a build."""
    for place in PLACES:
        place.mkdir(parents=True, exist_ok=True)
        for entry in place.iterdir():
            if entry.is_dir():
                shutil.rmtree(entry)
            else:
                entry.unlink()
    BUILD.mkdir()
    (BUILD / "CMakeCache.txt").write_text("CMAKE_PROJECT_VERSION:STATIC=1.2.3\n"
                                          "NODO_TEAM_IDENTIFIER:STRING=Q7K2M9X4TZ\n")
    (BUILD / "cmake_install.cmake").write_text(
        "".join(f'file(WRITE "${{CMAKE_INSTALL_PREFIX}}/{file}" "of the build")\n'
                for file in BUILT) +
        f'file(INSTALL "{PROJECT}/packaging/schemas" DESTINATION '
        '"${CMAKE_INSTALL_PREFIX}/share/nodo")\n')
    return build_mac()


def package(*options, out=OUT):
    return run(SOURCES / "package", *options, BUILD, out)


def script(name, volume="/"):
    """As the Installer runs it."""
    return run(MADE / "scripts" / name, "/tmp/nodo.pkg", volume, volume)


def copy_files(volume="/"):
    run("mkdir", "-p", volume)
    equal(run("cp", "-R", f"{MADE}/root/.", volume).returncode, 0, "the files' copying")


def install(mac):
    """The whole of it, which must succeed. The receipt is the Installer's."""
    equal(script("preinstall").returncode, 0, "what comes before")
    copy_files()
    result = script("postinstall")
    equal((result.returncode, result.stderr), (0, ""), "what comes after")
    mac.change(receipts=["com.quintavel.nodo.pkg"])


def main(tests):
    """Runs each of `tests(mac)`, tells which of them fail, and ends with 1 if one does. The
    arguments are the names of the tests if not all."""
    failures = 0
    os.umask(0o022)
    renew()
    equal(package(out=MADE).returncode, 0, "the status of the package's making")
    for test in tests:
        if sys.argv[1:] and test.__name__ not in sys.argv[1:]:
            continue
        try:
            began = time.monotonic()
            test(renew())
            print(f"passed: {test.__name__} ({time.monotonic() - began:.1f} s)")
        except Exception as error:  # pylint: disable=broad-except  # told, and the next one is run
            failures += 1
            print(f"FAILED: {test.__name__}: {error!r}", file=sys.stderr)
    sys.exit(1 if failures else 0)
