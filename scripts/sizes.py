#!/usr/bin/env python3
"""Counts the sources: files, lines, files in a folder, lines of tests for a line of product, share of comments.

sizes.py [COMMIT]...   of the working tree, or of commits: one column each

Sources are .h, .cpp, .c and .py files. The share of comments is that of the lines that have one; of all sources, and of
the .cpp files alone.
"""
import collections
import os
import re
import subprocess
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
SOURCE = re.compile(r"\.(h|cpp|c|py)$")

# Product folders, with the test folders that try them.
LAYERS = {
    "Libraries/KyBase, JxUtilsLib, OmUtilsLib": (
        ["Libraries/KyBase/", "Libraries/JxUtilsLib/", "Libraries/OmUtilsLib/"],
        ["Tests/KyBase/", "Tests/JxUtilsLib/", "Tests/OmUtilsLib/"]),
    "Libraries/KyPlatform": (["Libraries/KyPlatform/"], ["Tests/KyPlatform/"]),
    "Libraries/clserzmo": (["Libraries/clserzmo/"], ["Tests/clserzmo/", "Tests/Processes/"]),
    "Libraries/KySerial": (["Libraries/KySerial/"], ["Tests/KySerial/", "Tests/Host/"]),
    "Libraries/KySerialC, KyGigEC": (["Libraries/KySerialC/", "Libraries/KyGigEC/"], ["Tests/KySerialC/", "Tests/KyGigEC/"]),
    "Adapters, Libraries/KyGvcp": (["Adapters/", "Libraries/KyGvcp/"], ["Tests/GigE/", "Tests/GenApi/"]),
    "Simulator": (["Simulator/"], ["Tests/Simulator/"]),
    "Tools": (["Tools/"], ["Tests/Tools/"]),
}
PARTS = ["Libraries/", "Adapters/", "Simulator/", "Tools/", "Bindings/", "Examples/", "Benchmarks/", "Tests/"]


def git(*arguments):
    return subprocess.run(["git", "-C", ROOT, *arguments], check=True, capture_output=True).stdout


def read(commit):
    """The sources by their paths."""
    if commit is None:
        names = git("ls-files", "--cached", "--others", "--exclude-standard").decode().splitlines()
        return {name: open(os.path.join(ROOT, name), "rb").read().decode(errors="replace")
                for name in names if SOURCE.search(name) and os.path.isfile(os.path.join(ROOT, name))}
    names = [name for name in git("ls-tree", "-r", "--name-only", commit).decode().splitlines() if SOURCE.search(name)]
    return {name: git("show", f"{commit}:{name}").decode(errors="replace") for name in names}


class Count:
    """What is counted of some sources."""

    def __init__(self, sources):
        self.files = len(sources)
        self.lines = sum(text.count("\n") for text in sources.values())
        folders = collections.Counter(os.path.dirname(name) for name in sources)
        self.folder, self.fullest = folders.most_common(1)[0] if folders else ("", 0)
        self.mean = self.files / len(folders) if folders else 0
        comments = sum(count_comments(name, text) for name, text in sources.items())
        self.comments = 100 * comments / self.lines if self.lines else 0
        bodies = {name: text for name, text in sources.items() if name.endswith(".cpp")}
        lines = sum(text.count("\n") for text in bodies.values())
        self.bodies = 100 * sum(count_comments(*item) for item in bodies.items()) / lines if lines else 0


def count_comments(name, text):
    mark = re.compile(r"(^|\s)#" if name.endswith(".py") else r"(^|\s)//")
    inside = False
    count = 0
    for line in text.splitlines():
        if name.endswith((".h", ".c")):
            inside = inside or line.lstrip().startswith("/*")
        count += 1 if inside or mark.search(line) else 0
        inside = inside and "*/" not in line
    return count


def select(sources, prefixes):
    return {name: text for name, text in sources.items() if name.startswith(tuple(prefixes))}


def main():
    commits = sys.argv[1:] or [None]
    trees = [read(commit) for commit in commits]
    names = [commit[:7] if commit else "working tree" for commit in commits]
    print("| part | " + " | ".join(f"{name}: files | lines | files a folder, mean (most) | comments %, in .cpp %" for name in names) + " |")
    print("|---|" + "---|" * (4 * len(names)))
    for part in PARTS + [""]:
        row = [f"| {part.rstrip('/') or 'all'}"]
        for tree in trees:
            count = Count(select(tree, [part]))
            row.append(f"{count.files} | {count.lines:,} | {count.mean:.1f} ({count.fullest}) | {count.comments:.1f}, {count.bodies:.1f}")
        print(" | ".join(row) + " |")
    print()
    print("| layer | " + " | ".join(f"{name}: product lines | test lines | ratio" for name in names) + " |")
    print("|---|" + "---|" * (3 * len(names)))
    for layer, (product, tests) in LAYERS.items():
        row = [f"| {layer}"]
        for tree in trees:
            lines = Count(select(tree, product)).lines
            test_lines = Count(select(tree, tests)).lines
            row.append(f"{lines:,} | {test_lines:,} | {test_lines / lines if lines else 0:.2f}")
        print(" | ".join(row) + " |")


if __name__ == "__main__":
    main()
