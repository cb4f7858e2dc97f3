#!/usr/bin/env python3
"""Compiles the wire's declaration as Apple's systems have it, and compares what a connection's
interface is made from there with what is installed on people's machines.

usage: check-apple-wire.py CLANG ROOT
"""

import re
import subprocess
import sys

REPLY = '@?<v@?@"NSString">'
PLAIN = "v24@0:8" + REPLY + "16"
PROTOCOL = "NODOHelperXPCProtocol"


def wire(boolean):
    """The selectors in order, with their types as XPC reads them."""
    return [
        ("statusWithReply:", PLAIN),
        ("enableManualWithMinutes:withReply:", "v32@0:8q16" + REPLY + "24"),
        (
            "enableManualV2WithMinutes:extendOnly:requesterName:requesterContext:requesterEvent:"
            "withReply:",
            "v60@0:8q16" + boolean + '24@"NSString"28@"NSString"36@"NSString"44' + REPLY + "52",
        ),
        ("stopWithReply:", PLAIN),
        ("reconcileWithReply:", PLAIN),
        ("repairWithReply:", PLAIN),
    ]


def compiled(clang, root, architecture):
    command = [clang, "-target", architecture + "-apple-macos13", "-ffreestanding"]
    command += ["-x", "objective-c", "-fno-objc-arc", "-fblocks", "-Wall", "-Wextra", "-Werror"]
    command += ["-I" + root + "/tests/macos/apple", "-I" + root, "-S", "-emit-llvm", "-o", "-"]
    command += [root + "/tests/macos/apple/wire.m"]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def definition(code, name):
    found = re.search(r'^@"?' + re.escape(name) + r'"? = (.*)$', code, re.MULTILINE)
    return found.group(1) if found else ""


def text(code, name):
    quoted = re.search(r'c"(.*)\\00"', definition(code, name)).group(1)
    return quoted.replace("\\22", '"')


def texts(code, table, kind):
    names = re.findall(r"@(OBJC_METH_VAR_" + kind + r"_[.0-9]*)", definition(code, table))
    return [text(code, name) for name in names]


def main():
    clang, root = sys.argv[1:]
    for architecture, boolean in (("arm64", "B"), ("x86_64", "c")):
        code = compiled(clang, root, architecture)
        selectors = texts(code, "_OBJC_$_PROTOCOL_INSTANCE_METHODS_" + PROTOCOL, "NAME")
        types = texts(code, "_OBJC_$_PROTOCOL_METHOD_TYPES_" + PROTOCOL, "TYPE")
        if len(selectors) != len(types) or list(zip(selectors, types)) != wire(boolean):
            print(f"{architecture}: the wire has become\n{selectors}\n{types}")
            print(f"and was\n{wire(boolean)}")
            sys.exit(1)
        others = re.findall(r"_OBJC_\$_PROTOCOL_(CLASS_METHODS|INSTANCE_METHODS_OPT|REFS)\w*", code)
        if others:
            print(f"{architecture}: the wire has more than requests: {others}")
            sys.exit(1)
        print(f"{architecture}: {len(selectors)} requests as they were")


main()
