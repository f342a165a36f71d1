#!/usr/bin/env python3
"""Breaks the places of mutation_places.py one at a time and looks whether a test notices.

mutation.py [--only TEXT]... [--first N] [--count N]
mutation.py --check

Each place is a line of a source and another form of it, an operator, a constant, a message or an order changed. The
source is changed in a copy of the tree, the test programs named with it are built, and the first that fails ends it.
A change that no test notices is printed as SURVIVED; the exit status is 1 then. Works in build/mutation.
--check only looks whether each place is in its source, once, which a changed source makes untrue.
"""
import argparse
import os
import shutil
import subprocess
import sys
import time

from mutation_places import PLACES

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))


def run(command, timeout, **more):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=timeout, **more).returncode
    except subprocess.TimeoutExpired:
        return -1


def build(folder, programs):
    return run(["cmake", "--build", folder, "-j", str(os.cpu_count()), "--target", *programs], 1200)


def copy(tree, files):
    """Makes the tree a copy of the sources. What has not changed is left alone, and so not built again."""
    for folder, _, names in os.walk(tree):
        for name in names:
            if os.path.relpath(os.path.join(folder, name), tree) not in files:
                os.remove(os.path.join(folder, name))
    for name in files:
        target = os.path.join(tree, name)
        old = os.path.exists(target) and open(target, "rb").read()
        new = open(os.path.join(ROOT, name), "rb").read()
        if old != new:
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(os.path.join(ROOT, name), target)


def passes(folder, program, tree):
    """Whether the program's tests all pass. A test that hangs has noticed something as well."""
    return run([os.path.join(folder, "bin", program), "--gtest_fail_fast", "--gtest_brief=1"], 120, cwd=tree) == 0


def find(source, files):
    """The one file whose path ends like that; folders move more often than files get new names."""
    found = [name for name in files if name.endswith("/" + source)]
    return found[0] if len(found) == 1 else None


def check(places, files):
    """The number of places that are not, or not once, in the sources as they are."""
    bad = 0
    for source, before, after, _ in places:
        name = find(source, files)
        count = open(os.path.join(ROOT, name), encoding="utf-8").read().count(before) if name else 0
        if count != 1 or before == after:
            print(f"mutation: {source} has {count} times {before!r}")
            bad += 1
    return bad


def judge(place, tree, folder, files):
    source, before, after, programs = place
    path = os.path.join(tree, find(source, files))
    text = open(path, encoding="utf-8").read()
    with open(path, "w", encoding="utf-8") as file:
        file.write(text.replace(before, after, 1))
    try:
        if build(folder, programs.split()) != 0:
            return "NOT BUILT"
        for program in programs.split():
            if not passes(folder, program, tree):
                return "noticed by " + program
        return "SURVIVED"
    finally:
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--check", action="store_true", help="only look whether the places are there")
    parser.add_argument("--only", action="append", default=[], help="places whose source or text holds this; several add")
    parser.add_argument("--first", type=int, default=0, help="number of the place to begin with")
    parser.add_argument("--count", type=int, default=len(PLACES), help="places at most")
    arguments = parser.parse_args()
    files = subprocess.run(["git", "-C", ROOT, "ls-files"], capture_output=True, text=True, check=True).stdout.split()
    missing = check(PLACES, files)
    if missing or arguments.check:
        return 1 if missing else 0
    tree = os.path.join(ROOT, "build", "mutation", "tree")
    folder = os.path.join(ROOT, "build", "mutation", "build")
    copy(tree, files)
    if run(["cmake", "-S", tree, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0"], 600) != 0:
        print("mutation: the tree cannot be configured")
        return 1
    places = [place for place in PLACES
              if not arguments.only or any(text in place[0] + place[1] for text in arguments.only)]
    places = places[arguments.first:arguments.first + arguments.count]
    programs = sorted({program for place in places for program in place[3].split()})
    if build(folder, programs) != 0:
        print("mutation: the tree cannot be built")
        return 1
    if not all(passes(folder, program, tree) for program in programs):
        print("mutation: the tests fail on the unbroken tree")
        return 1
    bad = 0
    begin = time.time()
    for place in places:
        verdict = judge(place, tree, folder, files)
        bad += not verdict.startswith("noticed")
        print(f"{verdict:32} {place[0]}: {place[1].strip()!r} -> {place[2].strip()!r}", flush=True)
    print(f"{len(places)} places broken, {len(places) - bad} noticed, in {time.time() - begin:.0f} s")
    return 1 if bad else 0


sys.exit(main())
