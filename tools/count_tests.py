#!/usr/bin/python3
"""Prints "passed failed skipped" of the test cases in a directory that holds a ctest.xml (JUnit) and the JSON report of
each GoogleTest executable. An executable that failed without a failed case (it crashed, or hung) counts as one."""

import json
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def gtest_counts(report):
    passed = failed = skipped = 0
    for suite in json.loads(report.read_text(encoding="utf-8"))["testsuites"]:
        for case in suite["testsuite"]:
            if case.get("failures"):
                failed += 1
            elif case.get("result") == "SKIPPED":
                skipped += 1
            elif case.get("status") == "RUN":
                passed += 1
    return passed, failed, skipped


def main():
    results = Path(sys.argv[1])
    counts = {report.stem: gtest_counts(report) for report in results.glob("*.json")}
    for case in ElementTree.parse(results / "ctest.xml").getroot().iter("testcase"):
        passed, failed, skipped = counts.get(case.get("name"), (0, 0, 0))
        if case.get("status") != "run" and failed == 0:
            counts[case.get("name")] = (passed, 1, skipped)
        elif case.get("name") not in counts:
            counts[case.get("name")] = (1, 0, 0)
    print(*(sum(column) for column in zip((0, 0, 0), *counts.values())))


if __name__ == "__main__":
    main()
