#!/usr/bin/python3 -B
"""What packaging/macos/sign and packaging/macos/package make, and what they refuse to make.

usage: packages.py [TEST ...]
"""

import plistlib
import re
import stat
from xml.etree import ElementTree

from expectations import check, contains, equal
from mac_install import (BUILD, OUT, PAYLOAD, PROGRAMS, PROJECT, SOURCES, files_below, main,
                         package, run)

IDENTITY = "Developer ID Application: Some Body"
INSTALLER = "Developer ID Installer: Some Body"
SIGNED = ["--identity", IDENTITY, "--installer-identity", INSTALLER]
UNSIGNED_NAME = f"{OUT}/nodo-1.2.3-macos-universal-unsigned.pkg"


def lines_of(mac, tool):
    return [line for line, _flag, _status in mac.now()["runs"] if line.startswith(tool)]


def expect_refusal(result, words, status=1):
    equal((result.returncode, result.stdout), (status, ""), "status and output")
    contains(result.stderr, words, "the reason")


def sign(*arguments):
    return run(SOURCES / "sign", *arguments)


def a_program(name="nodoctl"):
    file = BUILD / name
    file.write_text("a program", "utf-8")
    return file


# ---- sign


def a_signature_is_proved_by_what_the_daemon_asks(mac):
    equal(sign(IDENTITY, a_program(), a_program("nodod")).returncode, 0, "the status")
    test = (PROJECT / "tests/helper/NODOXPCClientAuthenticationTest.cpp").read_text("utf-8")
    rule = "".join(re.findall(r'R"\((.*)\)"', test)[:2])
    contains(rule, "anchor apple generic", "the daemon's rule")
    asked = [line for line in lines_of(mac, "codesign --verify") if "-R=" in line]
    contains(asked[0], f"-R={rule} ", "what the tool was verified against")
    contains(asked[1], '"com.quintavel.nodo.helper" ', "what the daemon was verified against")
    for line in lines_of(mac, "codesign --force"):
        for option in ["--options runtime", "--timestamp", f"--entitlements {SOURCES}/nodo.ent",
                       f"--sign {IDENTITY}"]:
            contains(line, option, "how it is signed")


def an_ad_hoc_signature_is_refused(mac):
    expect_refusal(sign("-", a_program()), "the daemon serves only programs that its own team", 2)
    equal(lines_of(mac, "codesign"), [], "what was signed")


def a_certificate_of_another_team_is_refused(mac):
    mac.change(certificate="ABCDE12345")
    expect_refusal(sign(IDENTITY, a_program()), "-DNODO_TEAM_IDENTIFIER=")
    equal(sign("--team", "ABCDE12345", IDENTITY, a_program()).returncode, 0, "one's own team")


def a_signature_that_lacks_something_is_refused(mac):
    timestamp = "Timestamp=now\n"
    for flags, more, words in [("0x0(none)", timestamp, "no hardened runtime"),
                               ("0x10000(runtime)", "Signed Time=now\n", "no time of a server")]:
        mac.change(signed={"flags": flags, "more": more})
        expect_refusal(sign(IDENTITY, a_program()), words)


def each_failure_of_codesign_is_told(mac):
    for fault, words in [("codesign --force", "could not sign it"),
                         ("codesign --verify --strict", "is not valid"),
                         ("codesign --display", "cannot be read"),
                         ("codesign --verify -R", "does not satisfy")]:
        mac.change(faults={fault: "refuses"})
        expect_refusal(sign(IDENTITY, a_program()), words)


def what_a_bundle_contains_is_signed_before_it(mac):
    bundle = BUILD / "nodo-menu.app"
    part = bundle / "Contents/PlugIns/platforms/libqcocoa.dylib"
    part.parent.mkdir(parents=True)
    part.write_text("a library", "utf-8")
    equal(sign(IDENTITY, bundle).returncode, 0, "the status")
    equal([line.rsplit("/", 1)[1] for line in lines_of(mac, "codesign --force")],
          ["libqcocoa.dylib", "nodo-menu.app"], "what is signed, in its order")
    contains(lines_of(mac, "codesign --force")[1], "--identifier com.quintavel.nodo ", "its name")
    contains(lines_of(mac, "codesign --verify -R")[0], 'identifier "com.quintavel.nodo" or',
             "what it was verified against")


def only_programs_of_nodo_are_signed(mac):
    expect_refusal(sign(IDENTITY, a_program(), a_program("other")), "neither nodoctl nor nodod", 2)
    equal(lines_of(mac, "codesign"), [], "what was signed")


# ---- package


def the_package_brings_these_files_and_no_others(_mac):
    result = package()
    equal((result.returncode, result.stdout), (0, UNSIGNED_NAME + "\n"), "status and output")
    root = OUT / "root"
    equal([file[len(str(root)):] for file in files_below(root)], PAYLOAD, "the files")
    for file in PAYLOAD:
        mode = stat.S_IMODE((root / file[1:]).stat().st_mode)
        equal(oct(mode), "0o755" if file in PROGRAMS else "0o644", f"the mode of {file}")
    equal([file.rsplit("/", 1)[1] for file in files_below(OUT / "scripts")],
          ["postinstall", "preinstall"], "the scripts")


def the_package_says_for_which_macs_it_is(mac):
    package()
    distribution = (OUT / UNSIGNED_NAME / "distribution.xml").read_text("utf-8")
    script = ElementTree.fromstring(distribution)
    equal([script.find("title").text, script.find("options").get("hostArchitectures"),
           script.find("volume-check//os-version").get("min"), script.find("pkg-ref").text],
          ["nodo 1.2.3", "x86_64,arm64", "13.0", "component.pkg"], "what the distribution says")
    shown = OUT / UNSIGNED_NAME / "resources" / script.find("license").get("file")
    equal(shown.read_text("utf-8"), (PROJECT / "LICENSE").read_text("utf-8"), "what is shown")
    mac.change(processors="arm64")
    contains(package().stdout, "/nodo-1.2.3-macos-arm64-unsigned.pkg", "the name for one processor")


