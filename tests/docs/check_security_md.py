#!/usr/bin/env python3
"""Checks that docs/security.md speaks of what is there: tests, files, names in them, log lines, figures.

usage: check_security_md.py [DOCUMENT [TREE]]

Prints what is missing, and how much was looked at; exit code 1 when something is missing or a table is not there.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

CHECKS_HEADER = "| check | where | defends against | proven by |"
FAILURES_HEADER = "| failure | effect | line | tried again | proven by |"
PARTIES_HEADER = "| party | may | must never be able to | proven by |"

TEST_NAME = re.compile(r"[A-Z]\w*\.[A-Z]\w*")
FILE_NAME = re.compile(r"(?:src|tests|tools|include|docs|scripts)/[\w./-]+")


def sources_below(folder, *patterns):
    return {path: path.read_text(encoding="utf-8") for pattern in patterns for path in sorted(folder.rglob(pattern))}


def tests_in(texts):
    """Every test as Suite.Name; one with parameters counts only when its suite is given some."""
    found = set()
    instantiated = {
        suite for text in texts for suite in re.findall(r"\bINSTANTIATE_TEST_SUITE_P\(\s*\w+\s*,\s*(\w+)", text)
    }
    for text in texts:
        for kind, suite, name in re.findall(r"^TEST(_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)", text, re.M):
            if kind != "_P" or suite in instantiated:
                found.add(f"{suite}.{name}")
    return found


def log_texts(texts):
    """The sources with the pieces of each text put together, so that a line can be found whole."""
    return "\n".join(re.sub(r'"\s*"', "", text) for text in texts)


def quoted(text):
    return re.findall(r"`([^`\n]+)`", text)


def rows_of(document, header):
    """[[cells]] of the table below this header; None when it is not there."""
    lines = document.splitlines()
    if header not in lines:
        return None
    rows = []
    for line in lines[lines.index(header) + 2 :]:
        if not line.startswith("|"):
            break
        rows.append([cell.strip() for cell in line.strip("|").split("|")])
    return rows


class Report:
    def __init__(self):
        self.missing = 0
        self.looked = 0

    def expect(self, good, what):
        self.looked += 1
        if not good:
            self.missing += 1
            print(f"MISSING {what}")


def check_row(report, root, cells):
    if len(cells) != 4:
        report.expect(False, f"a row of the checks has {len(cells)} cells: {cells[0]}")
        return
    check, where, _, proven = cells
    files = [name for name in quoted(where) if FILE_NAME.fullmatch(name)]
    names = [name for name in quoted(where) if name not in files]
    report.expect(len(files) == 1, f"one file behind the check '{check}'")
    report.expect(any(TEST_NAME.fullmatch(name) for name in quoted(proven)), f"a test behind the check '{check}'")
    for file in files:
        path = root / file
        text = path.read_text(encoding="utf-8") if path.is_file() else ""
        for name in names:
            report.expect(re.search(rf"\b{re.escape(name)}\b", text), f"{name} in {file}")


def main():
    document = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "docs" / "security.md"
    root = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else ROOT
    text = document.read_text(encoding="utf-8")
    test_sources = sources_below(root / "tests", "*.cpp")
    tests = tests_in(test_sources.values())
    test_texts = "\n".join(test_sources.values()).lower()
    lines = log_texts(sources_below(root / "src", "*.cpp").values())
    report = Report()

    named_tests = [name for name in quoted(text) if TEST_NAME.fullmatch(name)]
    for name in named_tests:
        report.expect(name in tests, f"test {name}")
    for name in quoted(text):
        if FILE_NAME.fullmatch(name):
            report.expect((root / name).is_file(), f"file {name}")
    for figure in sorted(set(re.findall(r"\b0x[0-9A-Fa-f]+\b", text))):
        report.expect(figure.lower() in test_texts, f"a test with the figure {figure}")

    checks = rows_of(text, CHECKS_HEADER)
    failures = rows_of(text, FAILURES_HEADER)
    report.expect(checks, "the table of checks")
    report.expect(failures, "the table of failures")
    for cells in checks or []:
        check_row(report, root, cells)
    parties = rows_of(text, PARTIES_HEADER)
    report.expect(parties, "the table of parties")
    for cells, columns in [(row, 5) for row in failures or []] + [(row, 4) for row in parties or []]:
        report.expect(len(cells) == columns, f"{columns} cells in the row of '{cells[0]}'")
        report.expect(any(TEST_NAME.fullmatch(name) for name in quoted(cells[-1])), f"a test behind '{cells[0]}'")
    quotations = [line for cells in failures or [] if len(cells) == 5 for line in quoted(cells[2])]
    report.expect(quotations, "log lines in the table of failures")
    for line in quotations:
        report.expect(line in lines, f"the log line '{line}'")

    print(f"{len(named_tests)} mentions of tests, {len(checks or [])} checks, {len(quotations)} log lines: "
          f"{report.looked} things looked for, {report.missing} missing")
    return 1 if report.missing else 0


if __name__ == "__main__":
    sys.exit(main())
