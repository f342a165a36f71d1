#!/usr/bin/env python3
"""Checks that a shared library exports what it should and nothing else.

check_exports.py LIBRARY PATTERN [PATTERN...]
Each exported symbol, demangled, has to match one of the patterns (regular expressions, from the start), and each
pattern has to be matched by a symbol. Reads ELF and PE libraries with the binutils of either.
"""
import re
import subprocess
import sys


def run(*command, text=None):
    return subprocess.run(command, input=text, capture_output=True, text=True, check=True).stdout


def exports_of_dll(library):
    listing = run("x86_64-w64-mingw32-objdump", "-p", library)
    table = listing.split("[Ordinal/Name Pointer] Table", 1)[1].split("\n\n", 1)[0]
    return re.findall(r"^\s*\[\s*\d+\] (\S+)", table, re.M)


def exports_of_elf(library):
    lines = run("nm", "--dynamic", "--defined-only", library).splitlines()
    return [line.split()[-1].split("@")[0] for line in lines]


def main(library, *patterns):
    mangled = exports_of_dll(library) if library.endswith(".dll") else exports_of_elf(library)
    names = run("c++filt", text="\n".join(mangled)).splitlines()
    unwanted = [name for name in names if not any(re.match(pattern, name) for pattern in patterns)]
    missing = [pattern for pattern in patterns if not any(re.match(pattern, name) for name in names)]
    for name in unwanted:
        print(f"exported, but not public: {name}")
    for pattern in missing:
        print(f"nothing exported matches: {pattern}")
    print(f"{len(names)} symbols exported")
    return 1 if unwanted or missing else 0


sys.exit(main(*sys.argv[1:]))
