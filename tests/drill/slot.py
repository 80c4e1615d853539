"""One point of the drill, from a fresh home to the judgement on what is left in it."""
import dataclasses
import os
import re
import shutil
import signal
import sqlite3
import stat
import subprocess
import time
from pathlib import Path

from private_bus import BusClient
from scenarios import NoteScenario

PATIENCE = 20  # Seconds in which a program that met a fault has to end by itself.
QUOTED = r'"((?:[^"\\]|\\.)*)"'
LOG_LINE = re.compile(r"\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] target=\S+ error=" + QUOTED + " text=" + QUOTED)


@dataclasses.dataclass(frozen=True)
class Point:
    scenario: str
    home: str  # "new": the first capture ever; "used": one of many.
    mode: str
    number: int
    error: str = ""
    killed_at: int = 0  # For "recover": where the capture died.

    def variables(self):
        value = f"{self.number}:{self.error}" if self.error else str(self.number)
        name = {"kill-before": "KILL_BEFORE", "kill-after": "KILL_AFTER", "fail": "FAIL", "every": "FAIL_EVERY",
                "full": "FULL_DISK", "short": "SHORT", "recover": "KILL_AFTER"}[self.mode]
        return {f"DRILL_{name}": value}

    def __str__(self):
        first = f"{self.killed_at}+" if self.killed_at else ""
        return f"{self.scenario}/{self.home} {self.mode} {first}{self.number}{':' if self.error else ''}{self.error}"


@dataclasses.dataclass
class Outcome:
    killed: bool = False
    gone: bool = False  # The text stands nowhere, which before its confirmation is allowed.
    violations: list = dataclasses.field(default_factory=list)  # (kind, sentence)
    temp: list = dataclasses.field(default_factory=list)
    call: str = ""


