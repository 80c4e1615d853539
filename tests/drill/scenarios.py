"""What is captured, where it lands, and how that is told from outside."""
import dataclasses
import http.server
import json
import os
import re
import threading


class SlackServer:
    """The three calls that a capture makes. A message whose client_msg_id came before is the same message."""

    def __init__(self):
        messages, known, lock = [], set(), threading.Lock()
        self.messages = messages

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def answer(self, body):
                data = json.dumps(body).encode()
                self.send_response(200)
                self.send_header("Content-Type", "application/json")
                self.send_header("Content-Length", str(len(data)))
                self.end_headers()
                self.wfile.write(data)

            def do_GET(self):
                if self.path.startswith("/api/users.list"):
                    self.answer({"ok": True, "members": [{"id": "U1", "name": "ana"}]})
                else:
                    self.answer({"ok": True, "channels": [{"id": "C1", "name": "general"}]})

            def do_POST(self):
                length = int(self.headers.get("Content-Length", 0))
                data = self.rfile.read(length)
                if len(data) < length:  # The sender died over it.
                    return
                message = json.loads(data)
                with lock:
                    name = message.get("client_msg_id")
                    if name is None or name not in known:
                        messages.append(message.get("text", ""))
                    known.add(name)
                self.answer({"ok": True, "ts": "1"})

            def log_message(self, *_):
                pass

        class Server(http.server.ThreadingHTTPServer):
            daemon_threads = True

            def handle_error(self, *_):  # A program that was killed hangs up.
                pass

        self.server = Server(("127.0.0.1", 0), Handler)
        self.address = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def count(self, marker):
        return sum(marker in text for text in list(self.messages))


@dataclasses.dataclass
class Scenario:
    name: str
    word: str
    text: str = "{marker} buy milk – Grüße {marker}"
    once: bool = True  # Promised exactly once, not at least once.
    folder: str = ""  # The target's folder below the home.
    needs_bus: bool = False
    typed: bool = False
    program: str = "snipwren-commands"

    def marker(self, number):
        return f"drill{number:08d}mark"

    def filled(self, marker):
        return self.text.format(marker=marker)

    def settings(self, home):
        return {}

    def prepare(self, slot):
        for key, value in self.settings(slot.home).items():
            (slot.home / self.folder).mkdir(parents=True, exist_ok=True)
            slot.run("config", "set", key, str(value))

    def arguments(self, marker):
        """Those of the program, and its standard input."""
        if self.typed:
            return ["type"], f"Hello //{self.word} {self.filled(marker)}\n"
        return ["capture", self.word, self.filled(marker)], None

    def environment(self, slot, marker):
        return {}

    def landed(self, slot, marker):
        """How often the text stands in the target; None where only a program could tell."""
        raise NotImplementedError

    def settled(self, slot, marker):
        """The same, asked of whoever knows."""
        return self.landed(slot, marker)

    def in_log(self, text, marker):
        return self.filled(marker) in text

    def damage(self, slot, before):
        return []


class NoteScenario(Scenario):
    """Lines in a text file."""

    def notes(self, home):
        folder = home / self.folder
        return {p.name: p.read_bytes() for p in folder.glob("*.md")} if folder.is_dir() else {}

    def landed(self, slot, marker):
        whole = self.filled(marker).encode()
        return sum(whole in line for note in self.notes(slot.home).values() for line in note.split(b"\n"))

    def damage(self, slot, before):
        now = self.notes(slot.home)
        for name, old in before.items():
            if not now.get(name, b"").startswith(old):
                yield f"{name} lost lines that it had"
        for name, note in now.items():
            if note and not note.endswith(b"\n"):
                yield f"{name} ends in half a line"
            for line in note.split(b"\n"):
                for found in re.findall(rb"drill\d*", line)[:1]:
                    if self.filled(self.marker(int(found[5:13] or 0))).encode() not in line:
                        yield f"{name} has a torn line: {line!r}"

    def settings(self, home):
        key = {"obsidian": "obsidianVaultPath", "logseq": "logseqGraphPath"}.get(self.word)
        return {key: home / ("vault" if self.word == "obsidian" else "graph")} if key else {}

    def prepare(self, slot):
        super().prepare(slot)
        if self.word == "obsidian":
            (slot.home / "vault/.obsidian").mkdir(parents=True, exist_ok=True)


