#!/usr/bin/env python3
"""Plants faults into a copy of the sources, one at a time, and tells which of them the tests do not find.

tools/plant_faults.py                 all faults of tools/planted_faults.txt
tools/plant_faults.py --only NAME     those whose name contains NAME
tools/plant_faults.py --list          what there is, without building anything

The copy stands in build/planted; the working tree is only read, so what is not committed yet takes part. A crash and a
hang count as found. Exits 1 when more than 5 % survive or when a survivor is not explained in the list, and 2 when the
list does not fit the sources any more, a fault does not compile, or the tests fail without any fault.
"""
import argparse
import collections
import dataclasses
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "tools" / "planted_faults.txt"
COPY = ROOT / "build" / "planted"
# Two folders below the copy as build/<preset> is below the sources: a compiler cache then knows the paths.
BUILD = COPY / "build" / "tests"
SCRATCH = COPY / "build" / "scratch"

ALLOWED_SURVIVORS = 0.05

# The programs that look at the code of a folder, those first that most likely find something. Those of another machine
# or branch that are not built here are left out.
PROGRAMS = {
    "src/trigger/": ["trigger_tests", "capture_tests", "system_tests"],
    "src/capture/": ["capture_tests", "trigger_tests", "targets_timed_tests", "system_tests"],
    "src/records/": ["records_tests", "capture_tests", "system_tests"],
    "src/base/": ["base_tests", "records_tests", "capture_tests", "trigger_tests", "targets_timed_tests", "targets_tests"],
    "src/platform/": ["platform_tests", "trigger_tests", "capture_tests", "system_tests"],
    "src/hosts/portable/": ["vdir_tests", "host_portable_tests"],
    "src/hosts/linux/": ["host_linux_tests"],
    "src/hosts/virtual/": ["host_virtual_tests", "trigger_tests", "capture_tests", "system_tests"],
}


class Problem(Exception):
    """What makes the result meaningless: a list that is out of date, a build or a test that fails by itself."""


@dataclasses.dataclass
class Fault:
    name: str
    line: int
    file: str = ""
    kind: str = ""
    why: str = ""
    old: list = dataclasses.field(default_factory=list)
    new: list = dataclasses.field(default_factory=list)

    def planted_in(self, text):
        old = "\n".join(self.old)
        if (count := text.count(old)) != 1:
            raise Problem(f"{LIST.name}:{self.line}: the list is out of date: the text of {self.name} occurs {count} times "
                          f"in {self.file}")
        return text.replace(old, "\n".join(self.new))

    def programs(self):
        for folder, programs in PROGRAMS.items():
            if self.file.startswith(folder):
                return programs
        raise Problem(f"{LIST.name}:{self.line}: no test program is known for {self.file}")


def read_faults(path):
    """Each fault begins with its name; lines with - and + are the text and its replacement, as in a difference."""
    faults = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        word, _, rest = line.partition(" ")
        if word == "fault":
            faults.append(Fault(rest.strip(), number))
        elif not faults:
            raise Problem(f"{path.name}:{number}: a fault begins with its name")
        elif word in ("file", "kind"):
            setattr(faults[-1], word, rest.strip())
        elif word == "why":
            faults[-1].why = f"{faults[-1].why} {rest.strip()}".strip()
        elif word == "-":
            faults[-1].old.append(rest)
        elif word == "+":
            faults[-1].new.append(rest)
        else:
            raise Problem(f"{path.name}:{number}: unknown word {word!r}")
    names = collections.Counter(fault.name for fault in faults)
    for fault in faults:
        if names[fault.name] > 1 or not (fault.file and fault.kind and fault.old):
            raise Problem(f"{path.name}:{fault.line}: {fault.name} is there twice, or has no file, kind or text")
        source = ROOT / fault.file
        if not source.is_file():
            raise Problem(f"{path.name}:{fault.line}: the list is out of date: there is no {fault.file}")
        fault.planted_in(source.read_text(encoding="utf-8"))
    return faults


def copy_sources():
    """Only what differs is written, so that the next build is a small one."""
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                            check=True, capture_output=True).stdout.decode().split("\0")
    names = {name for name in listed if name and (ROOT / name).is_file()}
    for name in names:
        source, target = ROOT / name, COPY / name
        if not target.is_file() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
    for path in COPY.rglob("*"):
        relative = path.relative_to(COPY)
        if relative.parts[0] != "build" and path.is_file() and relative.as_posix() not in names:
            path.unlink()


def configure():
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -g0", "-DSNIPWREN_BENCHMARKS=OFF",
               "-DSNIPWREN_PROGRAMS=OFF", "-DSNIPWREN_DESKTOP=OFF"]
    if shutil.which("mold"):
        options.append("-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=mold")
    done = subprocess.run(["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", *options], capture_output=True, text=True)
    if done.returncode:
        raise Problem("the configuration failed:\n" + done.stdout + done.stderr)
    targets = subprocess.run(["ninja", "-C", BUILD, "-t", "targets", "all"], capture_output=True, text=True).stdout
    return set(re.findall(r"^(\w+_tests): phony", targets, re.MULTILINE))


def build(programs, jobs):
    """None when all is well, else what the compiler said."""
    done = subprocess.run(["ninja", "-C", BUILD, "-j", str(jobs), *programs], capture_output=True, text=True)
    return None if done.returncode == 0 else done.stdout[-4000:] + done.stderr


@dataclasses.dataclass
class Run:
    """What a test program said: `found` is empty when all its tests passed."""
    found: str
    seconds: float


