#!/usr/bin/env python3
"""Times `snipwren --version` from start to exit beside /bin/true, in turn, and prints medians in milliseconds."""
import statistics
import subprocess
import sys
import time

ROUNDS = 60


def milliseconds(command):
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return (time.perf_counter() - start) * 1e3


def main():
    program = [sys.argv[1], "--version"]
    ours, reference = [], []
    for _ in range(ROUNDS):
        ours.append(milliseconds(program))
        reference.append(milliseconds(["/bin/true"]))
    print(f"snipwren --version: median {statistics.median(ours):.2f} ms (bar: below 15), "
          f"/bin/true: median {statistics.median(reference):.2f} ms, {ROUNDS} rounds")


if __name__ == "__main__":
    main()