class CalendarScenario(Scenario):
    """A file of its own for each text."""

    def settings(self, home):
        return {("remindersFolder" if self.word == "reminders" else "calendarFolder"): home / self.folder}

    def files(self, slot):
        return [p for p in (slot.home / self.folder).glob("*.ics") if not p.name.startswith(".")]

    def landed(self, slot, marker):
        return sum(marker in re.sub(r"\r?\n[ \t]", "", p.read_bytes().decode()) for p in self.files(slot))

    def damage(self, slot, before):
        for path in self.files(slot):
            open_parts = []
            lines = re.sub(r"\r\n[ \t]", "", path.read_bytes().decode()).split("\r\n")
            for line in lines[:-1]:
                kind, _, value = line.partition(":")
                if kind == "BEGIN":
                    open_parts.append(value)
                elif kind == "END" and (not open_parts or open_parts.pop() != value):
                    yield f"{path.name}: END:{value} without its beginning"
            if open_parts or lines[-1] != "" or lines[0] != "BEGIN:VCALENDAR":
                yield f"{path.name} is not whole"


class ClipboardScenario(Scenario):
    def environment(self, slot, marker):
        # A helper that outlives the program that was killed must not write over the next text.
        return {"DISPLAY": ":drill", "PATH": f"{slot.stand_ins}:{os.environ['PATH']}",
                "DRILL_CLIPBOARD": str(slot.base / f"clipboard-{marker}")}

    def marker(self, number):
        return str(70000000 + number) if self.word == "calc" else super().marker(number)

    def landed(self, slot, marker):
        path = slot.base / f"clipboard-{marker}"
        wanted = str(int(marker) + 1) if self.word == "calc" else self.filled(marker)
        return int(path.exists() and wanted in path.read_text(errors="replace").replace(",", ""))


class ScheduledScenario(Scenario):
    def landed(self, slot, marker):
        return None

    def settled(self, slot, marker):
        answer = slot.run("scheduled", "--json", check=False)
        if answer.returncode != 0:  # Whoever answers may be the one that is made to fail.
            slot.stop_scheduler()
            answer = slot.run("scheduled", "--json")
        return sum(marker in entry["title"] for entry in json.loads(answer.stdout))


class SlackScenario(Scenario):
    def prepare(self, slot):
        slot.run("secrets", "set", "SnipwrenAI", "slackToken", given="xoxb-drill\n")

    def arguments(self, marker):
        return ["capture", self.word, "--to", "#general", self.filled(marker)], None

    def environment(self, slot, marker):
        return {"SNIPWREN_SLACK_URL": slot.drill.slack.address}

    def landed(self, slot, marker):
        return slot.drill.slack.count(marker)


SCENARIOS = [
    NoteScenario("note", "note", folder="Documents/Snipwren"),
    NoteScenario("type", "note", folder="Documents/Snipwren", typed=True),
    CalendarScenario("reminders", "reminders", "{marker} tomorrow 9:00", folder="tasks", needs_bus=True),
    ClipboardScenario("copy", "copy", once=False),
    ScheduledScenario("timer", "timer", "25m {marker}", once=False, needs_bus=True),
    ScheduledScenario("scheduler", "timer", "25m {marker}", once=False, needs_bus=True, program="snipwren-scheduler"),
    ClipboardScenario("calc", "calc", "{marker}+1", once=False),
    ScheduledScenario("alarm", "alarm", "tomorrow 7:30am {marker}", once=False, needs_bus=True),
    CalendarScenario("calendar", "calendar", "{marker} tomorrow 9:00", folder="events"),
    NoteScenario("obsidian", "obsidian", folder="vault"),
    SlackScenario("slack", "slack"),
    NoteScenario("logseq", "logseq", folder="graph/journals"),
]
