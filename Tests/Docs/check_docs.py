#!/usr/bin/env python3
"""Checks the documentation: check_docs.py SOURCE

Links of the Markdown files and the files that installed headers name have to exist; each picture has to have the labels of
its text, so that one is not changed without the other; the exported classes have their examples.
"""
import html
import pathlib
import re
import sys

EXAMPLES = {"KyDeviceSerialPort.h": "SerialPort.cpp", "KyDeviceI2CBus.h": "I2CBus.cpp", "KyDeviceSPIBus.h": "SPIBus.cpp",
            "KySerialBridge.h": "SerialBridge.cpp", "KySerialPortConfiguration.h": "LineConfiguration.cpp",
            "IKyDeviceAdapter.h": "OwnAdapter.cpp"}
MOST_LINES = 120
PAGES = ("*.md", "Docs/*.md", "Bindings/*/*.md")
HEADERS = ("Libraries/*/Include/*/*.h", "Libraries/*/*/Include/*/*.h", "Simulator/*/Include/*/*.h",
           "Adapters/*/Include/*/*.h")


def links(source, files):
    for file in files:
        text = re.sub(r"```.*?```", "", (source / file).read_text(encoding="utf-8"), flags=re.S)
        for target in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", text):
            if "://" not in target and not (source / file).parent.joinpath(target).exists():
                yield f"{file}: no such file: {target}"


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
    wrong = [*links(source, pages), *pictures(source), *examples(source), *named_files(source, headers)]
    print("\n".join(wrong))
    print(f"{len(pages)} pages, {len(headers)} headers")
    return 1 if wrong else 0


sys.exit(main(sys.argv[1]))
