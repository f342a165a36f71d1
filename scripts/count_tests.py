#!/usr/bin/env python3
"""Counts the tests of CTest's JUnit reports.

count_tests.py --failures REPORT   prints the output of each failed test, and each skipped test with its reason
count_tests.py [--broken N] REPORT...   prints "N passed, N failed, N skipped" over all reports; N broken builds
                                        count as failed. Exit status 1 when anything failed or nothing passed.

A report of a second run of what failed, report-again.xml beside report.xml, decides for the tests in it; those that
passed then are named.
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


def show(report):
    for case in ElementTree.parse(report).getroot().iter("testcase"):
        output = case.findtext("system-out") or ""
        if state(case) == "failed":
            print(f"--- {case.get('name')} failed\n{output[-6000:]}")
        elif state(case) == "skipped":
            reason = re.search(r"Skipped\n(.*?)\n", output, re.S)
            print(f"--- {case.get('name')} skipped: {reason.group(1) if reason else 'no reason given'}")


def main(arguments):
    if arguments[:1] == ["--failures"]:
        show(arguments[1])
        return 0
    broken = 0
    if arguments[:1] == ["--broken"]:
        broken, arguments = int(arguments[1]), arguments[2:]
    counts = {"passed": 0, "failed": broken, "skipped": 0}
    for report in arguments:
        states = {case.get("name"): state(case) for case in ElementTree.parse(report).getroot().iter("testcase")}
        again = report.replace("report.xml", "report-again.xml")
        if again != report and os.path.exists(again):
            for case in ElementTree.parse(again).getroot().iter("testcase"):
                if state(case) == "passed":
                    print(f"unstable, passed only when run again: {case.get('name')} ({report})")
                states[case.get("name")] = state(case)
        for name in states:
            counts[states[name]] += 1
    print(f"{counts['passed']} passed, {counts['failed']} failed, {counts['skipped']} skipped")
    return 1 if counts["failed"] or not counts["passed"] else 0


sys.exit(main(sys.argv[1:]))
