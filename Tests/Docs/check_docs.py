#!/usr/bin/env python3
"""Checks the documentation: check_docs.py SOURCE, or, links only, check_docs.py --installed FOLDER

Links of the Markdown files and the files that installed headers name have to exist; each picture has to have the labels of
its text, so that one is not changed without the other; the exported classes have their examples; the README's program is
the one that is compiled and run as a test, and short.
"""
import html
import pathlib
import re
import sys

EXAMPLES = {"KyDeviceSerialPort.h": "SerialPort.cpp", "KyDeviceI2CBus.h": "I2CBus.cpp", "KyDeviceSPIBus.h": "SPIBus.cpp",
            "KySerialBridge.h": "SerialBridge.cpp", "KySerialPortConfiguration.h": "LineConfiguration.cpp",
            "IKyDeviceAdapter.h": "OwnAdapter.cpp"}
MOST_LINES = 125
FIRST_PROGRAM = "Examples/FirstProgram.cpp"
MOST_FIRST_LINES = 15  # without blank lines and lone braces
PAGES = ("*.md", "Docs/*.md", "Docs/*/*.md", "Bindings/*/*.md")
HEADERS = ("Libraries/*/Include/*/*.h", "Libraries/*/*/Include/*/*.h", "Simulator/*/Include/*/*.h",
           "Adapters/*/Include/*/*.h")


def prose(file):
    return re.sub(r"```.*?```", "", file.read_text(encoding="utf-8"), flags=re.S)


def anchors(page):
    for heading in re.findall(r"^#+ (.*)$", prose(page), re.M):
        yield re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")


def links(source, files):
    for file in files:
        for target, anchor in re.findall(r"\]\(([^)#]*)(?:#([^)]*))?\)", prose(source / file)):
            page = (source / file).parent.joinpath(target) if target else source / file
            if "://" in target:
                continue
            if not page.exists():
                yield f"{file}: no such file: {target}"
            elif anchor and anchor not in anchors(page):
                yield f"{file}: no such heading: {target}#{anchor}"


def pictures(source):
    for text in sorted((source / "Docs").glob("*.dot")):
        picture = html.unescape(text.with_suffix(".svg").read_text(encoding="utf-8")).replace("\xa0", " ")
        for label in re.findall(r'label="([^"]*)"', text.read_text(encoding="utf-8")):
            for line in label.split("\\n"):
                if line not in picture:
                    yield f"{text.name}: its picture does not show: {line}"


def examples(source):
    for header, example in EXAMPLES.items():
        text = (source / "Libraries/KySerial/Include/KySerial" / header).read_text(encoding="utf-8")
        if f"Examples/{example}" not in text:
            yield f"{header} does not name Examples/{example}"
    for example in (source / "Examples").iterdir():
        if example.suffix in (".c", ".cpp", ".py"):
            lines = len(example.read_text(encoding="utf-8").splitlines())
            if lines > MOST_LINES:
                yield f"{example.name} has {lines} lines, more than {MOST_LINES}"


def programs(source, files):
    """What pages show of a file, named in a comment before it, is in that file to the letter."""
    for file in files:
        text = (source / file).read_text(encoding="utf-8")
        for name, shown in re.findall(r"<!-- ([\w/.]+) -->\n```\w+\n(.*?)```", text, re.S):
            if shown not in (source / name).read_text(encoding="utf-8"):
                yield f"{file}: what it shows of {name} is not there"


def first_program(source):
    program = (source / FIRST_PROGRAM).read_text(encoding="utf-8")
    if f"```cpp\n{program}```" not in (source / "README.md").read_text(encoding="utf-8"):
        yield f"README.md: does not show {FIRST_PROGRAM}"
    lines = sum(1 for line in program.splitlines() if re.search(r"\w", line))
    if lines > MOST_FIRST_LINES:
        yield f"{FIRST_PROGRAM} has {lines} lines, more than {MOST_FIRST_LINES}"


def named_files(source, headers):
    for header in headers:
        for name in re.findall(r"\b(?:Examples|Docs)/[\w.-]+\.\w+", (source / header).read_text(encoding="utf-8")):
            if not (source / name).exists():
                yield f"{header}: no such file: {name}"


def main(folder):
    source = pathlib.Path(folder)
    pages = [file.relative_to(source) for folder in PAGES for file in sorted(source.glob(folder))]
    headers = [file.relative_to(source) for folder in HEADERS for file in sorted(source.glob(folder))]
    if len(pages) < 10 or len(headers) < 20:
        print(f"found only {len(pages)} pages and {len(headers)} headers")
        return 1
    wrong = [*links(source, pages), *pictures(source), *examples(source), *first_program(source),
             *programs(source, pages), *named_files(source, headers)]
    print("\n".join(wrong))
    print(f"{len(pages)} pages, {len(headers)} headers")
    return 1 if wrong else 0


def installed(folder):
    """No link of the installed pages leads nowhere."""
    source = pathlib.Path(folder)
    pages = sorted(file.relative_to(source) for file in source.rglob("*.md"))
    wrong = [*links(source, pages)]
    print("\n".join(wrong))
    print(f"{len(pages)} installed pages")
    return 1 if wrong or len(pages) < 10 else 0


sys.exit(installed(sys.argv[2]) if sys.argv[1] == "--installed" else main(sys.argv[1]))
