#!/usr/bin/env python3
"""Scores a date recogniser against a set of examples.

  score_dates.py SET.jsonl [--show N] [--minimum PERCENT] -- COMMAND [ARG...]

COMMAND gets one JSON object a line on standard input, {"text","reference","tz"}, and prints one JSON array a line:
[{"start","end","date","hasTime"}...], start and end in UTF-16 code units, date as local wall time.

Columns: count = right number of matches; range = right words, leaving leading prepositions and outer punctuation aside;
date = the primary or another accepted reading; AGREE = all three; FINAL = title, date and hasTime after the capture rules
equal those from the expected matches. --minimum makes the exit status 1 when AGREE of the core examples is lower.
"""
import argparse
import json
import re
import subprocess
import sys
from datetime import datetime, timedelta

LEADING = re.compile(
    r"^(?:[\s,;:.('\"\-–—/]+|(?:on|at|by|for|from|the|around|about|approximately|due|between|until|till|through|thru"
    r"|before|after|since|starting|roughly|like|@)\b\s*|@\s*"
    r"|in\s+(?=(?:jan|feb|mar|apr|may|jun|jul|aug|sep|oct|nov|dec|the\s+(?:morning|afternoon|evening))))+", re.I)
PREPOSITIONS = ["at", "on", "by", "next", "this", "for", "in", "to"]


def utf16(text):
    return text.encode("utf-16-le")


def piece(text, start, end):
    return utf16(text)[2 * start:2 * end].decode("utf-16-le", errors="replace")


def trimmed_range(text, start, end):
    words = piece(text, start, end)
    lead = LEADING.match(words)
    if lead and lead.end() < len(words):
        start += len(utf16(words[:lead.end()])) // 2
        words = words[lead.end():]
    words = words.rstrip(" \t\r\n,;:!?.)('\"-–—")
    return start, start + len(utf16(words)) // 2


def date_agrees(expected, date):
    date = (date or "")[:19]
    if date in [expected["date"][:19]] + [other[:19] for other in expected.get("alt", [])]:
        return True
    window = expected.get("window")
    return bool(window and window[0] <= date <= window[1])


def has_time(text):
    text = text.lower()
    if any(sign in text for sign in ("am", "pm", ":", "clock", "noon", "midnight", "tonight")):
        return True
    return bool(re.search(r"\b(at|around|@)\s*\d+", text))


def adjacent(a, b, text):
    left, right = sorted([a, b])
    between = piece(text, left[1], right[0]).lower().strip() if right[0] > left[1] else ""
    return between in ("", "at", "on", ",", "@")


def captured(text, reference, matches):
    """Title, date and whether it is timed, by the capture rules."""
    found = [((m["start"], m["end"]), datetime.fromisoformat(m["date"][:19]), has_time(piece(text, m["start"], m["end"])))
             for m in matches]
    if not found:
        return text, None, False
    span, date, timed = found[0]
    ranges = [span]
    days = [f for f in found if not f[2]]
    times = [f for f in found if f[2]]
    if len(found) > 1 and not days:
        span, date, timed = times[0]
        ranges = [span]
    elif days and times and adjacent(days[0][0], times[0][0], text):
        clock = times[0][1]
        date = days[0][1].replace(hour=clock.hour, minute=clock.minute, second=clock.second)
        ranges, timed = [days[0][0], times[0][0]], True
    if timed:
        for _ in range(370):
            if date >= reference:
                break
            date += timedelta(days=1)
    elif date.date() < reference.date():
        leap = date.month == 2 and date.day == 29
        date = date.replace(year=date.year + 1, day=28 if leap else date.day)
    rest = utf16(text)
    for start, end in sorted(ranges, reverse=True):
        rest = rest[:2 * start] + rest[2 * end:]
    title = re.sub(r"\s+", " ", rest.decode("utf-16-le", errors="replace")).strip()
    for word in PREPOSITIONS:
        if title.lower().endswith(" " + word):
            title = title[:-len(word) - 1].strip()
            break
        if title.lower() == word:
            title = ""
            break
    return title or "Untitled", date.isoformat(), timed


def final_agrees(case, matches):
    title, date, timed = captured(case["text"], datetime.fromisoformat(case["reference"]), matches)
    final = case["final"]
    if title not in final.get("titles", [final["title"]]) or timed != final["hasTime"]:
        return False
    if date is None or final["date"] is None:
        return date == final["date"]
    window = final.get("window")
    return date in final["dates"] or bool(window and window[0] <= date <= window[1])


def scored(case, matches):
    matches = sorted(matches, key=lambda m: m["start"])
    count = len(matches) == len(case["expect"])
    range_ok = date_ok = count
    left = list(matches)
    for expected in case["expect"]:
        overlap = lambda m: min(expected["end"], m["end"]) - max(expected["start"], m["start"])
        best = max(left, key=overlap, default=None)
        if best is None or overlap(best) <= 0:
            range_ok = date_ok = False
            continue
        left.remove(best)
        text = case["text"]
        range_ok &= (trimmed_range(text, best["start"], best["end"])
                     == trimmed_range(text, expected["start"], expected["end"]))
        date_ok &= date_agrees(expected, best.get("date"))
    return {"count": count, "range": range_ok, "date": date_ok, "AGREE": count and range_ok and date_ok,
            "FINAL": final_agrees(case, matches)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("set")
    parser.add_argument("--show", type=int, default=0, help="list that many examples that differ")
    parser.add_argument("--minimum", type=float, default=0, help="lowest AGREE of the core examples, in per cent")
    parser.add_argument("command", nargs="+")
    options = parser.parse_args()
    with open(options.set, encoding="utf-8") as lines:
        cases = [json.loads(line) for line in lines if line.strip()]
    asked = "".join(json.dumps({key: case[key] for key in ("text", "reference", "tz")}) + "\n" for case in cases)
    answer = subprocess.run(options.command, input=asked, capture_output=True, text=True)
    answers = answer.stdout.splitlines()
    if len(answers) != len(cases):
        sys.exit(f"{len(answers)} answers for {len(cases)} examples: {answer.stderr.strip()}")
    groups, differing = {}, []
    for case, line in zip(cases, answers):
        matches = json.loads(line)
        result = scored(case, matches)
        kind = "pos" if case["expect"] else "neg"
        for name in ("all", f"tier {case['tier']} {kind}", case["category"]):
            groups.setdefault(name, []).append(result)
        if case["tier"] == "core":
            groups.setdefault("core", []).append(result)
        if not result["AGREE"]:
            differing.append((case, matches))
    columns = ["count", "range", "date", "AGREE", "FINAL"]
    print(f"{'group':24}{'n':>5} " + "".join(f"{column:>8}" for column in columns))
    for name, results in groups.items():
        shares = [100 * sum(result[column] for result in results) / len(results) for column in columns]
        print(f"{name:24}{len(results):5} " + "".join(f"{share:7.1f}%" for share in shares))
    for case, matches in differing[:options.show]:
        want = [(piece(case["text"], e["start"], e["end"]), e["date"]) for e in case["expect"]]
        got = [(piece(case["text"], m["start"], m["end"]), m.get("date")) for m in matches]
        print(f"- {case['category']} {case['text']!r} at {case['reference']}\n    want {want}\n    got  {got}")
    core = groups["core"]
    share = 100 * sum(result["AGREE"] for result in core) / len(core)
    if share < options.minimum:
        sys.exit(f"AGREE of the core examples is {share:.1f} %, below {options.minimum} %")


if __name__ == "__main__":
    main()
