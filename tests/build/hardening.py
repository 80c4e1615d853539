#!/usr/bin/env python3
"""Reads programs and static libraries back and names each that lacks a protection against memory faults.

What each program must have is read in each. What only some of them give reason for (a fortified call, a frame so large
that it is probed page by page) has to be in at least one.
"""
import argparse
import os
import platform
import re
import subprocess
import sys


def output_of(*command):
    return subprocess.run(command, env={**os.environ, "LC_ALL": "C"}, check=True, capture_output=True, text=True).stdout


def faults_of_program(path, marks_expected):
    segments = output_of("readelf", "-hlW", path)
    dynamic = output_of("readelf", "-dW", path)
    stack = re.search(r"GNU_STACK(?:\s+0x[0-9a-f]+){5}\s+(\S+)", segments)
    checks = {
        "is not position independent": re.search(r"Type:\s+DYN", segments) and re.search(r"FLAGS_1.*\bPIE\b", dynamic),
        "has no read-only relocations": "GNU_RELRO" in segments,
        "binds functions late, which leaves their table writable": re.search(r"FLAGS.*\b(BIND_)?NOW\b", dynamic),
        "has an executable stack": stack and "E" not in stack[1],
        "has no stack protector": "__stack_chk_fail" in output_of("readelf", "--dyn-syms", "-W", path),
        "is not marked for control-flow protection": not marks_expected or has_marks(output_of("readelf", "-nW", path)),
    }
    return [fault for fault, passed in checks.items() if not passed]


def has_marks(notes):
    return "IBT" in notes and "SHSTK" in notes


def unmarked_members(library):
    members = output_of("readelf", "-nW", library).split("\nFile: ")
    return [re.search(r"\((.+?)\)", member)[1] for member in members if "(" in member and not has_marks(member)]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--startup", required=True, help="the start-up object that programs are linked with")
    parser.add_argument("--programs", nargs="+", required=True)
    parser.add_argument("--libraries", nargs="+", required=True)
    arguments = parser.parse_args()

    x86 = platform.machine() in ("x86_64", "i686")
    # The linker drops the marks when one object is without them, and with some C libraries the start-up object is.
    marks_expected = x86 and has_marks(output_of("readelf", "-nW", arguments.startup))
    faults = [f"{path} {fault}" for path in arguments.programs for fault in faults_of_program(path, marks_expected)]
    if x86:
        faults += [f"{library}: {member} is not marked for control-flow protection"
                   for library in arguments.libraries for member in unmarked_members(library)]

    smallest_first = sorted(arguments.programs, key=os.path.getsize)
    if not any(re.search(r"__\w+_chk@", output_of("readelf", "--dyn-syms", "-W", path).replace("__stack_chk", ""))
               for path in smallest_first):
        faults.append("no program calls a fortified function")
    if x86 and not any(re.search(r"\sor[lq]\s+\$0x0,(0x[0-9a-f]+)?\(%[re]sp\)", output_of("objdump", "-d", path))
                       for path in smallest_first):
        faults.append("no program probes the pages of a large frame")

    for fault in faults:
        print(fault)
    print(f"{len(arguments.programs)} programs and {len(arguments.libraries)} libraries read, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
