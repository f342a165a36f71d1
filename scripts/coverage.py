"""Adds up what gcov knows of the lines and branches of Libraries/ and writes it as a trace file for gcovr.

coverage.py BUILD OUTPUT

gcovr itself reads gcov's text, which marks the branches of exceptions only where they were reached. A
source that is compiled for several libraries, or a header, then counts those of every copy that was not run as missed.
"""
import collections
import json
import pathlib
import subprocess
import sys

CHUNK = 64


def records(build):
    """What gcov says of every object that has run."""
    counters = sorted(str(path) for path in pathlib.Path(build).rglob("*.gcda"))
    for first in range(0, len(counters), CHUNK):
        command = ["gcov", "--json-format", "--stdout", "--branch-probabilities", *counters[first:first + CHUNK]]
        found = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if found.returncode != 0:  # counters that a process left half written, or of another build, count as nothing
            sys.stderr.write(found.stderr.decode())
        for text in found.stdout.splitlines():
            if text.strip():
                yield from json.loads(text)["files"]


def excluded(source):
    """The lines that gcovr's markers take out, and those whose branches only; each marker stands with its reason."""
    lines, branches, inside = set(), set(), False
    for number, text in enumerate(source, 1):
        inside = inside or "GCOVR_EXCL_START" in text
        if inside or "GCOVR_EXCL_LINE" in text:
            lines.add(number)
        if "GCOVR_EXCL_BR_LINE" in text:
            branches.add(number)
        inside = inside and "GCOVR_EXCL_STOP" not in text
    return lines, branches


def main():
    root = pathlib.Path.cwd()
    files = collections.defaultdict(dict)
    for record in records(sys.argv[1]):
        path = (root / record["file"]).resolve()
        if not path.is_relative_to(root / "Libraries"):
            continue
        lines = files[str(path.relative_to(root))]
        for entry in record["lines"]:
            line = lines.setdefault(entry["line_number"], {"count": 0, "branches": []})
            line["count"] += entry["count"]
            for index, branch in enumerate(entry["branches"]):
                if index == len(line["branches"]):
                    line["branches"].append({"count": 0, "throw": False, "fallthrough": branch["fallthrough"]})
                line["branches"][index]["count"] += branch["count"]
                line["branches"][index]["throw"] |= branch["throw"]
    trace = []
    for name, lines in sorted(files.items()):
        source = (root / name).read_text().splitlines()
        out, branches_out = excluded(source)
        lines = {number: line for number, line in lines.items() if number not in out and number <= len(source)}
        for number, line in lines.items():
            # Code at a brace is the compiler's, most often the path of an exception.
            own = source[number - 1].strip() not in ("", "{", "}", "{}", "};")
            heeded = own and number not in branches_out
            line["branches"] = [branch for branch in line["branches"] if heeded and not branch["throw"]]
            line.update({"line_number": number, "gcovr/excluded": False, "gcovr/noncode": not own})
        trace.append({"file": name, "functions": [], "lines": [lines[number] for number in sorted(lines)]})
    pathlib.Path(sys.argv[2]).write_text(json.dumps({"gcovr/format_version": "0.3", "files": trace}))


main()
