#!/usr/bin/env python3
"""Counts the tests of CTest's JUnit reports.

count_tests.py --failures REPORT   prints the output of each failed test, and each skipped test with its reason
count_tests.py [--broken N] REPORT...   prints "N passed, N failed, N skipped" over all reports; N broken builds
                                        count as failed. Exit status 1 when anything failed or nothing passed.

A report of a second run of what failed, report-again.xml beside report.xml, decides for the tests in it; those that
passed then are named. Where a CTest test runs many cases in one process, "Program.0", their reports in the folder cases
(cases-again) beside it are counted in its place. One that left no such report has failed, whatever CTest says: a program that
crashes under Wine can end with status 0.
"""
import os
import re
import sys
import xml.etree.ElementTree as ElementTree


def state(case):
    if case.get("status") == "fail" or case.find("failure") is not None:
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def read(report):
    """The CTest tests of a report, each with its cases: pairs of a name and an element; none for a test that has no others."""
    folder = report.replace("report", "cases").removesuffix(".xml")
    for test in ElementTree.parse(report).getroot().iter("testcase"):
        path = os.path.join(folder, f"{test.get('name')}.xml")
        cases = []
        if os.path.exists(path):
            program = test.get("name").rpartition(".")[0]
            cases = [(f"{program}: {case.get('classname')}.{case.get('name')}", case)
                     for case in ElementTree.parse(path).getroot().iter("testcase")]
        elif os.path.isdir(folder) and re.fullmatch(r"\w+\.\d+", test.get("name")):
            test.set("status", "fail")
        yield test, cases


def count(report):
    """The states by name. A process that failed with all its cases passed, or without a report of them, counts as one more."""
    states = {}
    for test, cases in read(report):
        inner = {name: state(case) for name, case in cases}
        states.update(inner)
        if not cases or (state(test) == "failed" and "failed" not in inner.values()):
            states[test.get("name")] = state(test)
    return states


def show(report):
    for test, cases in read(report):
        output = test.findtext("system-out") or ""
        if state(test) == "failed":
            print(f"--- {test.get('name')} failed\n{output[-6000:]}")
        elif state(test) == "skipped":
            reason = re.search(r"Skipped\n(.*?)\n", output, re.S)
            print(f"--- {test.get('name')} skipped: {reason.group(1) if reason else 'no reason given'}")
        for name, case in cases:
            if state(case) == "skipped":
                reason = (case.find("skipped").get("message") or "").partition("\n")[2] if case.find("skipped") is not None else ""
                print(f"--- {name} skipped: {reason or 'no reason given'}")


def main(arguments):
    if arguments[:1] == ["--failures"]:
        show(arguments[1])
        return 0
    broken = 0
    if arguments[:1] == ["--broken"]:
        broken, arguments = int(arguments[1]), arguments[2:]
    counts = {"passed": 0, "failed": broken, "skipped": 0}
    for report in arguments:
        states = count(report)
        again = report.replace("report.xml", "report-again.xml")
        if again != report and os.path.exists(again):
            repeated = count(again)
            for test, cases in read(again):
                if cases and test.get("name") not in repeated:
                    states.pop(test.get("name"), None)  # the process as a whole: its cases have been counted now
            for name, then in repeated.items():
                if then == "passed" and states.get(name) != "passed":
                    print(f"unstable, passed only when run again: {name} ({report})")
            states.update(repeated)
        for name in states:
            counts[states[name]] += 1
    print(f"{counts['passed']} passed, {counts['failed']} failed, {counts['skipped']} skipped")
    return 1 if counts["failed"] or not counts["passed"] else 0


sys.exit(main(sys.argv[1:]))