def a_signed_package_holds_signed_programs(mac):
    result = package(*SIGNED)
    equal(result.stdout, f"{OUT}/nodo-1.2.3-macos-universal.pkg\n", "the package")
    packed = OUT / "nodo-1.2.3-macos-universal.pkg/component.pkg/root"
    for program in PROGRAMS[:2]:
        contains((packed / program[1:]).read_text("utf-8"), "TeamIdentifier=", program)
    contains(lines_of(mac, "productbuild")[0], f"--sign {INSTALLER} --timestamp", "its signature")


def a_package_of_which_a_part_is_unsigned_says_so(_mac):
    for option in [SIGNED[:2], SIGNED[2:]]:
        contains(package(*option).stdout, "-unsigned.pkg", f"the name with {option}")


def with_menu():
    install_script = BUILD / "cmake_install.cmake"
    more = "".join(f'file(WRITE "${{CMAKE_INSTALL_PREFIX}}/{file}" "of the build")\n' for file in
                   ["Applications/nodo-menu.app/Contents/MacOS/nodo-menu",
                    "share/man/man1/nodo-menu.1"])
    install_script.write_text(install_script.read_text("utf-8") + more, "utf-8")


def a_menu_that_was_built_comes_along_with_its_qt(mac):
    with_menu()
    result = package(*SIGNED)
    equal(result.returncode, 0, f"the status ({result.stderr})")
    root = OUT / "root"
    more = {file[len(str(root)):] for file in files_below(root)} - set(PAYLOAD)
    bundle = "/Applications/nodo-menu.app"
    contains(more, f"{bundle}/Contents/MacOS/nodo-menu", "the program")
    contains(more, f"{bundle}/Contents/PlugIns/platforms/libqcocoa.dylib", "a part of Qt")
    contains(more, "/usr/local/share/man/man1/nodo-menu.1", "the manual")
    contains(lines_of(mac, "codesign --force")[-1], "--identifier com.quintavel.nodo ", "its name")
    packed = OUT / "nodo-1.2.3-macos-universal.pkg"
    component = plistlib.loads((packed / "components.plist").read_bytes())
    equal([component[0]["RootRelativeBundlePath"], component[0]["BundleIsRelocatable"]],
          [bundle[1:], False], "where an upgrade goes")


def a_menu_without_its_qt_is_refused(mac):
    with_menu()
    mac.change(faults={"macdeployqt": "refuses"})
    expect_refusal(package(), "macdeployqt could not put Qt into nodo-menu")


def notarizing_takes_both_signatures(_mac):
    expect_refusal(package("--notarize", "profile", *SIGNED[:2]), "--notarize takes", 2)


def a_notarized_package_is_stapled_and_assessed(mac):
    result = package("--notarize", "profile", *SIGNED)
    equal(result.returncode, 0, f"the status ({result.stderr})")
    path = f"{OUT}/nodo-1.2.3-macos-universal.pkg"
    equal(lines_of(mac, "xcrun") + lines_of(mac, "spctl"),
          [f"xcrun notarytool submit {path} --keychain-profile profile --wait",
           f"xcrun stapler staple {path}", f"spctl --assess --type install {path}"], "the steps")
    mac.change(faults={"xcrun stapler": "refuses"})
    expect_refusal(package("--notarize", "profile", *SIGNED), "Apple does not vouch for it")


def programs_that_need_foreign_libraries_are_refused(mac):
    mac.change(foreign="\t/opt/homebrew/opt/re2/lib/libre2.11.dylib (compatibility version 11.0.0, "
                       "current version 11.0.0)\n")
    expect_refusal(package(), "not the system's: /opt/homebrew/opt/re2/lib/libre2.11.dylib")


def each_failure_of_a_tool_is_told(mac):
    for fault in ["pkgbuild", "productbuild", "plutil", "lipo", "otool"]:
        mac.change(faults={fault: "refuses"})
        result = package()
        equal((result.returncode, result.stdout), (1, ""), f"with a broken {fault}")


def a_build_that_lacks_a_file_is_refused(_mac):
    install_script = BUILD / "cmake_install.cmake"
    text = install_script.read_text("utf-8").replace("man8/nodod.8", "man8/other")
    install_script.write_text(text, "utf-8")
    expect_refusal(package(), "there is no")
    check(not (OUT / UNSIGNED_NAME).exists(), "no package is made")


main([a_signature_is_proved_by_what_the_daemon_asks, an_ad_hoc_signature_is_refused,
      a_certificate_of_another_team_is_refused, a_signature_that_lacks_something_is_refused,
      each_failure_of_codesign_is_told,
      what_a_bundle_contains_is_signed_before_it, only_programs_of_nodo_are_signed,
      the_package_brings_these_files_and_no_others, the_package_says_for_which_macs_it_is,
      a_signed_package_holds_signed_programs, a_package_of_which_a_part_is_unsigned_says_so,
      a_menu_that_was_built_comes_along_with_its_qt, a_menu_without_its_qt_is_refused,
      notarizing_takes_both_signatures, a_notarized_package_is_stapled_and_assessed,
      programs_that_need_foreign_libraries_are_refused, each_failure_of_a_tool_is_told,
      a_build_that_lacks_a_file_is_refused])
