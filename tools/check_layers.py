#!/usr/bin/env python3
"""Checks that includes between the folders of src/ follow the allowed directions.

Prints each offending line and exits 1 if there is one. ARCHITECTURE.md explains the directions.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SRC = ROOT / "src"

# What each folder may include besides itself. Every arrow points down this list; there is no exception.
ALLOWED = {
    "base": set(),
    "platform": {"base"},
    "store": {"base", "platform"},
    "parsing": {"base", "platform"},
    "update": {"base", "platform"},
    "scheduler": {"base", "store"},
    "hosts": {"base", "platform", "scheduler"},
    "ai": {"base", "platform", "store"},
    "trigger": {"base", "platform", "store"},
    "records": {"base", "platform", "store"},
    "capture": {"base", "platform", "store", "records", "parsing", "trigger"},
    "targets": {"base", "platform", "capture", "parsing", "store", "records"},
    "context": {"base", "platform", "store", "ai"},
}
CORE = set(ALLOWED) - {"hosts"}
ALLOWED["app"] = set(ALLOWED)
ALLOWED["shell"] = CORE | {"app"}
ALLOWED["cli"] = CORE | {"app"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
QT = re.compile(r"^(Q[A-Z]\w*|Qt\w+/.*)$")


def problems_in(path):
    folder = path.relative_to(SRC).parts[0]
    if folder not in ALLOWED:
        yield 0, f"unknown folder src/{folder}"
        return
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        quote, target = match.groups()
        if quote == "<":
            if QT.match(target) and folder != "shell":
                yield number, f"Qt header <{target}> outside shell/"
            continue
        to_folder = pathlib.PurePosixPath(target).parts[0]
        if to_folder not in ALLOWED or not (SRC / target).is_file():
            yield number, f'"{target}" is not a path from src/'
        elif to_folder != folder and to_folder not in ALLOWED[folder]:
            what = "only app/ names a host" if to_folder == "hosts" else f"{folder}/ may not use {to_folder}/"
            yield number, f"{what}: {target}"


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