def run_tests(program, limit):
    paths = list(BUILD.glob(f"tests/**/{program}"))
    if len(paths) != 1:
        raise Problem(f"{program} was built, and is not there")
    shutil.rmtree(SCRATCH, ignore_errors=True)
    SCRATCH.mkdir(parents=True)
    output = SCRATCH / "output"
    begun = time.monotonic()
    with output.open("wb") as stream:
        # A session of its own: a program that hangs is ended together with what it started, and nothing else.
        process = subprocess.Popen([paths[0], "--gtest_fail_fast"], cwd=SCRATCH, stdin=subprocess.DEVNULL,
                                   stdout=stream, stderr=subprocess.STDOUT, start_new_session=True,
                                   env={**os.environ, "TMPDIR": str(SCRATCH)})
        try:
            code = process.wait(timeout=limit)
        except subprocess.TimeoutExpired:
            code = None
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
    seconds = time.monotonic() - begun
    text = output.read_text(encoding="utf-8", errors="replace")
    begun_tests = re.findall(r"^\[ RUN      \] (\S+)", text, re.MULTILINE)
    last = begun_tests[-1] if begun_tests else "before the first test"
    if code == 0:
        return Run("", seconds)
    if code is None:
        return Run(f"{last} (hangs)", seconds)
    failed = re.search(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", text, re.MULTILINE)
    return Run(failed.group(1) if failed else f"{last} (crashes)", seconds)


class Session:
    def __init__(self, jobs, programs):
        self.jobs = jobs
        self.asked = programs
        self.limits = {}
        self.built = set()

    def programs_for(self, fault):
        chosen = self.asked or fault.programs()
        return [program for program in chosen if program in self.built]

    def prepare(self, faults):
        copy_sources()
        known = configure()
        self.built = known
        if missing := [program for program in self.asked if program not in known]:
            raise Problem("there is no test program " + ", ".join(missing))
        needed = sorted({program for fault in faults for program in self.programs_for(fault)})
        if not all(self.programs_for(fault) for fault in faults):
            raise Problem("a fault has no test program that is built here: "
                          + ", ".join(fault.name for fault in faults if not self.programs_for(fault)))
        print("without a fault: " + " ".join(needed), flush=True)
        if failed := build(needed, self.jobs):
            raise Problem("the tests do not compile:\n" + failed)
        for program in needed:
            run = run_tests(program, 600)
            if run.found:
                raise Problem(f"{program} fails without a fault: {run.found}")
            # Generous, because the machine may be busy: what waits for ever is found all the same.
            self.limits[program] = max(30, 8 * run.seconds)

    def try_fault(self, fault):
        """The test that finds it, or none."""
        target = COPY / fault.file
        whole = target.read_text(encoding="utf-8")
        target.write_text(fault.planted_in(whole), encoding="utf-8")
        try:
            for program in self.programs_for(fault):
                if failed := build([program], self.jobs):
                    raise Problem(f"{fault.name} does not compile:\n{failed}")
                if found := run_tests(program, self.limits[program]).found:
                    return f"{program.removesuffix('_tests')}.{found}"
            return None
        finally:
            target.write_text(whole, encoding="utf-8")


def table(results):
    rows = collections.defaultdict(lambda: [0, 0])
    for fault, found in results:
        folder = "/".join(fault.file.split("/")[:-1])
        for key in (folder, "kind " + fault.kind, "all"):
            rows[key][0] += 1
            rows[key][1] += 0 if found else 1
    width = max(map(len, rows))
    print(f"\n{'':{width}}  planted  survived")
    for key in sorted(rows, key=lambda key: (key == "all", key.startswith("kind "), key)):
        print(f"{key:{width}}  {rows[key][0]:7}  {rows[key][1]:8}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", action="append", default=[], metavar="NAME", help="faults whose name or file contains this")
    parser.add_argument("--list", action="store_true", help="print the faults and end")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="compilers at once")
    parser.add_argument("--programs", default="", help="test programs to run instead of those of the fault's folder: a,b")
    options = parser.parse_args()

    faults = read_faults(LIST)
    if options.only:
        faults = [fault for fault in faults if any(part in fault.name or part in fault.file for part in options.only)]
    if not faults:
        raise Problem("no fault of that name")
    if options.list:
        for fault in faults:
            print(f"{fault.kind:10} {fault.name:45} {fault.file}" + (f"\n{'':11}{fault.why}" if fault.why else ""))
        return 0

    session = Session(options.jobs, [name for name in options.programs.split(",") if name])
    begun = time.monotonic()
    session.prepare(faults)
    results = []
    problems = []
    for fault in faults:
        since = time.monotonic()
        try:
            found = session.try_fault(fault)
        except Problem as problem:
            problems.append(str(problem))
            print(f"ERROR     {fault.name}", flush=True)
            continue
        results.append((fault, found))
        seconds = time.monotonic() - since
        print(f"{'found   ' if found else 'SURVIVED'}  {fault.name:45} {found or fault.why or 'NOT EXPLAINED'}"
              f" ({seconds:.0f} s)", flush=True)
    survivors = [fault for fault, found in results if not found]
    if results:
        table(results)
    minutes = (time.monotonic() - begun) / 60
    print(f"\n{len(survivors)} of {len(results)} faults survived; {minutes:.0f} minutes")
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        return 2
    unexplained = [fault.name for fault in survivors if not fault.why]
    if unexplained:
        print("not explained: " + ", ".join(unexplained))
    # A selection is too small for a share of it to mean anything.
    too_many = not options.only and len(survivors) > ALLOWED_SURVIVORS * len(results)
    return 1 if unexplained or too_many else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Problem as problem:
        print(problem, file=sys.stderr)
        sys.exit(2)