class Slot:
    """One of the jobs: a folder that every home of it stands at, as the settings hold whole paths."""

    def __init__(self, drill, number):
        self.drill = drill
        self.base = drill.scratch / f"job{number}"
        self.home = self.base / "home"
        self.stand_ins = self.base / "bin"
        self.trace = self.base / "trace"
        self.templates = {}
        self.stand_ins.mkdir(parents=True)
        for name in ["xclip", "xsel", "wl-copy"]:
            (self.stand_ins / name).write_text('#!/bin/sh\nexec cat > "$DRILL_CLIPBOARD"\n')
            (self.stand_ins / name).chmod(0o755)
        self.bus = BusClient(drill.bus.address) if drill.bus else None
        self.scenario = None

    def run(self, *arguments, given=None, more=None, check=True):
        environment = {"HOME": str(self.home), "SNIPWREN_HOME": str(self.home), "PATH": os.environ["PATH"],
                       "LANG": "C.UTF-8", "TZ": "UTC", "SW_TEST_MODE": "1",
                       "DBUS_SESSION_BUS_ADDRESS":
                           self.drill.bus.address if self.scenario.needs_bus else "unix:path=/nonexistent"}
        environment.update(more or {})
        process = subprocess.Popen([self.drill.program, *arguments], env=environment, close_fds=False,
                                   stdin=subprocess.PIPE if given is not None else subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        try:
            out, err = process.communicate(given.encode() if given is not None else None, timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            out, err = process.communicate()
            return subprocess.CompletedProcess(arguments, None, out.decode(errors="replace"), err.decode())
        done = subprocess.CompletedProcess(arguments, process.returncode, out.decode(errors="replace"),
                                           err.decode(errors="replace"))
        if check and done.returncode != 0:
            raise RuntimeError(f"{' '.join(arguments)}: {done.returncode}: {done.stderr}")
        return done

    def capture(self, marker, variables, check=False):
        arguments, given = self.scenario.arguments(marker)
        self.trace.unlink(missing_ok=True)
        return self.run(*arguments, given=given, check=check, more={
            **self.scenario.environment(self, marker), "LD_PRELOAD": str(self.drill.shim),
            "DRILL_PROGRAM": self.scenario.program, "DRILL_TRACE": str(self.trace), **variables})

    def recover(self, marker, variables=None, check=False):
        self.trace.unlink(missing_ok=True)
        return self.run("recover" if self.drill.has_recover else "log", check=check, more={
            **self.scenario.environment(self, marker), **({
                "LD_PRELOAD": str(self.drill.shim), "DRILL_PROGRAM": "snipwren-commands",
                "DRILL_TRACE": str(self.trace), **variables} if variables is not None else {})})

    def calls(self):
        """What the last program did: (number, name, letters of what it may fail with, path)."""
        lines = self.trace.read_text(errors="replace").splitlines() if self.trace.exists() else []
        rows = [line.split(" ", 3) for line in lines]
        return [(int(row[0]), row[1], row[2], row[3] if len(row) > 3 else "") for row in rows if len(row) > 2]

    def stop_scheduler(self):
        if self.drill.bus and self.scenario and self.scenario.needs_bus:
            if process := self.bus.scheduler_of(str(self.home)):
                os.kill(process, signal.SIGKILL)
                while self.bus.scheduler_of(str(self.home)) == process:
                    time.sleep(0.001)

    def set_up(self, scenario, home):
        """A fresh home in which nothing (or not much) was captured yet."""
        self.scenario = scenario
        template = self.templates.get((scenario.name, home))
        shutil.rmtree(self.home, ignore_errors=True)
        for left in self.base.glob("clipboard-*"):
            left.unlink()
        if not template:
            self.home.mkdir()
            scenario.prepare(self)
            if home == "used":
                for number in range(2):
                    self.capture(scenario.marker(number), {"DRILL_PROGRAM": ""}, check=True)
            self.stop_scheduler()
            template = self.base / f"template-{scenario.name}-{home}"
            self.home.rename(template)
            self.templates[scenario.name, home] = template
        shutil.copytree(template, self.home, symlinks=True)

    @property
    def private_folder(self):
        return self.home / "data/com.snipwren.app"

    def log_lines(self):
        path = self.private_folder / "fallback_captures.log"
        return path.read_text(errors="replace").splitlines() if path.exists() else []

    def logged(self, marker):
        return sum(self.scenario.in_log(found[2], marker)
                   for found in map(LOG_LINE.fullmatch, self.log_lines()) if found)

    def journal_has(self, marker):
        path = self.private_folder / "captures.journal"
        return path.exists() and marker.encode() in path.read_bytes()

    def private_files(self):
        for root in [self.home / part for part in ("data", "config", "state")]:
            for folder, _, names in os.walk(root):
                for name in names:
                    yield Path(folder) / name

    def damage(self, before):
        yield from (("damaged", text) for text in self.scenario.damage(self, before))
        for line in self.log_lines():
            if line and not LOG_LINE.fullmatch(line):
                yield "damaged", f"the recovery log has a line that does not parse: {line!r}"
        files = list(self.private_files())
        for path in files:
            mode = path.lstat().st_mode
            if stat.S_ISREG(mode) and stat.S_IMODE(mode) != 0o600:
                yield "mode", f"{path.name} has the mode {stat.S_IMODE(mode):o}"
            if ".damaged" in path.name or ".unreadable" in path.name:
                yield "damaged", f"a program put {path.name} aside"
        # Last: looking at a database may take its companion files away.
        for path in files:
            if path.suffix != ".db":
                continue
            try:
                database = sqlite3.connect(path)
                answer = database.execute("PRAGMA integrity_check").fetchone()[0]
                database.close()
            except sqlite3.Error as error:
                answer = str(error)
            if answer != "ok":
                yield "damaged", f"{path.name}: {answer}"

    def left_files(self):
        """Temporary files of ours that nobody removed, in the target's folder and in the program's own."""
        target = self.home / self.scenario.folder if self.scenario.folder else None
        for folder in filter(None, [target, self.private_folder, self.home / "config/com.snipwren.app"]):
            if folder.is_dir():
                yield from (f"{folder.relative_to(self.home)}/{p.name}" for p in folder.iterdir()
                            if p.is_file() and re.fullmatch(r"\..*[.-]\w{6}", p.name))

    def state(self, marker):
        notes = self.scenario.notes(self.home) if isinstance(self.scenario, NoteScenario) else None
        return self.scenario.settled(self, marker), self.log_lines(), notes

    def perform(self, point, number):
        scenario = self.drill.scenarios[point.scenario]
        self.set_up(scenario, point.home)
        marker = scenario.marker(number)
        before = scenario.notes(self.home) if isinstance(scenario, NoteScenario) else {}
        outcome = Outcome()
        is_recovery = point.mode == "recover"
        ran = self.capture(marker, {"DRILL_KILL_BEFORE": str(point.killed_at)} if is_recovery else point.variables())
        calls = self.calls()
        outcome.killed = self.was_killed(point, calls, ran)
        where = [call for call in calls if call[0] == (point.killed_at or point.number)]
        outcome.call = f"{where[0][1]} {where[0][3]}".replace(str(self.home) + "/", "") if where else ""
        stood = bool(scenario.landed(self, marker)) or self.logged(marker) > 0
        receipt = not scenario.typed and ran.stdout.strip()
        ended = ran.returncode is not None and ran.returncode >= 0
        # A program that ends by itself and says that it failed has confirmed nothing, whatever it had begun.
        confirmed = stood or (ran.returncode == 0 if ended else receipt or self.journal_has(marker))
        recoveries = []
        if is_recovery:
            recoveries.append(self.recover(marker, point.variables()))
            outcome.killed = recoveries[0].returncode == -signal.SIGKILL
        self.judge_ending(point, ran, outcome)
        recoveries.append(self.recover(marker))
        after = self.state(marker)
        landed, kept = after[0], self.logged(marker)
        outcome.gone = landed + kept == 0
        told = f"exit {ran.returncode}, {ran.stderr.strip()!r}"
        if outcome.gone and confirmed:
            outcome.violations.append(("lost", f"the text stands nowhere; {told}"))
        elif ran.returncode == 0 and landed == 0 and not (kept and not scenario.once):
            outcome.violations.append(("lost", f"the program said nothing, and the text is not in its target; {told}"))
        elif outcome.gone and "recovery log" in ran.stderr and "aved" in ran.stderr:
            outcome.violations.append(("lost", f"it was not kept as the program said; {told}"))
        if landed > 1 and scenario.once:
            outcome.violations.append(("twice", f"the text stands {landed} times in its target"))
        if self.drill.has_recover:
            recoveries.append(self.recover(marker))
            if self.state(marker) != after:
                outcome.violations.append(("again", "a second recovery changed something"))
        for done in recoveries[outcome.killed and is_recovery:]:
            if done.returncode != 0:
                outcome.violations.append(("recovery", f"a recovery ended with {done.returncode}: {done.stderr!r}"))
        self.stop_scheduler()
        outcome.violations += self.damage(before)
        outcome.temp = list(self.left_files())
        return outcome

    def was_killed(self, point, calls, ran):
        if not point.mode.startswith("kill"):
            return False
        if self.scenario.program == "snipwren-scheduler":
            return bool(calls) and calls[-1][0] >= point.number
        return ran.returncode == -signal.SIGKILL

    def judge_ending(self, point, ran, outcome):
        expects_kill = outcome.killed or point.mode == "recover"
        if ran.returncode is None:
            outcome.violations.append(("hung", f"it did not end within {PATIENCE} s"))
        elif ran.returncode < 0 and not (expects_kill and ran.returncode == -signal.SIGKILL):
            outcome.violations.append(("crashed", f"it died of {signal.Signals(-ran.returncode).name}: {ran.stderr!r}"))
        elif ran.returncode > 0 and not re.search(r"\w+ \w+.*", ran.stderr):
            outcome.violations.append(("silent", f"it ended with {ran.returncode} and no sentence"))
