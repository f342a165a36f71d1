#!/usr/bin/env python3
"""Looks whether the sources keep to their layers: which folders include what.

- Headers of the operating system, and conditions on it, only in folders named Linux/ or Windows/. In Libraries/ these
  are those of KyPlatform, and of KyGvcp for sockets.
- Libraries include nothing of Adapters, Simulator, Tools, Tests or Benchmarks.
Prints each line that breaks a rule; the exit status is 1 then.
"""
import os
import re
import subprocess
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

# Neither of standard C or C++ nor of this project. A header of standard C++ has no ending; those of C are listed.
STANDARD_C = {"assert", "ctype", "errno", "float", "inttypes", "limits", "locale", "math", "setjmp", "stdarg", "stdbool",
              "stddef", "stdint", "stdio", "stdlib", "string", "time", "wchar", "stdatomic", "threads"}
OTHERS = re.compile(r"^(gtest|gmock|benchmark|CLI|nlohmann|toml\+\+|boost|rapidxml|arv|zlib\.h|valgrind)")
OWN = re.compile(r"^(Ky|JxUtilsLib|OmUtilsLib|clserzmo|Simulator|Tests|Support|Fuzz|kyserial|CommandLine|Platform|Adapters|GigE|Evaluator|Client|Gvcp)")
# The export macro of a header that Windows compilers have to see, and the compiler's own name.
CONDITION_FREE = re.compile(r"/(Export|ThreadSafety)\.h$")
SEAMS = ("Libraries/KyPlatform/", "Libraries/KyGvcp/")
ABOVE_LIBRARIES = re.compile(r"^(Adapters|Simulator|Tools|Tests|Benchmarks|Support|kyserial|CommandLine|Platform)/")

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
CONDITION = re.compile(r"^\s*#\s*(?:el)?if.*\b(_WIN32|_WIN64|__linux__|__unix__|__MINGW32__)\b")


def is_of_the_system(name):
    base = name[:-2] if name.endswith(".h") else None
    return base is not None and base not in STANDARD_C and not OTHERS.match(name) and not OWN.match(name)


def look(path, report):
    own_system = re.search(r"/(Linux|Windows)/", "/" + path)
    for number, line in enumerate(open(os.path.join(ROOT, path), encoding="utf-8"), 1):
        include = INCLUDE.match(line)
        if include:
            name = include.group(2)
            of_system = include.group(1) == "<" and is_of_the_system(name)
            if of_system and not own_system:
                report(path, number, f"{name} is a header of the system: only folders Linux/ and Windows/ include one")
            if of_system and path.startswith("Libraries/") and not path.startswith(SEAMS):
                report(path, number, f"{name} is a header of the system: in the libraries only KyPlatform and KyGvcp do")
            if path.startswith("Libraries/") and ABOVE_LIBRARIES.match(name):
                report(path, number, f"{name} stands above the libraries")
        elif CONDITION.match(line) and not own_system and not CONDITION_FREE.search(path):
            report(path, number, "a condition on the system: it belongs into twins in Linux/ and Windows/")


def main():
    broken = []
    files = subprocess.run(["git", "-C", ROOT, "ls-files", "*.h", "*.cpp", "*.c"], check=True, capture_output=True,
                           text=True).stdout.split()
    folders = ("Libraries/", "Adapters/", "Simulator/", "Tools/", "Examples/", "Tests/", "Benchmarks/")
    files = [path for path in files if path.startswith(folders) and os.path.exists(os.path.join(ROOT, path))]
    for path in files:
        look(path, lambda *what: broken.append("%s:%d: %s" % what))
    print("\n".join(broken) if broken else f"layers: {len(files)} files, each within its layer")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
