#!/usr/bin/env python3
"""Checks that includes between the folders of src/ follow the allowed directions.

Prints each offending line and exits 1 if there is one. ARCHITECTURE.md explains the directions.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SRC = ROOT / "src"

ALLOWED = {
    "base": set(),
    "platform": {"base"},
    "parsing": {"base", "platform"},
    "store": {"base", "platform"},
    "update": {"base", "platform"},
    "ai": {"base", "platform", "store"},
    "trigger": {"base", "platform", "store"},
    "records": {"base", "platform", "store"},
    "scheduler": {"base", "store"},
    "eds": set(),
    "capture": {"base", "platform", "store", "records", "parsing", "trigger"},
    "targets": {"base", "platform", "capture", "parsing", "store", "records"},
    "context": {"base", "platform", "store", "ai"},
}
EVERYTHING = set(ALLOWED) | {"app", "shell", "cli"}
ALLOWED.update({"app": EVERYTHING - {"shell", "cli"}, "shell": EVERYTHING - {"cli"}, "cli": EVERYTHING - {"shell"}})
HOSTS = {"virtual", "linux", "terminal", "macos", "portable"}
# A host implements the interfaces of platform/ and may use the core's value types; the core never names a host.
HOST_MAY_USE = {"base", "platform", "store", "trigger", "capture", "parsing", "scheduler"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
QT = re.compile(r"^(Q[A-Z]\w*|Qt\w+/.*)$")


def folder_and_host(relative):
    parts = relative.parts
    host = parts[1] if parts[0] == "platform" and len(parts) > 2 and parts[1] in HOSTS else None
    return parts[0], host


def problems_in(path):
    relative = path.relative_to(SRC)
    folder, host = folder_and_host(relative)
    if folder not in ALLOWED:
        yield 0, f"unknown folder src/{folder}"
        return
    qt_allowed = folder == "shell" or (host == "linux" and relative.parts[-1].startswith("qt"))
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        quote, target = match.groups()
        if quote == "<":
            if QT.match(target) and not qt_allowed:
                yield number, f"Qt header <{target}> outside shell/ and platform/linux/qt*"
            continue
        to_folder, to_host = folder_and_host(pathlib.PurePosixPath(target))
        if to_folder not in ALLOWED:
            yield number, f'"{target}" is not a path from src/'
        elif to_host and to_host != host and to_host != "portable" and folder not in ("app", "shell"):
            yield number, f"only app/ and shell/ name a concrete host: {target}"
        elif to_host == "portable" and folder not in ("app", "shell", "cli", "platform"):
            yield number, f"the core does not name an implementation: {target}"
        elif host:
            if to_folder not in HOST_MAY_USE:
                yield number, f"a host may not use {to_folder}/: {target}"
        elif to_folder != folder and to_folder not in ALLOWED[folder]:
            yield number, f"{folder}/ may not use {to_folder}/: {target}"


def main():
    count = 0
    for path in sorted(SRC.rglob("*")):
        if path.suffix not in (".h", ".cpp", ".mm"):
            continue
        for number, message in problems_in(path):
            print(f"{path.relative_to(ROOT)}:{number}: {message}")
            count += 1
    print(f"layers: {count} problem{'s' if count != 1 else ''}")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
