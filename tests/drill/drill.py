#!/usr/bin/env python3
"""Kills the real programs at every call by which a capture changes the world, and makes those calls fail.

Afterwards every text that was confirmed has to stand in its target or in the recovery log, in the target exactly once
where that is promised, and no file may be damaged. A whole run: drill.py --bin build/release; a part: --sample 20.
"""
import argparse
import collections
import itertools
import os
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import traceback
from pathlib import Path

from private_bus import PrivateBus
from scenarios import SCENARIOS, NoteScenario, SlackServer
from slot import Outcome, Point, Slot

MODES = ["kill-before", "kill-after", "fail", "every", "full", "short", "recover"]
EVERY = [1, 2, 3, 4, 5, 7, 9, 12, 16, 23, 31, 50]
ERRORS = {"ENOSPC": "n", "EIO": "i", "EINTR": "r"}  # The letter by which the trace says that a call may fail so.
VIOLATIONS = ["lost", "twice", "damaged", "mode", "hung", "crashed", "silent", "again", "recovery", "drill"]
COLUMNS = ["points", "killed", "gone", *VIOLATIONS, "temp"]


class Drill:
    def __init__(self, options):
        self.options = options
        self.program = str(options.bin / "src/cli/snipwren")
        memory = Path("/dev/shm")
        self.scratch = Path(tempfile.mkdtemp(prefix="drill-", dir=memory if os.access(memory, os.W_OK) else None))
        self.shim = options.shim or self.build_shim()
        self.scenarios = {s.name: s for s in SCENARIOS if s.name in options.targets}
        self.skipped = []
        self.kept = set()
        if "slack" in self.scenarios and b"SNIPWREN_SLACK_URL" not in Path(self.program + "-commands").read_bytes():
            del self.scenarios["slack"]  # It would call the real service.
            self.skipped.append("slack: this program has no address of its own for tests")
        if not shutil.which("dbus-daemon") or not (options.bin / "src/scheduler/snipwren-scheduler").exists():
            for name in [s.name for s in self.scenarios.values() if s.needs_bus]:
                del self.scenarios[name]
                self.skipped.append(f"{name}: there is no session bus or no scheduler")
        self.bus = PrivateBus(self.scratch) if any(s.needs_bus for s in self.scenarios.values()) else None
        self.slack = SlackServer() if "slack" in self.scenarios else None
        self.numbers = itertools.count(100)
        self.slots = [Slot(self, number) for number in range(options.jobs)]
        first = self.slots[0]
        first.scenario = NoteScenario("none", "note")
        self.has_recover = re.search(r"^ +recover\b", first.run("--help").stdout, re.M) is not None
        if not self.has_recover:
            self.skipped.append('mode "recover": this program cannot recover; its recovery log is read instead')

    def build_shim(self):
        shim = self.scratch / "write_shim.so"
        source = Path(__file__).resolve().parent / "write_shim.c"
        subprocess.run(["cc", "-std=gnu11", "-O2", "-shared", "-fPIC", "-o", shim, source, "-ldl"], check=True)
        return shim

    def points_of(self, scenario, home):
        """All of one target, after the calls of an undisturbed capture."""
        slot = self.slots[0]
        slot.set_up(scenario, home)
        marker = scenario.marker(next(self.numbers))
        slot.capture(marker, {}, check=True)
        if scenario.program == "snipwren-scheduler":
            time.sleep(0.2)  # It goes on for a moment.
        calls = slot.calls()
        if not slot.scenario.settled(slot, marker):
            raise RuntimeError(f"{scenario.name}: an undisturbed capture does not arrive")
        slot.stop_scheduler()

        def points(mode, numbers, error=""):
            return [Point(scenario.name, home, mode, number, error) for number in numbers]

        last = len(calls)
        found = {mode: [] for mode in MODES}
        for mode in ["kill-before", "kill-after", "full"]:
            found[mode] = points(mode, range(1, last + 1))
        found["short"] = points("short", (c[0] for c in calls if "w" in c[2]))
        for error, letter in ERRORS.items():
            found["fail"] += points("fail", (c[0] for c in calls if letter in c[2]), error)
            # Interrupted every time, a program that goes on until it is through would never be.
            found["every"] += points("every", (n for n in EVERY if n > (error == "EINTR")), error)
        if self.has_recover and scenario.program == "snipwren-commands" and "recover" in self.options.modes:
            found["recover"] = self.recovery_points(scenario, home, last)
        return [point for mode in self.options.modes for point in found[mode]], last

    def recovery_points(self, scenario, home, last):
        """Some deaths of the capture, late enough for something to be there; after each, all of the recovery."""
        slot, found = self.slots[0], []
        step = max(1, last // 8)
        for killed_at in range(last // 2 + self.options.seed % step, last + 1, step):
            slot.set_up(scenario, home)
            marker = scenario.marker(next(self.numbers))
            slot.capture(marker, {"DRILL_KILL_BEFORE": str(killed_at)})
            slot.recover(marker, {})
            found += [Point(scenario.name, home, "recover", number, "", killed_at)
                      for number in range(1, len(slot.calls()) + 1)]
            slot.stop_scheduler()
        return found

    def plan(self):
        points = []
        for scenario in self.scenarios.values():
            counts = []
            for home in self.options.homes:
                found, calls = self.points_of(scenario, home)
                points += found
                counts.append(f"{home} {calls} calls, {len(found)} points")
            print(f"{scenario.name:10} {'; '.join(counts)}", flush=True)
        return points

    def perform_all(self, points):
        waiting = queue.SimpleQueue()
        for point in points:
            waiting.put(point)
        results, lock = [], threading.Lock()

        def work(slot):
            while True:
                try:
                    point = waiting.get_nowait()
                except queue.Empty:
                    return
                with lock:
                    number = next(self.numbers)
                try:
                    outcome = slot.perform(point, number)
                except Exception:  # A drill that breaks is no drill that passed.
                    outcome = Outcome(violations=[("drill", f"the drill itself failed: {traceback.format_exc()}")])
                with lock:
                    results.append((point, outcome))
                    if len(results) % 1000 == 0:
                        print(f"{len(results)} of {len(points)} points done", flush=True)
                    if outcome.violations:
                        self.keep(slot, point, outcome)

        threads = [threading.Thread(target=work, args=(slot,), daemon=True) for slot in self.slots]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return results

    def keep(self, slot, point, outcome):
        kept = self.scratch / "kept"
        kept.mkdir(exist_ok=True)
        kinds = {(point.scenario, kind) for kind, _ in outcome.violations}
        if not kinds <= self.kept and slot.home.exists():  # The first of each kind.
            self.kept |= kinds
            name = re.sub(r"\W+", "-", str(point))
            slot.home.rename(kept / name)
            (kept / name / "VIOLATION").write_text(f"{point} ({outcome.call})\n{outcome.violations}\n")

    def run(self):
        print(f"calls and points of an undisturbed capture, seed {self.options.seed}:")
        began = time.monotonic()
        points = self.plan()
        everything = len(points)
        kills = sum(p.mode.startswith("kill") or p.mode == "recover" for p in points)
        print(f"all: {everything} points, {kills} of them kills")
        if self.options.at_most:
            self.options.sample = -(-everything // self.options.at_most)
        if self.options.sample > 1:
            points = points[self.options.seed % self.options.sample::self.options.sample]
        for sentence in self.skipped:
            print(f"skipped {sentence}")
        results = self.perform_all(points)
        took = time.monotonic() - began
        self.stop()
        failed = self.report(results)
        print(f"{len(results)} of {everything} points in {took:.0f} s, {len(results) / took:.1f} a second; "
              f"{failed} violated the promise")
        if failed and (self.scratch / "kept").exists():
            print(f"the homes of the first violations stand in {self.scratch / 'kept'}")
            for job in self.slots:
                shutil.rmtree(job.base, ignore_errors=True)
        else:
            shutil.rmtree(self.scratch, ignore_errors=True)
        return 1 if failed else 0

    def stop(self):
        """Takes down what was started; also after an interruption."""
        for slot in self.slots:
            slot.stop_scheduler()
        if self.bus:
            self.bus.stop()
            self.bus = None

    def report(self, results):
        rows = collections.defaultdict(collections.Counter)
        examples = collections.defaultdict(list)
        failed = 0
        for point, outcome in sorted(results, key=lambda result: str(result[0])):
            kinds = {kind for kind, _ in outcome.violations}
            if self.options.strict and outcome.temp:
                kinds.add("temp")
            failed += bool(kinds)
            for key in [(point.scenario, point.mode), ("all", point.mode), ("all", "all")]:
                rows[key].update({"points": 1, "killed": outcome.killed, "gone": outcome.gone,
                                  "temp": bool(outcome.temp), **{kind: 1 for kind in kinds - {"temp"}}})
            for kind, sentence in [*outcome.violations, *(("temp", name) for name in outcome.temp)]:
                examples[kind, point.scenario].append(f"{point} ({outcome.call}): {sentence}")
        print(f"\n{'target':11}{'mode':12}" + "".join(f"{name:>9}" for name in COLUMNS))
        order = [*self.scenarios, "all"]
        for key in sorted(rows, key=lambda k: (order.index(k[0]), [*MODES, "all"].index(k[1]))):
            print(f"{key[0]:11}{key[1]:12}" + "".join(f"{rows[key][name] or '-':>9}" for name in COLUMNS))
        for (kind, _), found in examples.items():
            for line in found[:self.options.examples]:
                print(f"{kind}: {line}")
        return failed


def options():
    names = [scenario.name for scenario in SCENARIOS]
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    listed = lambda text: text.split(",")
    source = Path(__file__).resolve().parents[2]
    parser.add_argument("--bin", type=Path, default=source / "build/release", help="the build folder")
    parser.add_argument("--shim", type=Path, help="the library that was built; without it one is compiled")
    parser.add_argument("--sample", type=int, default=1, metavar="N", help="every N-th point")
    parser.add_argument("--at-most", type=int, metavar="N", help="a sample of so many points")
    parser.add_argument("--seed", type=int, default=int(time.time() // 86400), help="where the sample begins; the day")
    parser.add_argument("--targets", type=listed, default=names, help=",".join(names))
    parser.add_argument("--homes", type=listed, default=["new", "used"], help="new,used")
    parser.add_argument("--modes", type=listed, default=MODES, help=",".join(MODES))
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--examples", type=int, default=2, help="so many of each kind and target are told")
    parser.add_argument("--strict", action="store_true", help="temporary files that were left are violations too")
    parsed = parser.parse_args()
    if unknown := {*parsed.targets, *parsed.modes, *parsed.homes} - {*names, *MODES, "new", "used"}:
        parser.error(f"unknown: {', '.join(sorted(unknown))}")
    parsed.bin = parsed.bin.resolve()
    parsed.shim = parsed.shim and parsed.shim.resolve()
    if not os.access(parsed.bin / "src/cli/snipwren", os.X_OK):
        parser.error(f"there is no program in {parsed.bin}; build it first: scripts/build")
    return parsed


def main():
    drill = Drill(options())
    try:
        return drill.run()
    except BaseException:
        drill.stop()
        raise


if __name__ == "__main__":
    sys.exit(main())
